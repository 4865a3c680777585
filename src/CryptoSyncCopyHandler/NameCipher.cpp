// SPDX-License-Identifier: Apache-2.0
// An encrypted name, byte for byte:
//
//     name key   SHA-256("name" + the asset key's 32 bytes)
//     IV         the first 16 bytes of HMAC-SHA-256(name key, name in UTF-8)
//     buffer     IV + AES-256-CBC(asset key, IV, name in UTF-8), padded as in RFC 5652
//     stem       base64url of the buffer, without "="
//
// Whoever decrypts one computes the IV anew: what was damaged, or made under another key, does not match.
#include "CryptoSyncCopyHandler/NameCipher.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <array>
#include <cstdlib>

#include "CryptoHelper/CryptoHelper.h"
#include "CryptoHelper/KeyText.h"
#include "platform/Text.h"

namespace Kelta {
namespace {

constexpr std::size_t kNameBlockBytes = 16;
const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
const char kPurpose[] = "name";

using Iv = std::array<unsigned char, kNameBlockBytes>;

bool isLetterOfBase64(wchar_t character) {
  return character > 0 && character < 0x80 && kAlphabet.find(static_cast<char>(character)) != std::string::npos;
}

std::wstring base64Of(const std::string& bytes) {
  std::wstring text;
  unsigned bits = 0;
  int held = 0;
  for (const char byte : bytes) {
    bits = (bits << 8) | static_cast<unsigned char>(byte);
    for (held += 8; held >= 6; held -= 6) text += static_cast<wchar_t>(kAlphabet[(bits >> (held - 6)) & 63]);
  }
  if (held > 0) text += static_cast<wchar_t>(kAlphabet[(bits << (6 - held)) & 63]);
  return text;
}

// Only what base64Of() gives: spare bits must be zero.
bool bytesOfBase64(const std::wstring& text, std::string& bytes) {
  bytes.clear();
  unsigned bits = 0;
  int held = 0;
  for (const wchar_t character : text) {
    if (!isLetterOfBase64(character)) return false;
    bits = (bits << 6) | static_cast<unsigned>(kAlphabet.find(static_cast<char>(character)));
    held += 6;
    if (held < 8) continue;
    held -= 8;
    bytes += static_cast<char>((bits >> held) & 255);
  }
  return held < 6 && (bits & ((1U << held) - 1)) == 0;
}

bool ivOf(const std::string& name, std::string& key, Iv& iv) {
  std::array<unsigned char, sizeof kPurpose - 1 + crypto::kKeyBytes> seed{};
  std::copy_n(kPurpose, sizeof kPurpose - 1, seed.begin());
  unsigned char* const keyBytes = seed.data() + sizeof kPurpose - 1;
  std::array<unsigned char, SHA256_DIGEST_LENGTH> nameKey{};
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  const bool done = crypto::keyFromText(key, crypto::keyFormOf(key), keyBytes) &&
                    SHA256(seed.data(), seed.size(), nameKey.data()) != nullptr &&
                    HMAC(EVP_sha256(), nameKey.data(), static_cast<int>(nameKey.size()),
                         reinterpret_cast<const unsigned char*>(name.data()), name.size(), digest.data(), nullptr);
  OPENSSL_cleanse(seed.data(), seed.size());
  OPENSSL_cleanse(nameKey.data(), nameKey.size());
  std::copy_n(digest.begin(), kNameBlockBytes, iv.begin());
  return done;
}

// Whether as many characters can hold an encrypted buffer: an IV and at least one block, in whole blocks.
bool fitsBuffer(std::size_t characters) {
  const std::size_t bytes = characters * 6 / 8;
  return bytes >= 2 * kNameBlockBytes && bytes % kNameBlockBytes == 0 && (bytes * 8 + 5) / 6 == characters;
}

bool isHex(const std::wstring& text) {
  return text.find_first_not_of(L"0123456789abcdef") == std::wstring::npos ||
         text.find_first_not_of(L"0123456789ABCDEF") == std::wstring::npos;
}

}  // namespace

std::wstring encryptedStem(const std::wstring& plain, std::string& key) {
  std::string name = platform::utf8(plain);
  std::wstring again;
  Iv iv{};
  if (name.empty() || !platform::wideFromUtf8(name, again) || again != plain || !ivOf(name, key, iv)) return {};
  std::string buffer;
  const std::string start(iv.begin(), iv.end());
  return CryptoHelper().encrypted(name, key, start, buffer) ? base64Of(buffer) : std::wstring();
}

bool decryptedStem(const std::wstring& stem, std::string& key, std::wstring& plain) {
  plain.clear();
  std::string buffer;
  std::string name;
  if (!fitsBuffer(stem.size()) || !bytesOfBase64(stem, buffer)) return false;
  if (!CryptoHelper().decrypted(buffer, key, name, CryptoHelper::Trace::nothing) || name.empty()) return false;
  Iv iv{};
  if (!ivOf(name, key, iv) || CRYPTO_memcmp(iv.data(), buffer.data(), iv.size()) != 0) return false;
  const bool isName = name != "." && name != ".." && name.find_first_of(std::string("/\\\0", 3)) == std::string::npos;
  return isName && platform::wideFromUtf8(name, plain);
}

bool looksEncrypted(const std::wstring& stem) {
  if (!fitsBuffer(stem.size()) || isHex(stem)) return false;
  std::size_t others = 0;
  for (const wchar_t character : stem) {
    if (isLetterOfBase64(character)) continue;
    // The dot before an extension, or a blank, is no damage.
    if (character == L'.' || character == L' ' || ++others > 1) return false;
  }
  return true;
}

std::size_t decryptedStart(const std::wstring& stem, std::string& key, std::wstring& plain) {
  std::size_t length = 0;
  while (length + 1 < stem.size() && isLetterOfBase64(stem[length])) ++length;
  for (; length >= 2 * kNameBlockBytes; --length) {
    if (fitsBuffer(length) && decryptedStem(stem.substr(0, length), key, plain)) return length;
  }
  return 0;
}

}  // namespace Kelta
