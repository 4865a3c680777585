// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace Kelta {
namespace crypto {

/// Where random bytes come from: the operating system's source, and the cryptographic library's generator, which
/// takes over when that source is not to be had.
class RandomSource {
public:
  virtual ~RandomSource() = default;
  virtual bool acquired() = 0;
  virtual bool fill(unsigned char* buffer, std::size_t size) = 0;
  /// One word of the runtime's second source; false when it fails.
  virtual bool stirringWord(std::uint32_t& word) = 0;
  virtual bool generatorSeeded() = 0;
  virtual void seedGenerator(const void* record, std::size_t size) = 0;
  virtual void addToGenerator(const void* bytes, std::size_t size, double entropy) = 0;
  virtual bool generate(unsigned char* buffer, std::size_t size) = 0;
};

/// Fills the buffer. False when the operating system's source is there but gives nothing, or the
/// weaker way found nothing unpredictable either; never true over bytes that nobody drew.
bool genRandomBuffer(RandomSource& source, unsigned char* buffer, std::size_t size);

}  // namespace crypto
}  // namespace Kelta
