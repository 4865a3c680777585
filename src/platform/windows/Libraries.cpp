// SPDX-License-Identifier: Apache-2.0
#include "platform/Libraries.h"

#include <windows.h>

namespace Kelta {
namespace platform {

namespace {

constexpr DWORD kDefaultFolders = 0x1000;  // the program's own and the system's

}  // namespace

// The second call does more and is missing where Windows 7 was never updated.
void searchLibrariesSafely() {
  SetDllDirectoryW(L"");
  using SetFolders = BOOL(WINAPI*)(DWORD);
  const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  const FARPROC found = kernel ? GetProcAddress(kernel, "SetDefaultDllDirectories") : nullptr;
  if (found) reinterpret_cast<SetFolders>(reinterpret_cast<void*>(found))(kDefaultFolders);
}

}  // namespace platform
}  // namespace Kelta
