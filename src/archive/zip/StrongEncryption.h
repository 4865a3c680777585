// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "archive/zip/Bytes.h"
#include "archive/zip/Cipher.h"

namespace Kelta {
namespace zip {

// Strong encryption of one entry, AES-256 under a password.
//
//   decryption header, in front of the data          bytes
//     IV size = 16, IV                               2, 16
//     size of what follows in this header            4
//     format = 3, algorithm, key bits, flags         2 each
//     size of ERD, ERD                               2, n
//     reserved = 0                                   4
//     validation size                                2
//     validation data and its CRC-32, encrypted      a multiple of 16
//
//   derive(SHA-1 digest)  = first 32 bytes of SHA-1(0x36 × 64 ^ digest) SHA-1(0x5C × 64 ^ digest)
//   master key            = derive(SHA-1(password in UTF-8))
//   RD                    = 32 random bytes; ERD = RD, padded, encrypted under the master key and the IV
//   file key              = derive(SHA-1(IV RD))
//   data                  = AES-256-CBC(file key, IV) of: 12 random bytes, their CRC-32, the entry, padding

constexpr std::uint16_t kAlgorithmAes256 = 0x6610;
constexpr std::uint16_t kKeyBits = 256;
constexpr std::uint16_t kPasswordFlag = 0x0001;   ///< a password opens the entry
constexpr std::uint16_t kNoOaepFlag = 0x0100;     ///< version needed is 61 instead of 51
constexpr std::uint16_t kTripleDesFlag = 0x4000;  ///< RD is encrypted with 3DES instead of AES

/// What the central directory and the decryption header both say.
struct StrongMarks {
  std::uint16_t algorithm = 0;
  std::uint16_t keyBits = 0;
  std::uint16_t flags = 0;

  bool operator==(const StrongMarks& other) const {
    return algorithm == other.algorithm && keyBits == other.keyBits && flags == other.flags;
  }
};

/// Throws "unsupported" unless marks are AES-256 under a password, with or without the other two flags.
void checkMarks(const StrongMarks& marks);

struct DecryptionHeader {
  std::array<unsigned char, kBlockSize> iv;
  StrongMarks marks;
  Bytes erd;
  Bytes validation;          ///< as stored, encrypted
  std::uint64_t length = 0;  ///< of the whole header, validation data included
};

/// Key and IV of the data that follows the validation data.
struct DataKey {
  Key key;
  std::array<unsigned char, kBlockSize> iv;
};

/// Reads the header at the front of an entry's `available` bytes of data. Throws "damaged" or "unsupported".
DecryptionHeader readDecryptionHeader(ByteSource& source, std::uint64_t available);

/// False when the password is not the one.
bool unlock(const DecryptionHeader& header, const std::string& password, DataKey& out);

/// Makes the header of a new entry: fresh random data, and the key for everything behind it.
Bytes makeDecryptionHeader(const std::string& password, std::uint16_t flags, DataKey& out);

}  // namespace zip
}  // namespace Kelta
