// SPDX-License-Identifier: Apache-2.0
#include <windows.h>

#include <algorithm>
#include <limits>

#include "platform/Files.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

namespace {

constexpr std::size_t kLargestTransfer = 1u << 30;

DWORD transferOf(std::size_t size) { return static_cast<DWORD>(std::min(size, kLargestTransfer)); }

HANDLE openFile(const std::wstring& path, File::Mode mode) {
  if (mode == File::Mode::createNew)
    return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                       CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

struct File::Impl {
  boost::filesystem::path path;
  Handle handle;

  [[noreturn]] void fail(const char* what) const { failNative(what, path, GetLastError()); }
  HANDLE get(const char* what) const {
    if (!handle) failNative(what, path, ERROR_INVALID_HANDLE);
    return handle.get();
  }
  std::uint64_t move(std::uint64_t distance, DWORD method) const {
    LARGE_INTEGER wanted{};
    LARGE_INTEGER reached{};
    if (distance > static_cast<std::uint64_t>(std::numeric_limits<LONGLONG>::max()))
      failNative("seek", path, ERROR_NEGATIVE_SEEK);
    wanted.QuadPart = static_cast<LONGLONG>(distance);
    if (!SetFilePointerEx(get("seek"), wanted, &reached, method)) fail("seek");
    return static_cast<std::uint64_t>(reached.QuadPart);
  }
};

File::File(const boost::filesystem::path& path, Mode mode) : impl_(std::make_unique<Impl>()) {
  impl_->path = path;
  impl_->handle = handleOf(openFile(nativePath(path), mode));
  if (!impl_->handle) impl_->fail("open");
  // Names such as "NUL" open a device in any folder.
  if (GetFileType(impl_->handle.get()) != FILE_TYPE_DISK) failNative("open", path, ERROR_INVALID_NAME);
}

File::~File() = default;
File::File(File&&) noexcept = default;
File& File::operator=(File&&) noexcept = default;

std::size_t File::read(void* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    DWORD got = 0;
    if (!ReadFile(impl_->get("read"), static_cast<char*>(data) + done, transferOf(size - done), &got, nullptr)) {
      if (GetLastError() == ERROR_HANDLE_EOF) break;
      impl_->fail("read");
    }
    if (got == 0) break;
    done += got;
  }
  return done;
}

void File::write(const void* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    DWORD put = 0;
    if (!WriteFile(impl_->get("write"), static_cast<const char*>(data) + done, transferOf(size - done), &put, nullptr))
      impl_->fail("write");
    if (put == 0) failNative("write", impl_->path, ERROR_DISK_FULL);
    done += put;
  }
}

void File::seek(std::uint64_t position) { impl_->move(position, FILE_BEGIN); }

std::uint64_t File::position() { return impl_->move(0, FILE_CURRENT); }

std::uint64_t File::size() {
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(impl_->get("stat"), &size)) impl_->fail("stat");
  return static_cast<std::uint64_t>(size.QuadPart);
}

bool File::setLastWriteTime(std::int64_t nanoseconds) { return setWriteTime(impl_->get("set time"), nanoseconds); }

void File::flushToDisk() {
  if (!FlushFileBuffers(impl_->get("flush"))) impl_->fail("flush");
}

void File::close() {
  impl_->get("close");
  if (!CloseHandle(impl_->handle.release())) impl_->fail("close");
}

FileStamp File::stamp() {
  BY_HANDLE_FILE_INFORMATION data{};
  if (!GetFileInformationByHandle(impl_->get("stat"), &data)) impl_->fail("stat");
  FileStamp stamp;
  stamp.kind = Kind::file;
  stamp.nanoseconds = nanosecondsOf(static_cast<std::uint64_t>(data.ftLastWriteTime.dwHighDateTime) << 32 |
                                    data.ftLastWriteTime.dwLowDateTime);
  stamp.size = static_cast<std::uint64_t>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
  return stamp;
}

}  // namespace platform
}  // namespace Kelta
