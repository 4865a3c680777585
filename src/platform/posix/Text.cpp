// SPDX-License-Identifier: Apache-2.0
#include "platform/Text.h"

#include <cstdlib>
#include <cstring>

#include "platform/Utf8.h"

namespace Kelta {
namespace platform {

std::string utf8(const boost::filesystem::path& path) {
  std::wstring checked;
  if (wideFromUtf8(path.native(), checked)) return path.native();
  return utf8(readableFromUtf8(path.native()));
}

boost::filesystem::path pathOf(const std::wstring& wide) { return boost::filesystem::path(utf8(wide)); }

bool wideOf(const boost::filesystem::path& path, std::wstring& wide) {
  if (wideFromUtf8(path.native(), wide)) return true;
  wide = readableFromUtf8(path.native());
  return false;
}

std::wstring wideOf(const boost::filesystem::path& path) { return readableFromUtf8(path.native()); }

bool wideFromNarrow(const char* narrow, std::wstring& wide) { return wideFromUtf8(narrow, wide); }

bool commandLine(int argc, char** argv, std::vector<std::wstring>& args) {
  args.clear();
  for (int i = 1; i < argc; ++i) {
    std::wstring wide;
    if (!wideFromUtf8(argv[i], wide)) return false;
    args.push_back(std::move(wide));
  }
  return true;
}

bool environment(const char* name, std::wstring& value) {
  const char* text = std::getenv(name);
  value = text ? readableFromUtf8(text, std::strlen(text)) : std::wstring();
  return text != nullptr;
}

}  // namespace platform
}  // namespace Kelta
