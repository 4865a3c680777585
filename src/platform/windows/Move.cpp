// SPDX-License-Identifier: Apache-2.0
#include <windows.h>

#include "platform/Files.h"
#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

bool moveFile(const boost::filesystem::path& from, const boost::filesystem::path& to) {
  if (MoveFileExW(nativePath(from).c_str(), nativePath(to).c_str(), MOVEFILE_WRITE_THROUGH)) return true;
  const DWORD error = GetLastError();
  if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) return false;
  failNative("rename", from, error);
}

}  // namespace platform
}  // namespace Kelta
