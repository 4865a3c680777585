// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// AES-256-CBC over whole buffers, keys from text, random bytes. An encrypted buffer is
///
///     bytes 0–15   initialisation vector
///     from 16      ciphertext with RFC 5652 padding, a non-zero multiple of 16 bytes
///
/// Every buffer handed out comes from malloc() or calloc() and is the caller's, for free(). The
/// object has no state: any thread may use it at any time.
class CryptoHelper {
public:
  /// Allocates `len` random bytes in `*buf`. False when the random source gave none; the block is
  /// then still the caller's to free (null when memory ran out).
  bool genRandomBuffer(unsigned char** buf, int len);

  /// Allocates the 32-byte key that `key` stands for: 64 hex digits; 43 or 44 characters of base64;
  /// else the SHA-256 of the text up to its first NUL. Null when memory ran out. The caller wipes it.
  void setKey(unsigned char** out, std::string& key);

  /// Encrypts `*len` bytes; `*len` becomes the length of the result. Null when the key could not be prepared.
  /// A failed cipher step is only logged: callers judge by what they later decrypt.
  unsigned char* encryptBufferAES(unsigned char* in, int* len, std::string& key, unsigned char* iv, int ivLen);

  /// The same under a fresh random IV; also null when there was no random IV.
  unsigned char* encryptBufferAES(unsigned char* in, int* len, std::string& key);

  /// Decrypts `*len` (at least 16) bytes; `*len` becomes the length of the plain text. With a wrong key a buffer
  /// comes back all the same; use decrypted() where the outcome matters.
  unsigned char* decryptBufferAES(unsigned char* in, std::string& key, int* len);

  /// Whether each step of the cipher leaves a log line. A scan, which meets thousands of names, asks for none.
  enum class Trace { steps, nothing };

  /// As decryptBufferAES, but tells whether every step, the padding included, was right; on false `out` is empty.
  bool decrypted(const std::string& in, std::string& key, std::string& out, Trace trace = Trace::steps);

  /// The same buffer as encryptBufferAES makes under that IV of 16 bytes, without log lines. False when a step failed;
  /// `out` is then empty.
  bool encrypted(const std::string& in, std::string& key, const std::string& iv, std::string& out);
};

}  // namespace Kelta
