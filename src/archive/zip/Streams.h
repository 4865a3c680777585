// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace Kelta {
namespace zip {

/// Every stage of a stream works in buffers of this many bytes, whatever the headers claim.
constexpr std::size_t kBufferSize = 64 * 1024;

/// Takes the bytes of one entry; stages are chained by reference, the next one outlives this one.
class ByteSink {
public:
  virtual ~ByteSink() = default;
  virtual void write(const unsigned char* data, std::size_t size) = 0;
  /// After the last byte: writes what the stage still holds, then finishes the next stage.
  virtual void finish() = 0;
};

/// Gives the bytes of one entry.
class ByteSource {
public:
  virtual ~ByteSource() = default;
  /// Fills the buffer; fewer bytes than asked for only at the end.
  virtual std::size_t read(unsigned char* data, std::size_t size) = 0;
};

}  // namespace zip
}  // namespace Kelta
