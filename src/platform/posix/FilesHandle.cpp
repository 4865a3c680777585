// SPDX-License-Identifier: Apache-2.0
#include <errno.h>
#include <fcntl.h>

#include <algorithm>

#include "platform/posix/FileImpl.h"
#include "platform/posix/Stat.h"

namespace Kelta {
namespace platform {

namespace {

constexpr std::size_t kLargestTransfer = 1u << 30;

}  // namespace

// O_NONBLOCK: a pipe that has taken the file's name must not hold us up.
int openFlags(File::Mode mode) {
  if (mode == File::Mode::createNew) return O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  return O_RDONLY | O_NONBLOCK | O_CLOEXEC;
}

File::Impl::Impl(boost::filesystem::path file, Descriptor opened)
    : path(std::move(file)), descriptor(std::move(opened)) {
  if (!descriptor) fail("open", errno);
  const mode_t kind = status("open").st_mode;
  if (!S_ISREG(kind)) fail("open", S_ISDIR(kind) ? EISDIR : EINVAL);
}

struct stat File::Impl::status(const char* what) const {
  struct stat result {};
  if (fstat(descriptor.get(), &result) != 0) fail(what, errno);
  return result;
}

File::File(const boost::filesystem::path& path, Mode mode)
    : File(std::make_unique<Impl>(path, Descriptor(::open(path.c_str(), openFlags(mode), S_IRUSR | S_IWUSR)))) {}

File::File(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

File::~File() = default;
File::File(File&&) noexcept = default;
File& File::operator=(File&&) noexcept = default;

std::size_t File::read(void* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got =
        ::read(impl_->descriptor.get(), static_cast<char*>(data) + done, std::min(size - done, kLargestTransfer));
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
    const ssize_t put = ::write(impl_->descriptor.get(), static_cast<const char*>(data) + done,
                                std::min(size - done, kLargestTransfer));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) impl_->fail("write", errno);
    if (put == 0) impl_->fail("write", ENOSPC);
    done += static_cast<std::size_t>(put);
  }
}

void File::seek(std::uint64_t position) {
  static_assert(sizeof(off_t) == 8, "file positions have 64 bits");
  if (position > INT64_MAX) impl_->fail("seek", EOVERFLOW);
  if (lseek(impl_->descriptor.get(), static_cast<off_t>(position), SEEK_SET) < 0) impl_->fail("seek", errno);
}

std::uint64_t File::position() {
  const off_t position = lseek(impl_->descriptor.get(), 0, SEEK_CUR);
  if (position < 0) impl_->fail("seek", errno);
  return static_cast<std::uint64_t>(position);
}

std::uint64_t File::size() { return static_cast<std::uint64_t>(impl_->status("stat").st_size); }

bool File::setLastWriteTime(std::int64_t nanoseconds) {
  return futimens(impl_->descriptor.get(), lastWriteOnly(nanoseconds).data()) == 0;
}

void File::flushToDisk() {
  int result = 0;
  do {
    result = fsync(impl_->descriptor.get());
  } while (result != 0 && errno == EINTR);
  if (result != 0) impl_->fail("flush", errno);
}

void File::close() {
  const int descriptor = impl_->descriptor.release();
  // The descriptor is gone even when the call was interrupted.
  if (::close(descriptor) != 0 && errno != EINTR) impl_->fail("close", errno);
}

FileStamp File::stamp() { return stampOfStatus(impl_->status("stat")); }

EntryId File::id() { return idOfStatus(impl_->status("stat")); }

}  // namespace platform
}  // namespace Kelta
