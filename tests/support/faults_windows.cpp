// SPDX-License-Identifier: Apache-2.0
// Stands in the import table of the test program, for our own code and the static libraries in it.
#include "faults_windows.h"

#include <windows.h>

#include <atomic>
#include <cwchar>
#include <set>
#include <string>

#include "platform/Folders.h"

namespace {

constexpr std::size_t kLongestPath = 259;
constexpr std::size_t kLongestNewFolder = 247;
constexpr DWORD kRecallOnDataAccess = 0x00400000;

std::atomic<bool> strict{false};
std::atomic<int> placeholderOpens{0};
std::wstring placeholder;
std::wstring closedPlace;
std::wstring reparsePoint;
DWORD reparseTag = 0;
std::set<std::wstring> readOnlyFolders;  ///< Wine marks files alone

bool refused(const wchar_t* path, std::size_t longest = kLongestPath) {
  if (!strict || std::wcsncmp(path, L"\\\\?\\", 4) == 0 || std::wcslen(path) <= longest) return false;
  SetLastError(longest == kLongestPath ? ERROR_PATH_NOT_FOUND : ERROR_FILENAME_EXCED_RANGE);
  return true;
}

template <class Function>
Function real(const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name)));
}

DWORD attributesOf(const wchar_t* path) {
  DWORD found = real<decltype(&GetFileAttributesW)>("GetFileAttributesW")(path);
  if (found == INVALID_FILE_ATTRIBUTES) return found;
  if (readOnlyFolders.count(path) > 0) found |= FILE_ATTRIBUTE_READONLY;
  return path == placeholder ? found | kRecallOnDataAccess : found;
}

bool markedReadOnly(const wchar_t* path) {
  const DWORD found = strict ? attributesOf(path) : 0;
  if (found == INVALID_FILE_ATTRIBUTES || (found & FILE_ATTRIBUTE_READONLY) == 0) return false;
  SetLastError(ERROR_ACCESS_DENIED);
  return true;
}

HANDLE WINAPI createFile(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how,
                         DWORD flags, HANDLE like) {
  if (refused(path)) return INVALID_HANDLE_VALUE;
  if (path == placeholder) ++placeholderOpens;
  return real<decltype(&CreateFileW)>("CreateFileW")(path, access, share, security, how, flags, like);
}
DWORD WINAPI getAttributes(LPCWSTR path) { return refused(path) ? INVALID_FILE_ATTRIBUTES : attributesOf(path); }
BOOL WINAPI getAttributesEx(LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID data) {
  const bool known = !refused(path) && real<decltype(&GetFileAttributesExW)>("GetFileAttributesExW")(path, level, data);
  if (known && path == reparsePoint)
    static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data)->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
  return known;
}
BOOL WINAPI setAttributes(LPCWSTR path, DWORD attributes) {
  if (refused(path)) return FALSE;
  readOnlyFolders.erase(path);
  const DWORD found = attributesOf(path);
  const bool isFolder = found != INVALID_FILE_ATTRIBUTES && (found & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (strict && isFolder && (attributes & FILE_ATTRIBUTE_READONLY) != 0) readOnlyFolders.insert(path);
  return real<decltype(&SetFileAttributesW)>("SetFileAttributesW")(path, attributes);
}
BOOL WINAPI createFolder(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
  return !refused(path, kLongestNewFolder) && real<decltype(&CreateDirectoryW)>("CreateDirectoryW")(path, security);
}
BOOL WINAPI removeFolder(LPCWSTR path) {
  return !refused(path) && !markedReadOnly(path) && real<decltype(&RemoveDirectoryW)>("RemoveDirectoryW")(path);
}
BOOL WINAPI deleteFile(LPCWSTR path) {
  return !refused(path) && !markedReadOnly(path) && real<decltype(&DeleteFileW)>("DeleteFileW")(path);
}
BOOL WINAPI moveFile(LPCWSTR from, LPCWSTR to, DWORD flags) {
  if (to == closedPlace) {
    SetLastError(ERROR_SHARING_VIOLATION);
    return FALSE;
  }
  return !refused(from) && !refused(to) && !markedReadOnly(to) &&
         real<decltype(&MoveFileExW)>("MoveFileExW")(from, to, flags);
}
HANDLE WINAPI findFirst(LPCWSTR path, LPWIN32_FIND_DATAW found) {
  if (refused(path)) return INVALID_HANDLE_VALUE;
  const HANDLE search = real<decltype(&FindFirstFileW)>("FindFirstFileW")(path, found);
  if (path == reparsePoint) {
    found->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    found->dwReserved0 = reparseTag;
  }
  return search;
}

}  // namespace

#ifdef _WIN64
#define IMPORT(name, bytes) __asm__("__imp_" #name)
#else
#define IMPORT(name, bytes) __asm__("__imp__" #name "@" #bytes)
#endif
#define REPLACE(name, bytes, with)                               \
  extern decltype(&name) const import##name IMPORT(name, bytes); \
  decltype(&name) const import##name = &with;

extern "C" {
REPLACE(CreateFileW, 28, createFile)
REPLACE(GetFileAttributesW, 4, getAttributes)
REPLACE(GetFileAttributesExW, 12, getAttributesEx)
REPLACE(SetFileAttributesW, 8, setAttributes)
REPLACE(CreateDirectoryW, 8, createFolder)
REPLACE(RemoveDirectoryW, 4, removeFolder)
REPLACE(DeleteFileW, 4, deleteFile)
REPLACE(MoveFileExW, 12, moveFile)
REPLACE(FindFirstFileW, 8, findFirst)
}

namespace Kelta {
namespace test {

StrictSystem::StrictSystem() { strict = true; }
StrictSystem::~StrictSystem() {
  strict = false;
  readOnlyFolders.clear();
}

Placeholder::Placeholder(const boost::filesystem::path& file) {
  placeholder = platform::callPath(file).native();
  placeholderOpens = 0;
}
Placeholder::~Placeholder() { placeholder.clear(); }
int Placeholder::opens() const { return placeholderOpens; }

ClosedPlace::ClosedPlace(const boost::filesystem::path& path) { closedPlace = platform::callPath(path).native(); }
ClosedPlace::~ClosedPlace() { closedPlace.clear(); }

ReparsePoint::ReparsePoint(const boost::filesystem::path& folder, unsigned long tag) {
  reparsePoint = platform::callPath(folder).native();
  reparseTag = tag;
}
ReparsePoint::~ReparsePoint() { reparsePoint.clear(); }

}  // namespace test
}  // namespace Kelta
