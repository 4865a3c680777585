// SPDX-License-Identifier: Apache-2.0
#include "base/JsonText.h"

#include <algorithm>
#include <cstdint>

namespace Kelta {
namespace {

std::wstring escapeOf(wchar_t character) {
  switch (character) {
    case L'"':
      return L"\\\"";
    case L'\\':
      return L"\\\\";
    case L'\b':
      return L"\\b";
    case L'\f':
      return L"\\f";
    case L'\n':
      return L"\\n";
    case L'\r':
      return L"\\r";
    case L'\t':
      return L"\\t";
    default:
      break;
  }
  static const wchar_t kDigits[] = L"0123456789abcdef";
  const auto value = static_cast<unsigned>(character);
  return std::wstring(L"\\u00") + kDigits[(value >> 4) & 15] + kDigits[value & 15];
}

bool needsEscape(wchar_t character) {
  return character == L'"' || character == L'\\' || static_cast<std::uint32_t>(character) < 0x20;
}

// The length of the escape sequence at `start`, 0 when it is none.
std::size_t escapeLength(const std::wstring& text, std::size_t start) {
  if (start + 1 >= text.size()) return 0;
  if (std::wstring(L"\"\\/bfnrt").find(text[start + 1]) != std::wstring::npos) return 2;
  if (text[start + 1] != L'u' || start + 6 > text.size()) return 0;
  const bool digits = text.substr(start + 2, 4).find_first_not_of(L"0123456789abcdefABCDEF") == std::wstring::npos;
  return digits ? 6 : 0;
}

}  // namespace

std::wstring jsonEscaped(const std::wstring& text) {
  std::wstring escaped;
  escaped.reserve(text.size());
  for (const wchar_t character : text) {
    if (needsEscape(character)) {
      escaped += escapeOf(character);
    } else {
      escaped += character;
    }
  }
  return escaped;
}

std::wstring jsonUnescaped(const std::wstring& text) {
  static const std::wstring kLetters = L"\"\\/bfnrt";
  static const std::wstring kMeant = L"\"\\/\b\f\n\r\t";
  std::wstring plain;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = text[at] == L'\\' ? escapeLength(text, at) : 0;
    if (length == 0) plain += text[at];
    if (length == 2) plain += kMeant[kLetters.find(text[at + 1])];
    if (length == 6) plain += static_cast<wchar_t>(std::stoul(text.substr(at + 2, 4), nullptr, 16));
    at += std::max<std::size_t>(length, 1);
  }
  return plain;
}

bool isJsonStringBody(const std::wstring& text) {
  for (std::size_t at = 0; at < text.size();) {
    std::size_t step = 1;
    if (text[at] == L'\\') {
      step = escapeLength(text, at);
    } else if (needsEscape(text[at])) {
      step = 0;
    }
    if (step == 0) return false;
    at += step;
  }
  return true;
}

}  // namespace Kelta
