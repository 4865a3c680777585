// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "archive/zip/ArchiveError.h"

namespace Kelta {
namespace zip {

using Bytes = std::vector<unsigned char>;

/// Appends the lowest `count` bytes of `value`, little-endian.
inline void append(Bytes& out, std::uint64_t value, int count) {
  for (int i = 0; i < count; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

inline void append(Bytes& out, const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  out.insert(out.end(), bytes, bytes + size);
}

/// Reads little-endian fields one after the other. Running past the end throws "damaged".
class FieldReader {
public:
  FieldReader(const unsigned char* data, std::size_t size) : next_(data), left_(size) {}

  std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
  std::uint64_t u64() { return number(8); }
  std::size_t left() const { return left_; }
  const unsigned char* take(std::size_t size) {
    if (size > left_) throw ArchiveError(ArchiveFailure::damaged, "a record runs past its end");
    const unsigned char* at = next_;
    next_ += size;
    left_ -= size;
    return at;
  }

private:
  std::uint64_t number(std::size_t size) {
    const unsigned char* bytes = take(size);
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;) value = value << 8 | bytes[i];
    return value;
  }

  const unsigned char* next_;
  std::size_t left_;
};

}  // namespace zip
}  // namespace Kelta
