// SPDX-License-Identifier: Apache-2.0
#include <windows.h>
// after windows.h
#include <shellapi.h>

#include "platform/Files.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

namespace {

/// A path that the shell accepts, which knows neither long paths nor their prefix; empty when there is none.
std::wstring shellPath(const boost::filesystem::path& path) {
  const std::wstring full = fullPath(path);
  if (full.size() < MAX_PATH) return full;
  std::wstring brief(full.size() + 8, L'\0');
  const DWORD length = GetShortPathNameW(nativePath(path).c_str(), &brief[0], static_cast<DWORD>(brief.size()));
  if (length == 0 || length >= brief.size()) return std::wstring();
  brief.resize(length);
  if (brief.compare(0, 8, L"\\\\?\\UNC\\") == 0) {
    brief.replace(0, 8, L"\\\\");
  } else if (brief.compare(0, 4, L"\\\\?\\") == 0) {
    brief.erase(0, 4);
  }
  return brief.size() < MAX_PATH ? brief : std::wstring();
}

bool moveToBin(std::wstring file) {
  file.push_back(L'\0');  // the list of files ends with an empty one
  SHFILEOPSTRUCTW operation{};
  operation.wFunc = FO_DELETE;
  operation.pFrom = file.c_str();
  // Without the last flag the shell takes the folder that belongs to a saved web page along with it.
  operation.fFlags = FOF_ALLOWUNDO | FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI | FOF_NO_CONNECTED_ELEMENTS;
  return SHFileOperationW(&operation) == 0 && !operation.fAnyOperationsAborted;
}

bool removeLink(const std::wstring& native) { return DeleteFileW(native.c_str()) || RemoveDirectoryW(native.c_str()); }

}  // namespace

bool recycle(const boost::filesystem::path& path) {
  const std::wstring native = nativePath(path);
  switch (stampOf(path).kind) {
    case Kind::missing:
      return true;
    case Kind::folder:
      return RemoveDirectoryW(native.c_str()) != 0;
    case Kind::symlink:
      return removeLink(native);
    case Kind::file:
      break;
    default:
      return false;
  }
  const std::wstring file = shellPath(path);
  if (file.empty()) return DeleteFileW(native.c_str()) != 0;
  moveToBin(file);
  return stampOf(path).kind == Kind::missing;
}

}  // namespace platform
}  // namespace Kelta
