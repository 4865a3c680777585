// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/Deflate.h"

#include <algorithm>

#include "archive/zip/ArchiveError.h"

namespace Kelta {
namespace zip {

namespace {

constexpr int kRawWindow = -MAX_WBITS;  ///< no zlib header and trailer
constexpr int kMemoryLevel = 8;

void requireDeflate(bool fine) {
  if (!fine) throw ArchiveError(ArchiveFailure::internal, "the compression library failed");
}

[[noreturn]] void broken(const char* what) { throw ArchiveError(ArchiveFailure::damaged, what); }

}  // namespace

DeflateSink::DeflateSink(ByteSink& next, int level) : next_(next), stream_(), out_(new unsigned char[kBufferSize]) {
  requireDeflate(deflateInit2(&stream_, level, Z_DEFLATED, kRawWindow, kMemoryLevel, Z_DEFAULT_STRATEGY) == Z_OK);
}

DeflateSink::~DeflateSink() { deflateEnd(&stream_); }

void DeflateSink::run(int flush) {
  do {
    stream_.next_out = out_.get();
    stream_.avail_out = static_cast<uInt>(kBufferSize);
    requireDeflate(deflate(&stream_, flush) != Z_STREAM_ERROR);
    next_.write(out_.get(), kBufferSize - stream_.avail_out);
  } while (stream_.avail_out == 0);
}

void DeflateSink::write(const unsigned char* data, std::size_t size) {
  while (size > 0) {
    const std::size_t part = std::min(size, kBufferSize);
    stream_.next_in = const_cast<unsigned char*>(data);
    stream_.avail_in = static_cast<uInt>(part);
    run(Z_NO_FLUSH);
    data += part;
    size -= part;
  }
}

void DeflateSink::finish() {
  stream_.avail_in = 0;
  run(Z_FINISH);
  next_.finish();
}

InflateSource::InflateSource(ByteSource& compressed)
    : compressed_(compressed), stream_(), in_(new unsigned char[kBufferSize]) {
  requireDeflate(inflateInit2(&stream_, kRawWindow) == Z_OK);
}

InflateSource::~InflateSource() { inflateEnd(&stream_); }

void InflateSource::step() {
  if (stream_.avail_in == 0 && !inputEnded_) {
    stream_.next_in = in_.get();
    stream_.avail_in = static_cast<uInt>(compressed_.read(in_.get(), kBufferSize));
    inputEnded_ = stream_.avail_in == 0;
  }
  const int result = inflate(&stream_, Z_NO_FLUSH);
  if (result == Z_MEM_ERROR) requireDeflate(false);
  if (result == Z_BUF_ERROR && inputEnded_) broken("the compressed data is cut short");
  if (result != Z_OK && result != Z_BUF_ERROR && result != Z_STREAM_END) broken("the compressed data is broken");
  if (result != Z_STREAM_END) return;
  ended_ = true;
  if (stream_.avail_in != 0 || compressed_.read(in_.get(), 1) != 0) broken("data follows the compressed data");
}

std::size_t InflateSource::read(unsigned char* data, std::size_t size) {
  stream_.next_out = data;
  stream_.avail_out = static_cast<uInt>(size);
  while (!ended_ && stream_.avail_out > 0) step();
  return size - stream_.avail_out;
}

}  // namespace zip
}  // namespace Kelta
