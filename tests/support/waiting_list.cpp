// SPDX-License-Identifier: Apache-2.0
// Put before the library by the tests of the command: what waits is what the file WAITING_LIST says, and the system has
// no watches left.
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <string>

#include "kelsyncpair/kelsyncpair.h"

extern "C" __attribute__((visibility("default"))) int kelsync_fw_incomplete(kelsync_watcher*) { return 1; }

extern "C" __attribute__((visibility("default"))) uint32_t kelsync_get_waiting_JSON(kelsync_pair*, wchar_t** out) {
  std::ifstream file(std::getenv("WAITING_LIST"));
  const std::string ascii{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::wstring text(ascii.begin(), ascii.end());
  *out = static_cast<wchar_t*>(std::calloc(text.size() + 1, sizeof(wchar_t)));
  std::wmemcpy(*out, text.c_str(), text.size());
  return static_cast<uint32_t>(text.size());
}
