// SPDX-License-Identifier: Apache-2.0
#include "platform/Files.h"

#include <windows.h>
// after windows.h
#include <shlobj.h>

#include <array>

#include "platform/Text.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kRecallOnOpen = 0x00040000;
constexpr DWORD kRecallOnDataAccess = 0x00400000;
/// The content is elsewhere; opening the file could fetch it.
constexpr DWORD kNotHere = FILE_ATTRIBUTE_OFFLINE | kRecallOnOpen | kRecallOnDataAccess;

constexpr int kReplaceAttempts = 5;
constexpr DWORD kFirstPauseMilliseconds = 10;

/// What a virus scanner or an indexer that has the file open for a moment leads to.
bool mayPass(DWORD error) {
  return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_ACCESS_DENIED;
}

std::uint64_t joined(DWORD high, DWORD low) { return static_cast<std::uint64_t>(high) << 32 | low; }

bool sameText(const wchar_t* a, std::size_t aLength, const wchar_t* b, std::size_t bLength) {
  if (aLength == 0 || bLength == 0) return aLength == bLength;
  return CompareStringOrdinal(a, static_cast<int>(aLength), b, static_cast<int>(bLength), TRUE) == CSTR_EQUAL;
}

}  // namespace

FileStamp stampOf(const boost::filesystem::path& path) {
  FileStamp stamp;
  const std::wstring native = nativePath(path);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(native.c_str(), GetFileExInfoStandard, &data)) {
    const DWORD error = GetLastError();
    stamp.kind = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? Kind::missing : Kind::unknown;
    return stamp;
  }
  stamp.kind = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? Kind::folder : Kind::file;
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0) stamp.kind = Kind::other;
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && isLink(native)) stamp.kind = Kind::symlink;
  stamp.nanoseconds = nanosecondsOf(joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime));
  stamp.size = joined(data.nFileSizeHigh, data.nFileSizeLow);
  return stamp;
}

bool setLastWriteTime(const boost::filesystem::path& path, std::int64_t nanoseconds) {
  std::uint64_t ticks = 0;
  if (!fileTimeOf(nanoseconds, ticks)) return false;
  const Handle file =
      handleOf(CreateFileW(nativePath(path).c_str(), FILE_WRITE_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                           FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!file) return false;
  const FILETIME time = {static_cast<DWORD>(ticks & 0xFFFFFFFF), static_cast<DWORD>(ticks >> 32)};
  return SetFileTime(file.get(), nullptr, nullptr, &time) != 0;
}

void replaceFile(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  const std::wstring source = nativePath(from);
  const std::wstring target = nativePath(to);
  DWORD pause = kFirstPauseMilliseconds;
  for (int attempt = 1;; ++attempt, pause *= 2) {
    if (MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return;
    const DWORD error = GetLastError();
    if (attempt == kReplaceAttempts || !mayPass(error)) failNative("rename", to, error);
    Sleep(pause);
  }
}

// Renames write through already.
void syncFolder(const boost::filesystem::path&) {}

bool isLocked(const boost::filesystem::path& path) {
  const std::wstring native = nativePath(path);
  const DWORD attributes = GetFileAttributesW(native.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError() == ERROR_SHARING_VIOLATION;
  if ((attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | kNotHere)) != 0) return false;
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && isLink(native)) return false;
  const Handle file = handleOf(CreateFileW(native.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                           FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_OPEN_NO_RECALL, nullptr));
  if (file) return false;
  const DWORD error = GetLastError();
  return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
}

void setHidden(const boost::filesystem::path& path) {
  const std::wstring native = nativePath(path);
  const DWORD attributes = GetFileAttributesW(native.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES) SetFileAttributesW(native.c_str(), attributes | FILE_ATTRIBUTE_HIDDEN);
}

boost::filesystem::path userDataFolder() {
  std::array<wchar_t, MAX_PATH> folder{};
  if (SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder.data()) != S_OK) return {};
  return boost::filesystem::path(folder.data());
}

std::string machineName() {
  DWORD length = 0;
  GetComputerNameExW(ComputerNameDnsHostname, nullptr, &length);
  std::wstring name(length + 1, L'\0');
  length = static_cast<DWORD>(name.size());
  if (!GetComputerNameExW(ComputerNameDnsHostname, &name[0], &length)) return std::string();
  name.resize(length);
  return utf8(name);
}

bool samePath(const std::wstring& a, const std::wstring& b) { return sameText(a.data(), a.size(), b.data(), b.size()); }

bool liesBelow(const std::wstring& path, const std::wstring& folder) {
  if (path.size() < folder.size() || !sameText(path.data(), folder.size(), folder.data(), folder.size())) return false;
  if (path.size() == folder.size() || path[folder.size()] == L'/') return true;
  return !folder.empty() && folder.back() == L'/';  // a volume's root keeps its separator
}

}  // namespace platform
}  // namespace Kelta
