// SPDX-License-Identifier: Apache-2.0
#include "platform/LockFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <boost/filesystem/exception.hpp>

namespace Kelta {
namespace platform {
namespace {

constexpr int kMostAttempts = 10;

}  // namespace

struct LockFile::Impl {
  boost::filesystem::path path;
  int descriptor = -1;
  bool taken = false;

  ~Impl() { close(); }
  void close() {
    if (descriptor >= 0) ::close(descriptor);
    descriptor = -1;
  }
  [[noreturn]] void fail(int error) const {
    throw boost::filesystem::filesystem_error("lock", path,
                                              boost::system::error_code(error, boost::system::system_category()));
  }
  void open() {
    close();
    // O_NONBLOCK: a pipe that has taken the file's name must not hold us up.
    descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) fail(errno);
    struct stat status {};
    if (fstat(descriptor, &status) != 0) fail(errno);
    if (!S_ISREG(status.st_mode)) fail(EINVAL);
  }
  bool lock() const {
    int result = 0;
    do {
      result = flock(descriptor, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    if (result != 0 && errno != EWOULDBLOCK) fail(errno);
    return result == 0;
  }
  /// Somebody may have removed the file that is open here: a lock on it keeps nobody out.
  bool stands() const {
    struct stat own {};
    struct stat named {};
    return fstat(descriptor, &own) == 0 && lstat(path.c_str(), &named) == 0 && own.st_dev == named.st_dev &&
           own.st_ino == named.st_ino;
  }
};

LockFile::LockFile(const boost::filesystem::path& path) : impl_(std::make_unique<Impl>()) {
  impl_->path = path;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    impl_->open();
    if (!impl_->lock()) return;
    impl_->taken = impl_->stands();
    if (impl_->taken) return;
  }
}

LockFile::~LockFile() {
  if (impl_->taken) setNote(std::string());
}

bool LockFile::taken() const { return impl_->taken; }

std::string LockFile::note() const {
  std::array<char, 256> text{};
  const ssize_t got = pread(impl_->descriptor, text.data(), text.size(), 0);
  return got > 0 ? std::string(text.data(), static_cast<std::size_t>(got)) : std::string();
}

void LockFile::setNote(const std::string& text) {
  if (ftruncate(impl_->descriptor, 0) != 0) return;
  if (pwrite(impl_->descriptor, text.data(), text.size(), 0) < 0) return;
}

}  // namespace platform
}  // namespace Kelta
