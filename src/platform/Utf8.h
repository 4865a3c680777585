// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// One character at a time between UTF-8, UTF-16 and UTF-32. The width of a unit decides which of
// the last two it is, so that both can be used on every platform.
namespace Kelta {
namespace platform {

/// Stands for bytes or units that encode no character.
constexpr char32_t noCharacter = 0xFFFFFFFF;
constexpr char32_t replacementCharacter = 0xFFFD;

constexpr bool isSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
constexpr bool isCharacter(char32_t c) { return c <= 0x10FFFF && !isSurrogate(c); }

/// Takes the next character of [at, end), which is not empty, and moves `at` behind it. noCharacter when the bytes
/// there are no valid UTF-8; `at` is then behind those that can be part of no other character.
char32_t takeUtf8(const char*& at, const char* end);

/// Appends a character; what is none becomes U+FFFD.
void putUtf8(std::string& out, char32_t c);

/// Decodes UTF-8 with U+FFFD for whatever is invalid.
std::wstring readableFromUtf8(const std::string& text);
std::wstring readableFromUtf8(const char* text, std::size_t size);

template <class Unit>
char32_t takeWide(const Unit*& at, const Unit* end) {
  const char32_t first = sizeof(Unit) == 2 ? static_cast<char32_t>(*at) & 0xFFFF : static_cast<char32_t>(*at);
  ++at;
  if (sizeof(Unit) != 2 || !isSurrogate(first)) return isCharacter(first) ? first : noCharacter;
  if (first >= 0xDC00 || at == end) return noCharacter;
  const char32_t second = static_cast<char32_t>(*at) & 0xFFFF;
  if (second < 0xDC00 || second > 0xDFFF) return noCharacter;
  ++at;
  return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
}

template <class Unit>
void putWide(std::basic_string<Unit>& out, char32_t c) {
  if (!isCharacter(c)) c = replacementCharacter;
  if (sizeof(Unit) != 2 || c < 0x10000) {
    out.push_back(static_cast<Unit>(c));
    return;
  }
  out.push_back(static_cast<Unit>(0xD800 + ((c - 0x10000) >> 10)));
  out.push_back(static_cast<Unit>(0xDC00 + ((c - 0x10000) & 0x3FF)));
}

}  // namespace platform
}  // namespace Kelta
