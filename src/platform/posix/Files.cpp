// SPDX-License-Identifier: Apache-2.0
#include "platform/Files.h"

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <boost/filesystem/exception.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "platform/Folders.h"
#include "platform/posix/Stat.h"

namespace Kelta {
namespace platform {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1000000000;
constexpr mode_t kOthers = S_IRWXG | S_IRWXO;

/// A descriptor that closes itself.
struct Descriptor {
  explicit Descriptor(int number) : value(number) {}
  ~Descriptor() {
    if (value >= 0) ::close(value);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  const int value;
};

Kind kindOf(mode_t mode) {
  if (S_ISREG(mode)) return Kind::file;
  if (S_ISDIR(mode)) return Kind::folder;
  return S_ISLNK(mode) ? Kind::symlink : Kind::other;
}

std::int64_t nanosecondsOf(const struct timespec& time) {
  constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max() / kNanosecondsPerSecond - 1;
  if (time.tv_sec > limit) return limit * kNanosecondsPerSecond;
  if (time.tv_sec < -limit) return -limit * kNanosecondsPerSecond;
  return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec;
}

[[noreturn]] void fail(const char* what, const boost::filesystem::path& from, const boost::filesystem::path& to,
                       int error) {
  throw boost::filesystem::filesystem_error(what, from, to,
                                            boost::system::error_code(error, boost::system::system_category()));
}

bool isBusy(int error) { return error == EBUSY || error == ETXTBSY || error == EAGAIN || error == EWOULDBLOCK; }

bool hasRecordLock(int descriptor) {
  struct flock lock {};
  lock.l_type = F_RDLCK;  // in conflict with write locks only
  lock.l_whence = SEEK_SET;
  return fcntl(descriptor, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool hasWholeLock(int descriptor) {
  if (flock(descriptor, LOCK_SH | LOCK_NB) != 0) return isBusy(errno);
  flock(descriptor, LOCK_UN);
  return false;
}

/// The mode that a new file gets; for the owner alone where the process's mask cannot be learned
/// (umask() itself would change it under other threads).
mode_t modeOfNewFile() {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> status(std::fopen("/proc/self/status", "re"), &std::fclose);
  std::array<char, 256> line{};
  while (status && std::fgets(line.data(), static_cast<int>(line.size()), status.get())) {
    if (std::strncmp(line.data(), "Umask:", 6) == 0) {
      return 0666 & ~static_cast<mode_t>(std::strtoul(line.data() + 6, nullptr, 8));
    }
  }
  return S_IRUSR | S_IWUSR;
}

boost::filesystem::path homeFolder() {
  const char* home = std::getenv("HOME");
  if (home && home[0] == '/') return home;
  std::vector<char> text(16384);
  struct passwd entry {};
  struct passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, text.data(), text.size(), &found) != 0 || !found) return {};
  return found->pw_dir ? boost::filesystem::path(found->pw_dir) : boost::filesystem::path();
}

}  // namespace

FileStamp stampOfStatus(const struct stat& status) {
  FileStamp stamp;
  stamp.kind = kindOf(status.st_mode);
  stamp.nanoseconds = nanosecondsOf(status.st_mtim);
  stamp.size = static_cast<std::uint64_t>(status.st_size);
  return stamp;
}

FileStamp stampOf(const boost::filesystem::path& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0) return stampOfStatus(status);
  FileStamp none;
  none.kind = errno == ENOENT || errno == ENOTDIR ? Kind::missing : Kind::unknown;
  return none;
}

boost::filesystem::path callPath(const boost::filesystem::path& path) { return path; }

bool hasOtherName(const boost::filesystem::path&) { return false; }

bool canStandAsName(const std::wstring& name) {
  return !name.empty() && name != L"." && name != L".." && name.find(L'/') == std::wstring::npos &&
         name.find(L'\0') == std::wstring::npos;
}

std::size_t rootLength(const std::wstring& path) { return !path.empty() && path[0] == L'/' ? 1 : 0; }

std::array<struct timespec, 2> lastWriteOnly(std::int64_t nanoseconds) {
  FileStamp wanted;
  wanted.nanoseconds = nanoseconds;
  std::array<struct timespec, 2> times{};
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<time_t>(wanted.seconds());
  times[1].tv_nsec = static_cast<long>(nanoseconds - wanted.seconds() * kNanosecondsPerSecond);
  return times;
}

bool setLastWriteTime(const boost::filesystem::path& path, std::int64_t nanoseconds) {
  return utimensat(AT_FDCWD, path.c_str(), lastWriteOnly(nanoseconds).data(), AT_SYMLINK_NOFOLLOW) == 0;
}

void replaceFile(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) fail("rename", from, to, errno);
}

void syncFolder(const boost::filesystem::path& folder) {
  const Descriptor opened(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.value >= 0) fsync(opened.value);
}

bool isLocked(const boost::filesystem::path& path) {
  if (stampOf(path).kind != Kind::file) return false;
  const Descriptor opened(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (opened.value < 0) return isBusy(errno);
  struct stat status {};
  if (fstat(opened.value, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  return hasRecordLock(opened.value) || hasWholeLock(opened.value);
}

void setHidden(const boost::filesystem::path&) {}

bool restrictToOwner(const boost::filesystem::path& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || S_ISLNK(status.st_mode)) return false;
  if ((status.st_mode & kOthers) == 0) return true;
  if (chmod(path.c_str(), status.st_mode & S_IRWXU) != 0) return false;
  return lstat(path.c_str(), &status) == 0 && (status.st_mode & kOthers) == 0;
}

void giveNormalRights(const boost::filesystem::path& fresh, const boost::filesystem::path& target) {
  struct stat status {};
  mode_t mode = 0;
  if (lstat(target.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
    mode = status.st_mode & 0777;
    // The group's rights are meant for that group alone.
    if (chown(fresh.c_str(), static_cast<uid_t>(-1), status.st_gid) != 0) mode &= ~static_cast<mode_t>(S_IRWXG);
  } else {
    mode = modeOfNewFile();
  }
  chmod(fresh.c_str(), mode);
}

void takeFolderRights(const boost::filesystem::path&) {}

boost::filesystem::path userDataFolder() {
  const char* data = std::getenv("XDG_DATA_HOME");
  if (data && data[0] == '/') return data;
  const boost::filesystem::path home = homeFolder();
  return home.empty() ? home : home / ".local" / "share";
}

std::string machineName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : std::string();
}

bool samePath(const std::wstring& a, const std::wstring& b) { return a == b; }

bool liesBelow(const std::wstring& path, const std::wstring& folder) {
  if (path.compare(0, folder.size(), folder) != 0) return false;
  if (path.size() == folder.size() || path[folder.size()] == L'/') return true;
  return !folder.empty() && folder.back() == L'/';  // a volume's root keeps its separator
}

}  // namespace platform
}  // namespace Kelta
