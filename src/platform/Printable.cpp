// SPDX-License-Identifier: Apache-2.0
#include "platform/Printable.h"

#include <algorithm>
#include <cstdint>

#include "platform/Text.h"
#include "platform/Utf8.h"

namespace Kelta {
namespace platform {
namespace {

bool mayBeShown(std::uint32_t character) {
  const bool control = character < 0x20 || (character >= 0x7F && character < 0xA0);
  const bool lineBreak = character == 0x2028 || character == 0x2029;
  const bool direction = (character >= 0x200E && character <= 0x200F) || (character >= 0x202A && character <= 0x202E) ||
                         (character >= 0x2066 && character <= 0x2069);
  return !control && !lineBreak && !direction;
}

std::wstring escaped(std::uint32_t character) {
  if (character == L'\n') return L"\\n";
  if (character == L'\r') return L"\\r";
  if (character == L'\t') return L"\\t";
  std::wstring digits;
  for (std::uint32_t rest = character; rest != 0 || digits.empty(); rest /= 16) {
    digits.insert(digits.begin(), L"0123456789abcdef"[rest % 16]);
  }
  return L"\\u{" + digits + L"}";
}

bool isPlain(char byte) { return byte >= 0x20 && byte < 0x7F; }

}  // namespace

std::wstring printable(const std::wstring& text) {
  std::wstring shown;
  for (const wchar_t character : text) {
    const auto value = static_cast<std::uint32_t>(character);
    if (mayBeShown(value)) {
      shown.push_back(character);
    } else {
      shown += escaped(value);
    }
  }
  return shown;
}

std::string printable(const std::string& text) {
  if (std::all_of(text.begin(), text.end(), isPlain)) return text;
  return utf8(printable(readableFromUtf8(text)));
}

}  // namespace platform
}  // namespace Kelta
