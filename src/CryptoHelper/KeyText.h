// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace Kelta {
namespace crypto {

constexpr std::size_t kKeyBytes = 32;

enum class KeyForm { hex, base64, passPhrase };

/// What a key text is: 64 hex digits; 43 or 44 characters of base64, "=" only as its padding; else a
/// pass phrase.
KeyForm keyFormOf(const std::string& text);

/// The 32 bytes that the text stands for. False when the digest of a pass phrase failed.
bool keyFromText(const std::string& text, KeyForm form, unsigned char* key);

}  // namespace crypto
}  // namespace Kelta
