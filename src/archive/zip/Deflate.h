// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zlib.h>

#include <memory>

#include "archive/zip/Streams.h"

namespace Kelta {
namespace zip {

/// Compresses what passes, as raw Deflate.
class DeflateSink : public ByteSink {
public:
  DeflateSink(ByteSink& next, int level);
  ~DeflateSink() override;
  void write(const unsigned char* data, std::size_t size) override;
  void finish() override;

private:
  void run(int flush);

  ByteSink& next_;
  z_stream stream_;
  std::unique_ptr<unsigned char[]> out_;
};

/// Expands what it reads. A stream that is broken, or does not end exactly where its input ends, throws "damaged".
class InflateSource : public ByteSource {
public:
  explicit InflateSource(ByteSource& compressed);
  ~InflateSource() override;
  std::size_t read(unsigned char* data, std::size_t size) override;

private:
  void step();

  ByteSource& compressed_;
  z_stream stream_;
  std::unique_ptr<unsigned char[]> in_;
  bool inputEnded_ = false;
  bool ended_ = false;
};

}  // namespace zip
}  // namespace Kelta
