// SPDX-License-Identifier: Apache-2.0
#include "CryptoHelper/KeyText.h"

#include <openssl/evp.h>

#include <cstring>

namespace Kelta {
namespace crypto {

namespace {

const char kHexDigits[] = "0123456789abcdefABCDEF";
const char kBase64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kHexLength = 2 * kKeyBytes;
constexpr std::size_t kBase64Length = 44;
constexpr std::size_t kLongestPadding = 2;

unsigned hexValue(char digit) {
  if (digit >= 'a') return static_cast<unsigned>(digit - 'a') + 10;
  if (digit >= 'A') return static_cast<unsigned>(digit - 'A') + 10;
  return static_cast<unsigned>(digit - '0');
}

unsigned base64Value(char digit) {
  if (digit == '+') return 62;
  if (digit == '/') return 63;
  if (digit <= '9') return static_cast<unsigned>(digit - '0') + 52;
  if (digit <= 'Z') return static_cast<unsigned>(digit - 'A');
  return static_cast<unsigned>(digit - 'a') + 26;
}

bool isBase64(const std::string& text) {
  if (text.size() != kBase64Length && text.size() != kBase64Length - 1) return false;
  const std::size_t end = text.find_first_not_of(kBase64Digits);
  if (end == std::string::npos) return true;
  return text.size() - end <= kLongestPadding && text.find_first_not_of('=', end) == std::string::npos;
}

void decodeHex(const std::string& text, unsigned char* key) {
  for (std::size_t i = 0; i < kKeyBytes; ++i)
    key[i] = static_cast<unsigned char>(hexValue(text[2 * i]) << 4 | hexValue(text[2 * i + 1]));
}

/// 44 digits without padding make 33 bytes: the last one has no place in a key.
void decodeBase64(const std::string& text, unsigned char* key) {
  unsigned bits = 0;
  unsigned held = 0;
  std::size_t count = 0;
  for (const char digit : text) {
    if (digit == '=' || count == kKeyBytes) return;
    bits = (bits << 6 | base64Value(digit)) & 0xFFFF;
    held += 6;
    if (held < 8) continue;
    held -= 8;
    key[count++] = static_cast<unsigned char>(bits >> held);
  }
}

}  // namespace

KeyForm keyFormOf(const std::string& text) {
  if (text.size() == kHexLength && text.find_first_not_of(kHexDigits) == std::string::npos) return KeyForm::hex;
  return isBase64(text) ? KeyForm::base64 : KeyForm::passPhrase;
}

bool keyFromText(const std::string& text, KeyForm form, unsigned char* key) {
  std::memset(key, 0, kKeyBytes);
  if (form == KeyForm::hex) decodeHex(text, key);
  if (form == KeyForm::base64) decodeBase64(text, key);
  if (form != KeyForm::passPhrase) return true;
  return EVP_Digest(text.c_str(), std::strlen(text.c_str()), key, nullptr, EVP_sha256(), nullptr) == 1;
}

}  // namespace crypto
}  // namespace Kelta
