// SPDX-License-Identifier: Apache-2.0
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/exception.hpp>

#include "platform/Files.h"
#include "platform/posix/Stat.h"

namespace Kelta {
namespace platform {

namespace {

constexpr std::size_t kLargestTransfer = 1u << 30;

int openFile(const boost::filesystem::path& path, File::Mode mode) {
  if (mode == File::Mode::createNew)
    return ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
  // O_NONBLOCK: a pipe that has taken the file's name must not hold us up.
  return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

}  // namespace

struct File::Impl {
  boost::filesystem::path path;
  int descriptor = -1;

  ~Impl() {
    if (descriptor >= 0) ::close(descriptor);
  }
  [[noreturn]] void fail(const char* what, int error) const {
    throw boost::filesystem::filesystem_error(what, path,
                                              boost::system::error_code(error, boost::system::system_category()));
  }
  struct stat status(const char* what) const {
    struct stat result {};
    if (fstat(descriptor, &result) != 0) fail(what, errno);
    return result;
  }
};

File::File(const boost::filesystem::path& path, Mode mode) : impl_(std::make_unique<Impl>()) {
  impl_->path = path;
  impl_->descriptor = openFile(path, mode);
  if (impl_->descriptor < 0) impl_->fail("open", errno);
  const mode_t kind = impl_->status("open").st_mode;
  if (!S_ISREG(kind)) impl_->fail("open", S_ISDIR(kind) ? EISDIR : EINVAL);
}

File::~File() = default;
File::File(File&&) noexcept = default;
File& File::operator=(File&&) noexcept = default;

std::size_t File::read(void* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got =
        ::read(impl_->descriptor, static_cast<char*>(data) + done, std::min(size - done, kLargestTransfer));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) impl_->fail("read", errno);
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

void File::write(const void* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t put =
        ::write(impl_->descriptor, static_cast<const char*>(data) + done, std::min(size - done, kLargestTransfer));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) impl_->fail("write", errno);
    if (put == 0) impl_->fail("write", ENOSPC);
    done += static_cast<std::size_t>(put);
  }
}

void File::seek(std::uint64_t position) {
  static_assert(sizeof(off_t) == 8, "file positions have 64 bits");
  if (position > INT64_MAX) impl_->fail("seek", EOVERFLOW);
  if (lseek(impl_->descriptor, static_cast<off_t>(position), SEEK_SET) < 0) impl_->fail("seek", errno);
}

std::uint64_t File::position() {
  const off_t position = lseek(impl_->descriptor, 0, SEEK_CUR);
  if (position < 0) impl_->fail("seek", errno);
  return static_cast<std::uint64_t>(position);
}

std::uint64_t File::size() { return static_cast<std::uint64_t>(impl_->status("stat").st_size); }

bool File::setLastWriteTime(std::int64_t nanoseconds) {
  return futimens(impl_->descriptor, lastWriteOnly(nanoseconds).data()) == 0;
}

void File::flushToDisk() {
  int result = 0;
  do {
    result = fsync(impl_->descriptor);
  } while (result != 0 && errno == EINTR);
  if (result != 0) impl_->fail("flush", errno);
}

void File::close() {
  const int descriptor = impl_->descriptor;
  impl_->descriptor = -1;
  // The descriptor is gone even when the call was interrupted.
  if (::close(descriptor) != 0 && errno != EINTR) impl_->fail("close", errno);
}

FileStamp File::stamp() { return stampOfStatus(impl_->status("stat")); }

}  // namespace platform
}  // namespace Kelta
