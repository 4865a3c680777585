// SPDX-License-Identifier: Apache-2.0
#include "platform/windows/Native.h"

#include <windows.h>

#include <boost/filesystem/exception.hpp>
#include <limits>

namespace Kelta {
namespace platform {

namespace {

constexpr std::size_t kLongPath = 240;  ///< folders must leave room for a short name below 260
constexpr std::int64_t kNanosecondsPerTick = 100;
constexpr std::int64_t kTicksTo1970 = 116444736000000000;

bool startsWith(const std::wstring& text, const wchar_t* start) {
  return text.compare(0, std::char_traits<wchar_t>::length(start), start) == 0;
}

}  // namespace

void HandleCloser::operator()(void* handle) const { CloseHandle(handle); }

Handle handleOf(void* opened) { return Handle(opened == INVALID_HANDLE_VALUE ? nullptr : opened); }

std::wstring fullPath(const boost::filesystem::path& path) {
  std::wstring full(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), &full[0], nullptr);
    if (length == 0) return path.native();
    const bool fits = length < full.size();
    full.resize(length);
    if (fits) return full;
  }
}

std::wstring nativePath(const boost::filesystem::path& path) {
  if (startsWith(path.native(), L"\\\\?\\")) return path.native();
  const std::wstring full = fullPath(path);
  if (full.size() < kLongPath || startsWith(full, L"\\\\.\\") || startsWith(full, L"\\\\?\\")) return full;
  if (startsWith(full, L"\\\\")) return L"\\\\?\\UNC" + full.substr(1);
  return L"\\\\?\\" + full;
}

void failNative(const char* what, const boost::filesystem::path& path, unsigned long error) {
  throw boost::filesystem::filesystem_error(
      what, path, boost::system::error_code(static_cast<int>(error), boost::system::system_category()));
}

std::int64_t nanosecondsOf(std::uint64_t fileTime) {
  constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max() / kNanosecondsPerTick;
  if (fileTime > static_cast<std::uint64_t>(limit + kTicksTo1970)) return limit * kNanosecondsPerTick;
  const std::int64_t ticks = static_cast<std::int64_t>(fileTime) - kTicksTo1970;
  return (ticks < -limit ? -limit : ticks) * kNanosecondsPerTick;
}

bool fileTimeOf(std::int64_t nanoseconds, std::uint64_t& fileTime) {
  std::int64_t ticks = nanoseconds / kNanosecondsPerTick;
  if (nanoseconds % kNanosecondsPerTick < 0) --ticks;
  if (ticks <= -kTicksTo1970) return false;
  fileTime = static_cast<std::uint64_t>(ticks + kTicksTo1970);
  return true;
}

bool isLink(const std::wstring& nativePath) {
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW(nativePath.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  FindClose(search);
  // Other reparse points (files kept in the cloud, compressed by the system...) are the entry itself.
  return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsReparseTagNameSurrogate(found.dwReserved0);
}

}  // namespace platform
}  // namespace Kelta
