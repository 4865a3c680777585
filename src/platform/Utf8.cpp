// SPDX-License-Identifier: Apache-2.0
#include "platform/Utf8.h"

#include "platform/Text.h"

namespace Kelta {
namespace platform {

namespace {

/// What a lead byte promises: the number of bytes that follow, its own bits, and the range of the
/// first byte that follows. That range shuts out overlong forms, surrogates and values beyond U+10FFFF.
struct Lead {
  int following;
  char32_t bits;
  unsigned lowest;
  unsigned highest;
};

bool readLead(unsigned byte, Lead& lead) {
  if (byte >= 0xC2 && byte <= 0xDF) {
    lead = {1, byte & 0x1Fu, 0x80, 0xBF};
  } else if (byte >= 0xE0 && byte <= 0xEF) {
    lead = {2, byte & 0x0Fu, byte == 0xE0 ? 0xA0u : 0x80u, byte == 0xED ? 0x9Fu : 0xBFu};
  } else if (byte >= 0xF0 && byte <= 0xF4) {
    lead = {3, byte & 0x07u, byte == 0xF0 ? 0x90u : 0x80u, byte == 0xF4 ? 0x8Fu : 0xBFu};
  } else {
    return false;
  }
  return true;
}

}  // namespace

char32_t takeUtf8(const char*& at, const char* end) {
  const unsigned first = static_cast<unsigned char>(*at++);
  if (first < 0x80) return first;
  Lead lead{};
  if (!readLead(first, lead)) return noCharacter;
  char32_t c = lead.bits;
  for (int i = 0; i < lead.following; ++i) {
    if (at == end) return noCharacter;
    const unsigned byte = static_cast<unsigned char>(*at);
    if (byte < lead.lowest || byte > lead.highest) return noCharacter;
    lead.lowest = 0x80;
    lead.highest = 0xBF;
    c = (c << 6) | (byte & 0x3F);
    ++at;
  }
  return c;
}

void putUtf8(std::string& out, char32_t c) {
  if (!isCharacter(c)) c = replacementCharacter;
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(static_cast<unsigned char>(byte))); };
  if (c < 0x80) {
    put(c);
    return;
  }
  if (c < 0x800) {
    put(0xC0 | (c >> 6));
  } else {
    if (c < 0x10000) {
      put(0xE0 | (c >> 12));
    } else {
      put(0xF0 | (c >> 18));
      put(0x80 | ((c >> 12) & 0x3F));
    }
    put(0x80 | ((c >> 6) & 0x3F));
  }
  put(0x80 | (c & 0x3F));
}

std::wstring readableFromUtf8(const std::string& text) { return readableFromUtf8(text.data(), text.size()); }

std::wstring readableFromUtf8(const char* text, std::size_t size) {
  std::wstring wide;
  wide.reserve(size);
  const char* at = text;
  const char* const end = at + size;
  while (at != end) putWide(wide, takeUtf8(at, end));
  return wide;
}

std::string utf8(const std::wstring& wide) {
  std::string text;
  text.reserve(wide.size() * (sizeof(wchar_t) == 2 ? 3 : 4));  // secrets pass here: growing would leave copies behind
  const wchar_t* at = wide.data();
  const wchar_t* const end = at + wide.size();
  while (at != end) putUtf8(text, takeWide(at, end));
  return text;
}

bool wideFromUtf8(const std::string& text, std::wstring& wide) {
  wide.clear();
  wide.reserve(text.size());
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    const char32_t c = takeUtf8(at, end);
    if (c == noCharacter) {
      wide.clear();
      return false;
    }
    putWide(wide, c);
  }
  return true;
}

}  // namespace platform
}  // namespace Kelta
