// SPDX-License-Identifier: Apache-2.0
#include "platform/Files.h"

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>

#include <array>
#include <boost/filesystem/exception.hpp>
#include <cstdlib>
#include <limits>
#include <vector>

#include "platform/Folders.h"
#include "platform/posix/FileImpl.h"
#include "platform/posix/Stat.h"

namespace Kelta {
namespace platform {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1000000000;

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

void failWith(const char* what, const boost::filesystem::path& path, int error) {
  throw boost::filesystem::filesystem_error(what, path,
                                            boost::system::error_code(error, boost::system::system_category()));
}

void failWith(const char* what, const boost::filesystem::path& from, const boost::filesystem::path& to, int error) {
  throw boost::filesystem::filesystem_error(what, from, to,
                                            boost::system::error_code(error, boost::system::system_category()));
}

FileStamp stampOfStatus(const struct stat& status) {
  FileStamp stamp;
  stamp.kind = kindOf(status.st_mode);
  stamp.nanoseconds = nanosecondsOf(status.st_mtim);
  stamp.size = static_cast<std::uint64_t>(status.st_size);
  return stamp;
}

EntryId idOfStatus(const struct stat& status) {
  EntryId id;
  id.volume = status.st_dev;
  id.number = status.st_ino;
  return id;
}

FileStamp stampOfError(int error) {
  FileStamp none;
  none.kind = error == ENOENT || error == ENOTDIR ? Kind::missing : Kind::unknown;
  return none;
}

FileStamp stampOf(const boost::filesystem::path& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? stampOfStatus(status) : stampOfError(errno);
}

boost::filesystem::path callPath(const boost::filesystem::path& path) { return path; }

bool hasOtherName(const boost::filesystem::path&) { return false; }

bool canStandAsName(const std::wstring& name) {
  return !name.empty() && name != L"." && name != L".." && name.find(L'/') == std::wstring::npos &&
         name.find(L'\0') == std::wstring::npos;
}

std::string identityOf(const boost::filesystem::path& folder) {
  struct statx info {};
  if (::statx(AT_FDCWD, folder.c_str(), 0, STATX_INO | STATX_BTIME, &info) != 0) return std::string();
  const std::string place = std::to_string(info.stx_dev_major) + "." + std::to_string(info.stx_dev_minor) + ":" +
                            std::to_string(info.stx_ino) + ":";
  const bool born = (info.stx_mask & STATX_BTIME) != 0;
  return born ? place + std::to_string(info.stx_btime.tv_sec) + "." + std::to_string(info.stx_btime.tv_nsec) : place;
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

void syncFolder(const boost::filesystem::path& folder) {
  const Descriptor opened(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened) fsync(opened.get());
}

bool mayPassSoon(const boost::system::error_code& error) {
  switch (error.value()) {
    case EACCES:
    case EPERM:
    case EROFS:
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
    case ENAMETOOLONG:
      return false;
    default:
      return true;
  }
}

void setHidden(const boost::filesystem::path&) {}

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
