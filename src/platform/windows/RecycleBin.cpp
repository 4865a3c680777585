// SPDX-License-Identifier: Apache-2.0
#include <windows.h>
// after windows.h
#include <shellapi.h>

#include <algorithm>
#include <boost/filesystem/path.hpp>

#include "platform/Files.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kLongestShellPath = MAX_PATH - 1;
constexpr DWORD kReadOnly = FILE_ATTRIBUTE_READONLY;

/// Whether the shell, which knows neither long paths nor their prefix, takes the path for what it is.
bool shellTakes(const fs::path& path) {
  const fs::path plain = withoutPrefix(nativePath(path));
  const fs::path steps = plain.relative_path();
  return plain.native().size() <= kLongestShellPath &&
         std::all_of(steps.begin(), steps.end(), [](const fs::path& step) { return canStandAsName(step.native()); });
}

/// The same file under a path that the shell takes: with short names, where the volume has them.
fs::path briefPath(const fs::path& path) {
  const std::wstring native = nativePath(path);
  std::wstring brief(native.size() + MAX_PATH, L'\0');
  const DWORD length = GetShortPathNameW(native.c_str(), &brief[0], static_cast<DWORD>(brief.size()));
  if (length == 0 || length >= brief.size()) return path;
  brief.resize(length);
  return withoutPrefix(brief);
}

/// The path with so much of the name's stem cut off that the shell takes it.
fs::path shortened(const fs::path& path) {
  const std::size_t length = withoutPrefix(nativePath(path)).size();
  const std::wstring stem = path.stem().native();
  const std::size_t excess = length > kLongestShellPath ? length - kLongestShellPath : 0;
  if (stem.size() <= excess) return path;
  return path.parent_path() / (stem.substr(0, stem.size() - excess) + path.extension().native());
}

bool moveToBin(const fs::path& path, bool* canceled) {
  std::wstring files = withoutPrefix(nativePath(path));
  files.push_back(L'\0');  // the list of files ends with an empty one
  SHFILEOPSTRUCTW operation{};
  operation.wFunc = FO_DELETE;
  operation.pFrom = files.c_str();
  // Without the last flag the shell takes the folder that belongs to a saved web page along with it.
  operation.fFlags = FOF_ALLOWUNDO | FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI | FOF_NO_CONNECTED_ELEMENTS;
  SHFileOperationW(&operation);  // whether the file is gone tells more than the result
  if (canceled) *canceled = operation.fAnyOperationsAborted != 0;
  return stampOf(path).kind == Kind::missing;
}

/// For a file at the very limit of what is synchronised: it goes under a shorter name, or stays under its own.
bool moveShortened(const fs::path& path, bool* canceled) {
  const fs::path brief = shortened(path);
  if (!shellTakes(brief) || !MoveFileExW(nativePath(path).c_str(), nativePath(brief).c_str(), 0)) return false;
  if (moveToBin(brief, canceled)) return true;
  MoveFileExW(nativePath(brief).c_str(), nativePath(path).c_str(), 0);
  return false;
}

bool recycleFile(const fs::path& path, bool* canceled) {
  for (const fs::path& form : {path, briefPath(path)})
    if (shellTakes(form)) return moveToBin(form, canceled);
  return moveShortened(path, canceled);
}

/// Removes a folder, when it is empty. Explorer marks those with a look of their own read-only.
bool removeFolder(const std::wstring& native) {
  if (RemoveDirectoryW(native.c_str())) return true;
  const DWORD attributes = GetFileAttributesW(native.c_str());
  const bool marked = attributes != INVALID_FILE_ATTRIBUTES && (attributes & kReadOnly) != 0;
  if (!marked || !SetFileAttributesW(native.c_str(), attributes & ~kReadOnly)) return false;
  if (RemoveDirectoryW(native.c_str())) return true;
  SetFileAttributesW(native.c_str(), attributes);
  return false;
}

/// False when the setting is not there.
bool readSetting(HKEY root, const std::wstring& key, const wchar_t* name, DWORD& value) {
  DWORD bytes = sizeof(value);
  return RegGetValueW(root, key.c_str(), name, RRF_RT_REG_DWORD, nullptr, &value, &bytes) == ERROR_SUCCESS;
}

bool isOn(HKEY root, const std::wstring& key, const wchar_t* name) {
  DWORD value = 0;
  return readSetting(root, key, name, value) && value != 0;
}

/// Whether the shell would delete a file for good: on a network drive or a removable one, where the user or the
/// administrator wants no bin, and when it is larger than the bin may get.
bool lacksBin(const std::wstring& volume, const fs::path& file) {
  const UINT type = GetDriveTypeW(volume.c_str());
  if (type == DRIVE_REMOTE || type == DRIVE_REMOVABLE) return true;
  const std::wstring settings = L"Software\\Microsoft\\Windows\\CurrentVersion\\";
  for (const HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
    if (isOn(root, settings + L"Policies\\Explorer", L"NoRecycleFiles")) return true;
  wchar_t id[64] = L"";  // \\?\Volume{GUID}\.
  if (!GetVolumeNameForVolumeMountPointW(volume.c_str(), id, 64)) return false;
  const std::wstring text = id;
  const std::size_t begin = std::min(text.find(L'{'), text.size());
  const std::wstring key =
      settings + L"Explorer\\BitBucket\\Volume\\" + text.substr(begin, text.find(L'}') + 1 - begin);
  DWORD megabytes = 0;
  const bool limited = readSetting(HKEY_CURRENT_USER, key, L"MaxCapacity", megabytes);
  return isOn(HKEY_CURRENT_USER, key, L"NukeOnDelete") ||
         (limited && stampOf(file).size > std::uint64_t(megabytes) * 1024 * 1024);
}

}  // namespace

Recycled moveToRecycleBin(const fs::path& file, const FileStamp* judged, bool* canceled) {
  if (canceled) *canceled = false;
  const std::wstring native = nativePath(file);
  std::wstring volume(native.size() + MAX_PATH, L'\0');
  const bool known = GetVolumePathNameW(native.c_str(), &volume[0], static_cast<DWORD>(volume.size())) != 0;
  if (known && lacksBin(withoutPrefix(volume.c_str()), file)) return Recycled::noBin;
  if (judged && !stampOf(file).sameContent(*judged)) return Recycled::no;
  return recycle(file, canceled) ? Recycled::yes : Recycled::no;
}

bool recycle(const fs::path& path, bool* canceled) {
  const std::wstring native = nativePath(path);
  if (canceled) *canceled = false;
  switch (stampOf(path).kind) {
    case Kind::missing:
      return true;
    case Kind::folder:
      return removeFolder(native);
    case Kind::symlink:
      return DeleteFileW(native.c_str()) || RemoveDirectoryW(native.c_str());
    case Kind::file:
      return recycleFile(path, canceled);
    default:
      return false;
  }
}

bool isRecycleBin(const fs::path& folder) {
  return CompareStringOrdinal(folder.filename().c_str(), -1, L"$Recycle.Bin", -1, TRUE) == CSTR_EQUAL;
}

}  // namespace platform
}  // namespace Kelta
