// SPDX-License-Identifier: Apache-2.0
#include "platform/LockFile.h"

#include <windows.h>

#include <array>

#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {
namespace {

// What is locked cannot be read by others: the lock lies far behind the note.
OVERLAPPED placeOfLock() {
  OVERLAPPED place{};
  place.OffsetHigh = 0x7FFFFFFF;
  return place;
}

}  // namespace

struct LockFile::Impl {
  Handle handle;
  bool taken = false;
};

LockFile::LockFile(const boost::filesystem::path& path) : impl_(std::make_unique<Impl>()) {
  // Not shared with deleters: the file that is open here is the one that has the name.
  impl_->handle =
      handleOf(CreateFileW(nativePath(path).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                           nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!impl_->handle) failNative("lock", path, GetLastError());
  OVERLAPPED place = placeOfLock();
  impl_->taken =
      LockFileEx(impl_->handle.get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place) != 0;
  const DWORD error = GetLastError();
  if (!impl_->taken && error != ERROR_LOCK_VIOLATION && error != ERROR_IO_PENDING) failNative("lock", path, error);
}

LockFile::~LockFile() {
  if (!impl_->taken) return;
  setNote(std::string());
  OVERLAPPED place = placeOfLock();
  UnlockFileEx(impl_->handle.get(), 0, 1, 0, &place);
}

bool LockFile::taken() const { return impl_->taken; }

std::string LockFile::note() const {
  std::array<char, 256> text{};
  OVERLAPPED start{};
  DWORD got = 0;
  const bool read = ReadFile(impl_->handle.get(), text.data(), static_cast<DWORD>(text.size()), &got, &start) != 0;
  return read ? std::string(text.data(), got) : std::string();
}

void LockFile::setNote(const std::string& text) {
  LARGE_INTEGER start{};
  if (!SetFilePointerEx(impl_->handle.get(), start, nullptr, FILE_BEGIN) || !SetEndOfFile(impl_->handle.get())) return;
  DWORD put = 0;
  WriteFile(impl_->handle.get(), text.data(), static_cast<DWORD>(text.size()), &put, nullptr);
}

}  // namespace platform
}  // namespace Kelta
