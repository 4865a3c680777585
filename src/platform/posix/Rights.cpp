// SPDX-License-Identifier: Apache-2.0
// Rights are looked at and set on an open file: under its name a link to another one may stand by then.
#include <errno.h>
#include <fcntl.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/posix/FileImpl.h"
#include "platform/posix/Stat.h"

namespace Kelta {
namespace platform {

namespace {

constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
constexpr mode_t kRights = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr int kUnlinked = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW;

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

}  // namespace

bool restrictOpen(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return false;
  if ((status.st_mode & kOthers) == 0) return true;
  if (fchmod(descriptor, status.st_mode & S_IRWXU) != 0) return false;
  return fstat(descriptor, &status) == 0 && (status.st_mode & kOthers) == 0;
}

void giveRights(int fresh, const struct stat* former) {
  mode_t mode = former ? former->st_mode & kRights : modeOfNewFile();
  // The group's rights are meant for that group alone.
  if (former && fchown(fresh, static_cast<uid_t>(-1), former->st_gid) != 0) mode &= ~static_cast<mode_t>(S_IRWXG);
  fchmod(fresh, mode);
}

bool File::restrictToOwner() { return restrictOpen(impl_->descriptor.get()); }

bool restrictToOwner(const boost::filesystem::path& path) {
  const Kind kind = stampOf(path).kind;
  if (kind != Kind::file && kind != Kind::folder) return false;
  const Descriptor opened(::open(path.c_str(), kUnlinked));
  return opened && restrictOpen(opened.get());
}

// Another name of the file may be one that was never meant to be read by others.
void giveNormalRights(const boost::filesystem::path& fresh, const boost::filesystem::path& target) {
  const Descriptor opened(::open(fresh.c_str(), kUnlinked));
  struct stat status {};
  if (!opened || fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > 1) return;
  struct stat former {};
  const bool replaces = lstat(target.c_str(), &former) == 0 && S_ISREG(former.st_mode);
  giveRights(opened.get(), replaces ? &former : nullptr);
}

void takeFolderRights(const boost::filesystem::path&) {}

}  // namespace platform
}  // namespace Kelta
