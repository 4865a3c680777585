// SPDX-License-Identifier: Apache-2.0
#include <windows.h>

#include <algorithm>
#include <limits>

#include "platform/windows/FileImpl.h"

namespace Kelta {
namespace platform {

namespace {

constexpr std::size_t kLargestTransfer = 1u << 30;

DWORD transferOf(std::size_t size) { return static_cast<DWORD>(std::min(size, kLargestTransfer)); }

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kRights = READ_CONTROL | WRITE_DAC;

/// Shares on a network may grant all rights but those to the rights themselves.
HANDLE openWithRights(const std::wstring& path, DWORD access, DWORD share, DWORD how, DWORD flags) {
  const HANDLE opened = CreateFileW(path.c_str(), access | kRights, share, nullptr, how, flags, nullptr);
  if (opened != INVALID_HANDLE_VALUE || GetLastError() != ERROR_ACCESS_DENIED) return opened;
  return CreateFileW(path.c_str(), access, share, nullptr, how, flags, nullptr);
}

HANDLE openFile(const std::wstring& path, File::Mode mode, DWORD flags) {
  // A link to nothing that stands under the name is no place for a new file.
  if (mode == File::Mode::createNew)
    return openWithRights(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, CREATE_NEW,
                          FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT);
  if (mode == File::Mode::adjust)
    return openWithRights(path, GENERIC_READ | FILE_WRITE_ATTRIBUTES, kShareAll, OPEN_EXISTING, flags);
  return CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr);
}

bool sameFile(void* a, void* b) {
  FileStamp stamp;
  EntryId first;
  EntryId second;
  return lookAtHandle(a, stamp, first) && lookAtHandle(b, stamp, second) && first == second;
}

/// What is opened is what stands under the name itself. That may be a reparse point too: a file whose content is kept
/// elsewhere, and which reads as itself.
Handle openUnlinked(const boost::filesystem::path& path, File::Mode mode) {
  const std::wstring native = nativePath(path);
  const Handle looked = openToLook(native);
  const Kind kind = looked ? stampOf(path).kind : Kind::unknown;
  Handle opened = handleOf(openFile(native, mode, FILE_ATTRIBUTE_NORMAL));
  if (!looked || !opened) return opened;  // the error is that of the open
  if (kind == Kind::file && sameFile(looked.get(), opened.get())) return opened;
  SetLastError(ERROR_CANT_ACCESS_FILE);
  return nullptr;
}

}  // namespace

File::Impl::Impl(boost::filesystem::path file, Mode mode, Links links) : path(std::move(file)) {
  const bool checked = links == Links::refused && mode != Mode::createNew;
  handle = checked ? openUnlinked(path, mode) : handleOf(openFile(nativePath(path), mode, FILE_ATTRIBUTE_NORMAL));
  if (!handle) fail("open");
  // Names such as "NUL" open a device in any folder.
  if (GetFileType(handle.get()) != FILE_TYPE_DISK) failNative("open", path, ERROR_INVALID_NAME);
}

void File::Impl::fail(const char* what) const { failNative(what, path, GetLastError()); }

void* File::Impl::get(const char* what) const {
  if (!handle) failNative(what, path, ERROR_INVALID_HANDLE);
  return handle.get();
}

std::uint64_t File::Impl::move(std::uint64_t distance, DWORD method) const {
  LARGE_INTEGER wanted{};
  LARGE_INTEGER reached{};
  if (distance > static_cast<std::uint64_t>(std::numeric_limits<LONGLONG>::max()))
    failNative("seek", path, ERROR_NEGATIVE_SEEK);
  wanted.QuadPart = static_cast<LONGLONG>(distance);
  if (!SetFilePointerEx(get("seek"), wanted, &reached, method)) fail("seek");
  return static_cast<std::uint64_t>(reached.QuadPart);
}

File::File(const boost::filesystem::path& path, Mode mode)
    : File(std::make_unique<Impl>(path, mode, Links::followed)) {}

File::File(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

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
  FileStamp stamp;
  EntryId id;
  if (!lookAtHandle(impl_->get("stat"), stamp, id)) impl_->fail("stat");
  return stamp;
}

EntryId File::id() {
  FileStamp stamp;
  EntryId id;
  if (!lookAtHandle(impl_->get("stat"), stamp, id)) impl_->fail("stat");
  return id;
}

bool File::restrictToOwner() { return restrictHandle(impl_->get("set rights")); }

}  // namespace platform
}  // namespace Kelta
