// SPDX-License-Identifier: Apache-2.0
#include "platform/Files.h"

#include <windows.h>
// after windows.h
#include <shlobj.h>

#include <array>

#include "platform/Folders.h"
#include "platform/Text.h"
#include "platform/windows/FileImpl.h"

namespace Kelta {
namespace platform {

namespace {

constexpr int kDiskQuotaExceeded = 1295;  // not in every SDK

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kRecallOnOpen = 0x00040000;
constexpr DWORD kRecallOnDataAccess = 0x00400000;
/// The content is elsewhere; opening the file could fetch it.
constexpr DWORD kNotHere = FILE_ATTRIBUTE_OFFLINE | kRecallOnOpen | kRecallOnDataAccess;

std::uint64_t joined(DWORD high, DWORD low) { return static_cast<std::uint64_t>(high) << 32 | low; }

}  // namespace

FileStamp stampOf(const boost::filesystem::path& path) {
  FileStamp stamp;
  const std::wstring native = nativePath(path);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(native.c_str(), GetFileExInfoStandard, &data)) {
    const DWORD error = GetLastError();
    const bool missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_DIRECTORY;
    stamp.kind = missing ? Kind::missing : Kind::unknown;
    return stamp;
  }
  stamp.kind = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? Kind::folder : Kind::file;
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0) stamp.kind = Kind::other;
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) stamp.kind = kindOfReparsePoint(native, stamp.kind);
  stamp.nanoseconds = nanosecondsOf(joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime));
  stamp.size = joined(data.nFileSizeHigh, data.nFileSizeLow);
  return stamp;
}

bool lookAtHandle(void* handle, FileStamp& stamp, EntryId& id) {
  BY_HANDLE_FILE_INFORMATION data{};
  if (!GetFileInformationByHandle(handle, &data)) return false;
  stamp.kind = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? Kind::folder : Kind::file;
  stamp.nanoseconds = nanosecondsOf(joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime));
  stamp.size = joined(data.nFileSizeHigh, data.nFileSizeLow);
  id.volume = data.dwVolumeSerialNumber;
  id.number = joined(data.nFileIndexHigh, data.nFileIndexLow);
  return true;
}

Handle openToLook(const std::wstring& nativePath) {
  return handleOf(CreateFileW(nativePath.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

std::string identityOf(const boost::filesystem::path& folder) {
  const Handle handle = handleOf(CreateFileW(nativePath(folder).c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION data{};
  if (!handle || !GetFileInformationByHandle(handle.get(), &data)) return std::string();
  // The index is that of no other folder, then or later.
  const std::string number = std::to_string(joined(data.nFileIndexHigh, data.nFileIndexLow));
  const std::string volume = std::to_string(data.dwVolumeSerialNumber);
  return volume + ":" + number + ":" + volume + "." + number;
}

bool setLastWriteTime(const boost::filesystem::path& path, std::int64_t nanoseconds) {
  const Handle file =
      handleOf(CreateFileW(nativePath(path).c_str(), FILE_WRITE_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                           FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  return file && setWriteTime(file.get(), nanoseconds);
}

// Renames write through already.
void syncFolder(const boost::filesystem::path&) {}

// Whoever writes, or lets nobody read, makes this open fail; mere readers (indexers, previews, backups) do not. While
// it lasts others may read, rename and delete, and only an open for writing fails: the least that still tells writers
// from readers, since an open without any right to the content passes whatever others do. A file whose content is kept
// elsewhere is not opened, which could fetch it.
bool isLocked(const boost::filesystem::path& path) {
  const std::wstring native = nativePath(path);
  const DWORD attributes = GetFileAttributesW(native.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError() == ERROR_SHARING_VIOLATION;
  if ((attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | kNotHere)) != 0) return false;
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && kindOfReparsePoint(native, Kind::file) != Kind::file)
    return false;
  const Handle file =
      handleOf(CreateFileW(native.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                           FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_OPEN_NO_RECALL, nullptr));
  if (file) return false;
  const DWORD error = GetLastError();
  return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
}

bool mayPassSoon(const boost::system::error_code& error) {
  if (error.category() != boost::system::system_category()) return error != boost::system::errc::permission_denied;
  switch (error.value()) {
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case kDiskQuotaExceeded:
    case ERROR_FILENAME_EXCED_RANGE:
      return false;
    default:
      return true;
  }
}

bool isOpenForWriting(const boost::filesystem::path& path) { return isLocked(path); }

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

}  // namespace platform
}  // namespace Kelta
