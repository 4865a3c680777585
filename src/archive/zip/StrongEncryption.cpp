// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/StrongEncryption.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <zlib.h>

#include <algorithm>

namespace Kelta {
namespace zip {

namespace {

constexpr std::size_t kDigestSize = 20;
constexpr std::size_t kRandomSize = 32;
constexpr std::size_t kValidationSize = 12;  ///< without its CRC
constexpr std::size_t kCrcSize = 4;
constexpr std::size_t kLargestField = 1024;  ///< of ERD and of the validation data
constexpr std::uint16_t kHeaderFormat = 3;

using Digest = Secret<kDigestSize>;
using Direction = CbcCipher::Direction;
using Padding = CbcCipher::Padding;

Digest sha1(const void* data, std::size_t size) {
  Digest digest;
  requireCrypto(EVP_Digest(data, size, digest.data(), nullptr, EVP_sha1(), nullptr) == 1);
  return digest;
}

Key derive(const Digest& digest) {
  Secret<64> inner;
  Secret<64> outer;
  inner.fill(0x36);
  outer.fill(0x5C);
  for (std::size_t i = 0; i < kDigestSize; ++i) {
    inner[i] ^= digest[i];
    outer[i] ^= digest[i];
  }
  const Digest first = sha1(inner.data(), inner.size());
  const Digest second = sha1(outer.data(), outer.size());
  Key key;
  std::copy(first.begin(), first.end(), key.begin());
  std::copy_n(second.begin(), key.size() - kDigestSize, key.begin() + kDigestSize);
  return key;
}

Key fileKey(const unsigned char* iv, const unsigned char* random, std::size_t size) {
  Secret<kBlockSize + kLargestField + kBlockSize> joined;
  std::copy_n(iv, kBlockSize, joined.begin());
  std::copy_n(random, size, joined.begin() + kBlockSize);
  return derive(sha1(joined.data(), kBlockSize + size));
}

CbcCipher randomDataCipher(std::uint16_t flags, Direction direction, const std::string& password,
                           const unsigned char* iv) {
  const auto algorithm = (flags & kTripleDesFlag) != 0 ? CbcCipher::Algorithm::tripleDes : CbcCipher::Algorithm::aes256;
  return CbcCipher(algorithm, direction, Padding::pkcs7, derive(sha1(password.data(), password.size())), iv);
}

std::uint32_t crcOf(const unsigned char* data, std::size_t size) {
  return static_cast<std::uint32_t>(crc32(0, data, static_cast<uInt>(size)));
}

void randomFill(unsigned char* data, std::size_t size) { requireCrypto(RAND_bytes(data, static_cast<int>(size)) == 1); }

/// Takes a part of the header; `available` is what is left of the entry.
Bytes take(ByteSource& source, std::uint64_t size, std::uint64_t& available) {
  if (size > available) damaged("the decryption header runs past the entry");
  Bytes bytes(static_cast<std::size_t>(size));
  if (source.read(bytes.data(), bytes.size()) != bytes.size()) damaged("the decryption header is cut short");
  available -= size;
  return bytes;
}

}  // namespace

void checkMarks(const StrongMarks& marks) {
  const auto optional = static_cast<std::uint16_t>(kNoOaepFlag | kTripleDesFlag);
  if (marks.algorithm != kAlgorithmAes256 || marks.keyBits != kKeyBits || (marks.flags & ~optional) != kPasswordFlag)
    throw ArchiveError(ArchiveFailure::unsupported, "an encryption that is not read here");
}

DecryptionHeader readDecryptionHeader(ByteSource& source, std::uint64_t available) {
  DecryptionHeader header;
  const std::uint64_t whole = available;
  const Bytes front = take(source, 2 + kBlockSize + 4, available);
  FieldReader start(front.data(), front.size());
  if (start.u16() != kBlockSize) damaged("the decryption header has another IV size");
  std::copy_n(start.take(kBlockSize), kBlockSize, header.iv.begin());
  const std::uint32_t size = start.u32();
  if (size > 2 * kLargestField) damaged("the decryption header is too large");
  const Bytes rest = take(source, size, available);
  FieldReader fields(rest.data(), rest.size());
  if (fields.u16() != kHeaderFormat) throw ArchiveError(ArchiveFailure::unsupported, "an unknown decryption header");
  header.marks.algorithm = fields.u16();
  header.marks.keyBits = fields.u16();
  header.marks.flags = fields.u16();
  checkMarks(header.marks);
  const std::size_t erdSize = fields.u16();
  const std::size_t block = (header.marks.flags & kTripleDesFlag) != 0 ? 8 : kBlockSize;
  if (erdSize == 0 || erdSize % block != 0 || erdSize > kLargestField) damaged("a wrong size of the random data");
  const unsigned char* erd = fields.take(erdSize);
  header.erd.assign(erd, erd + erdSize);
  if (fields.u32() != 0) throw ArchiveError(ArchiveFailure::unsupported, "encryption for certificates");
  const std::size_t validationSize = fields.u16();
  if (validationSize == 0 || validationSize % kBlockSize != 0 || validationSize != fields.left())
    damaged("a wrong size of the validation data");
  const unsigned char* validation = fields.take(validationSize);
  header.validation.assign(validation, validation + validationSize);
  header.length = whole - available;
  return header;
}

bool unlock(const DecryptionHeader& header, const std::string& password, DataKey& out) {
  Secret<kLargestField + kBlockSize> random;
  CbcCipher randomCipher = randomDataCipher(header.marks.flags, Direction::decrypt, password, header.iv.data());
  std::size_t size = randomCipher.update(header.erd.data(), header.erd.size(), random.data());
  std::size_t last = 0;
  if (!randomCipher.finish(random.data() + size, last)) return false;
  out.key = fileKey(header.iv.data(), random.data(), size + last);
  CbcCipher cipher(CbcCipher::Algorithm::aes256, Direction::decrypt, Padding::none, out.key, header.iv.data());
  Bytes plain(header.validation.size() + kBlockSize);
  size = cipher.update(header.validation.data(), header.validation.size(), plain.data());
  if (size != header.validation.size()) return false;
  FieldReader crc(plain.data() + size - kCrcSize, kCrcSize);
  if (crc.u32() != crcOf(plain.data(), size - kCrcSize)) return false;
  std::copy(header.validation.end() - kBlockSize, header.validation.end(), out.iv.begin());
  return true;
}

Bytes makeDecryptionHeader(const std::string& password, std::uint16_t flags, DataKey& out) {
  std::array<unsigned char, kBlockSize> iv;
  randomFill(iv.data(), iv.size());
  Secret<kRandomSize> random;
  randomFill(random.data(), random.size());
  out.key = fileKey(iv.data(), random.data(), random.size());

  Bytes erd(kRandomSize + 2 * kBlockSize);
  CbcCipher randomCipher = randomDataCipher(flags, Direction::encrypt, password, iv.data());
  const std::size_t size = randomCipher.update(random.data(), random.size(), erd.data());
  std::size_t last = 0;
  randomCipher.finish(erd.data() + size, last);
  erd.resize(size + last);

  Bytes plain(kValidationSize);
  randomFill(plain.data(), plain.size());
  append(plain, crcOf(plain.data(), plain.size()), kCrcSize);
  Bytes validation(plain.size() + kBlockSize);
  CbcCipher cipher(CbcCipher::Algorithm::aes256, Direction::encrypt, Padding::none, out.key, iv.data());
  validation.resize(cipher.update(plain.data(), plain.size(), validation.data()));
  std::copy(validation.end() - kBlockSize, validation.end(), out.iv.begin());

  Bytes rest;
  for (const std::size_t field : {std::size_t(kHeaderFormat), std::size_t(kAlgorithmAes256), std::size_t(kKeyBits),
                                  std::size_t(flags), erd.size()})
    append(rest, field, 2);
  append(rest, erd.data(), erd.size());
  append(rest, 0, 4);
  append(rest, validation.size(), 2);
  append(rest, validation.data(), validation.size());

  Bytes header;
  append(header, iv.size(), 2);
  append(header, iv.data(), iv.size());
  append(header, rest.size(), 4);
  append(header, rest.data(), rest.size());
  return header;
}

}  // namespace zip
}  // namespace Kelta
