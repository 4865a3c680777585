// SPDX-License-Identifier: Apache-2.0
#include "platform/Text.h"

#include <windows.h>
// after windows.h
#include <shellapi.h>

#include <cstring>
#include <memory>

#include "platform/Utf8.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

namespace {

bool isWellFormed(const std::wstring& wide) {
  const wchar_t* at = wide.data();
  while (at != wide.data() + wide.size())
    if (takeWide(at, wide.data() + wide.size()) == noCharacter) return false;
  return true;
}

}  // namespace

std::string utf8(const boost::filesystem::path& path) { return utf8(path.native()); }

boost::filesystem::path pathOf(const std::wstring& wide) { return boost::filesystem::path(wide); }

// A lone surrogate could not be written to UTF-8 and read back, so it counts as no exact form.
bool wideOf(const boost::filesystem::path& path, std::wstring& wide) {
  const bool exact = isWellFormed(path.native());
  wide = exact ? path.native() : readableFromUtf8(utf8(path));
  return exact;
}

std::wstring wideOf(const boost::filesystem::path& path) { return path.native(); }

bool wideFromNarrow(const char* narrow, std::wstring& wide) {
  wide.clear();
  const int length = static_cast<int>(std::strlen(narrow));
  if (length == 0) return true;
  const int units = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, narrow, length, nullptr, 0);
  if (units <= 0) return false;
  wide.resize(static_cast<std::size_t>(units));
  return MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, narrow, length, &wide[0], units) == units;
}

// The arguments that the runtime hands over have been through the code page.
bool commandLine(int, char**, std::vector<std::wstring>& args) {
  args.clear();
  int count = 0;
  const std::unique_ptr<wchar_t*, LocalFreer> list(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!list) return false;
  for (int i = 1; i < count; ++i) {
    args.emplace_back(list.get()[i]);
    if (!isWellFormed(args.back())) return false;
  }
  return true;
}

bool environment(const char* name, std::wstring& value) {
  value.clear();
  const std::wstring wideName = readableFromUtf8(name);
  for (DWORD room = 256;;) {
    value.resize(room);
    SetLastError(ERROR_SUCCESS);
    const DWORD length = GetEnvironmentVariableW(wideName.c_str(), &value[0], room);
    const bool failed = length == 0 && GetLastError() != ERROR_SUCCESS;
    if (length < room) value.resize(length);
    if (length < room) return !failed;
    room = length + 1;
  }
}

}  // namespace platform
}  // namespace Kelta
