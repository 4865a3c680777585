// SPDX-License-Identifier: Apache-2.0
#include <windows.h>

#include <algorithm>
#include <array>

#include "platform/Folders.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

namespace {

constexpr wchar_t kFirstPrintable = 0x20;

bool sameText(const wchar_t* a, std::size_t aLength, const wchar_t* b, std::size_t bLength) {
  if (aLength == 0 || bLength == 0) return aLength == bLength;
  return CompareStringOrdinal(a, static_cast<int>(aLength), b, static_cast<int>(bLength), TRUE) == CSTR_EQUAL;
}

/// "COM1" to "LPT9"; the digit may be one of the three superscript ones of Latin-1.
bool isPort(const std::wstring& base) {
  if (base.size() != 4) return false;
  const std::wstring kind = base.substr(0, 3);
  return (samePath(kind, L"COM") || samePath(kind, L"LPT")) &&
         std::wstring(L"123456789\u00B9\u00B2\u00B3").find(base[3]) != std::wstring::npos;
}

/// Devices have their names in every folder, with any extension.
bool isDevice(const std::wstring& name) {
  std::wstring base = name.substr(0, name.find(L'.'));
  base.erase(base.find_last_not_of(L' ') + 1);
  static constexpr std::array<const wchar_t*, 6> devices{L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
  return isPort(base) ||
         std::any_of(devices.begin(), devices.end(), [&](const wchar_t* device) { return samePath(base, device); });
}

}  // namespace

bool canStandAsName(const std::wstring& name) {
  if (name.empty() || name.back() == L'.' || name.back() == L' ') return false;
  if (name.find_first_of(L"<>:\"/\\|?*") != std::wstring::npos) return false;
  return std::none_of(name.begin(), name.end(), [](wchar_t c) { return c < kFirstPrintable; }) && !isDevice(name);
}

// A search for the name finds the entry with the one it is stored under; in a folder where case matters, several.
bool hasOtherName(const boost::filesystem::path& path) {
  const std::wstring name = path.filename().native();
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW(nativePath(path).c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  bool same = name == found.cFileName;
  while (!same && FindNextFileW(search, &found)) same = name == found.cFileName;
  FindClose(search);
  return !same;
}

std::size_t rootLength(const std::wstring& path) {
  if (path.size() > 2 && path[1] == L':' && path[2] == L'/') return 3;
  if (path.compare(0, 2, L"//") != 0) return !path.empty() && path[0] == L'/' ? 1 : 0;
  const std::size_t server = path.find(L'/', 2);
  return server == std::wstring::npos ? path.size() : std::min(path.find(L'/', server + 1), path.size());
}

bool samePath(const std::wstring& a, const std::wstring& b) { return sameText(a.data(), a.size(), b.data(), b.size()); }

bool liesBelow(const std::wstring& path, const std::wstring& folder) {
  if (path.size() < folder.size() || !sameText(path.data(), folder.size(), folder.data(), folder.size())) return false;
  if (path.size() == folder.size() || path[folder.size()] == L'/') return true;
  return !folder.empty() && folder.back() == L'/';  // a volume's root keeps its separator
}

}  // namespace platform
}  // namespace Kelta
