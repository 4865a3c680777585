// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace Kelta {

/// Longest file name, in bytes of UTF-8, that every file system can store.
constexpr std::size_t kMaxNameBytes = 255;

/// No encrypted stem is shorter: an IV and one block.
constexpr std::size_t kShortestEncrypted = 43;

/// The encrypted form of a plain file name, without ".kelta": always the same for the same name and key. `key` is an
/// asset's key text. Empty when the name has no exact UTF-8, or when the cipher failed.
std::wstring encryptedStem(const std::wstring& plain, std::string& key);

/// The plain name of an encrypted one. False when `stem` is not what encryptedStem() makes of any name under the key.
bool decryptedStem(const std::wstring& stem, std::string& key, std::wstring& plain);

/// Whether a stem may be an encrypted name, or one with a damaged character. Those that a user is likely to choose,
/// such as digests in hexadecimal, are none.
bool looksEncrypted(const std::wstring& stem);

/// The plain name of the encrypted one that a stem begins with, something having been added to it; returns where that
/// begins, 0 when the stem does not begin so.
std::size_t decryptedStart(const std::wstring& stem, std::string& key, std::wstring& plain);

}  // namespace Kelta
