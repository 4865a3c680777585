// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <openssl/types.h>

#include <cstddef>
#include <memory>

#include "archive/zip/Secrets.h"
#include "archive/zip/Streams.h"

namespace Kelta {
namespace zip {

constexpr std::size_t kBlockSize = 16;  ///< of AES

using Key = Secret<32>;

/// One CBC stream. Faults of the crypto library throw "internal".
class CbcCipher {
public:
  enum class Algorithm { aes256, tripleDes };  ///< three-key 3DES takes 24 bytes of key and 8 of the IV
  enum class Direction { encrypt, decrypt };
  enum class Padding { none, pkcs7 };

  CbcCipher(Algorithm algorithm, Direction direction, Padding padding, const Key& key, const unsigned char* iv);
  ~CbcCipher();
  CbcCipher(const CbcCipher&) = delete;
  CbcCipher& operator=(const CbcCipher&) = delete;

  /// `out` has room for `size` bytes and one block more, and does not overlap `in`; returns the bytes written.
  std::size_t update(const unsigned char* in, std::size_t size, unsigned char* out);
  /// The last block, into `out`; false when decrypting and the padding, or the length, is wrong.
  bool finish(unsigned char* out, std::size_t& written);

private:
  struct Free {
    void operator()(EVP_CIPHER_CTX* context) const;
  };
  std::unique_ptr<EVP_CIPHER_CTX, Free> context_;
  bool decrypting_;
};

/// Encrypts what passes with AES-256-CBC and pads the end.
class EncryptSink : public ByteSink {
public:
  EncryptSink(ByteSink& next, const Key& key, const unsigned char* iv);
  void write(const unsigned char* data, std::size_t size) override;
  void finish() override;

private:
  ByteSink& next_;
  CbcCipher cipher_;
  std::unique_ptr<unsigned char[]> out_;
};

/// Decrypts what it reads; a wrong length or padding at the end throws "damaged".
class DecryptSource : public ByteSource {
public:
  DecryptSource(ByteSource& encrypted, const Key& key, const unsigned char* iv);
  std::size_t read(unsigned char* data, std::size_t size) override;

private:
  bool refill();

  ByteSource& encrypted_;
  CbcCipher cipher_;
  std::unique_ptr<unsigned char[]> in_;
  std::unique_ptr<unsigned char[]> out_;
  std::size_t next_ = 0;
  std::size_t filled_ = 0;
  bool ended_ = false;
};

}  // namespace zip
}  // namespace Kelta
