// SPDX-License-Identifier: Apache-2.0
#include "platform/windows/Native.h"

#include <windows.h>

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <limits>

#include "platform/Folders.h"

namespace Kelta {
namespace platform {

namespace {

constexpr wchar_t kSeparator = L'\\';
constexpr int kAttempts = 5;
const wchar_t kPrefix[] = L"\\\\?\\";
const wchar_t kNetworkPrefix[] = L"\\\\?\\UNC\\";
const wchar_t kDevicePrefix[] = L"\\\\.\\";
constexpr std::int64_t kNanosecondsPerTick = 100;
constexpr std::int64_t kTicksTo1970 = 116444736000000000;

bool startsWith(const std::wstring& text, const wchar_t* start) {
  return text.compare(0, std::char_traits<wchar_t>::length(start), start) == 0;
}

/// Whether the path begins with a drive and its root; "C:x" is relative to that drive's current folder.
bool hasDrive(const std::wstring& path) { return path.size() > 2 && path[1] == L':' && path[2] == kSeparator; }

/// The full path of a relative one, as the process stands now.
std::wstring resolved(const std::wstring& path) {
  std::wstring full(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), &full[0], nullptr);
    if (length == 0) return path;
    const bool fits = length < full.size();
    full.resize(length);
    if (fits) return full;
  }
}

/// Where the name of a full path's volume ends: "C:", "\\server\share".
std::size_t rootEnd(const std::wstring& path) {
  if (hasDrive(path)) return 2;
  const std::size_t server = path.find(kSeparator, 2);
  return server == std::wstring::npos ? path.size() : std::min(path.find(kSeparator, server + 1), path.size());
}

/// What follows the volume, a separator before each step, with neither "." nor ".." nor empty steps: the prefix takes
/// them for names.
std::wstring plainSteps(const std::wstring& path, std::size_t start) {
  std::wstring steps;
  while (start < path.size()) {
    const std::size_t end = std::min(path.find(kSeparator, start), path.size());
    const std::wstring step = path.substr(start, end - start);
    start = end + 1;
    if (step == L"..") steps.erase(std::min(steps.rfind(kSeparator), steps.size()));
    if (step.empty() || step == L"." || step == L"..") continue;
    steps += kSeparator + step;
  }
  return steps.empty() ? std::wstring(1, kSeparator) : steps;
}

}  // namespace

void HandleCloser::operator()(void* handle) const { CloseHandle(handle); }

Handle handleOf(void* opened) { return Handle(opened == INVALID_HANDLE_VALUE ? nullptr : opened); }

void LocalFreer::operator()(void* block) const { LocalFree(block); }

std::wstring nativePath(const boost::filesystem::path& path) {
  std::wstring text = path.native();
  std::replace(text.begin(), text.end(), L'/', kSeparator);
  if (!startsWith(text, L"\\\\") && !hasDrive(text)) text = resolved(text);
  if (text.empty() || startsWith(text, kPrefix) || startsWith(text, kDevicePrefix)) return text;
  const std::size_t root = rootEnd(text);
  const std::wstring start =
      hasDrive(text) ? kPrefix + text.substr(0, root) : kNetworkPrefix + text.substr(2, root - 2);
  return start + plainSteps(text, root);
}

std::wstring withoutPrefix(const std::wstring& nativePath) {
  const std::wstring network = kNetworkPrefix;
  if (startsWith(nativePath, kNetworkPrefix)) return L"\\\\" + nativePath.substr(network.size());
  return startsWith(nativePath, kPrefix) ? nativePath.substr(4) : nativePath;
}

boost::filesystem::path callPath(const boost::filesystem::path& path) { return nativePath(path); }

void failNative(const char* what, const boost::filesystem::path& path, unsigned long error) {
  throw boost::filesystem::filesystem_error(
      what, path, boost::system::error_code(static_cast<int>(error), boost::system::system_category()));
}

bool Passing::waitsFor(unsigned long error) {
  const bool passes = error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_ACCESS_DENIED;
  if (!passes || attempt_ == kAttempts) return false;
  Sleep(milliseconds_);
  milliseconds_ *= 2;
  ++attempt_;
  return true;
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

bool setWriteTime(void* handle, std::int64_t nanoseconds) {
  std::uint64_t ticks = 0;
  if (!fileTimeOf(nanoseconds, ticks)) return false;
  const FILETIME time = {static_cast<DWORD>(ticks & 0xFFFFFFFF), static_cast<DWORD>(ticks >> 32)};
  return SetFileTime(handle, nullptr, nullptr, &time) != 0;
}

Kind kindOfReparsePoint(const std::wstring& nativePath, Kind kind) {
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW(nativePath.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return Kind::unknown;  // never followed by mistake
  FindClose(search);
  // Other reparse points (files kept in the cloud, compressed by the system...) are the entry itself.
  const bool marked = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  return marked && IsReparseTagNameSurrogate(found.dwReserved0) ? Kind::symlink : kind;
}

}  // namespace platform
}  // namespace Kelta
