// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>

#include "archive/zip/Bytes.h"
#include "archive/zip/Streams.h"
#include "platform/AtomicFile.h"
#include "platform/Files.h"

namespace Kelta {
namespace zip {

/// An ordinary file that is read; anything that goes wrong throws "cannotRead".
class InputFile {
public:
  explicit InputFile(const boost::filesystem::path& path);

  std::uint64_t size() const { return stamp_.size; }  ///< when it was opened
  std::int64_t lastWriteSeconds() const { return stamp_.seconds(); }
  const platform::FileStamp& stamp() const { return stamp_; }  ///< when it was opened
  /// Whether it has been written to since.
  bool changed();
  /// Whether the file of that name is as this one was when it was opened.
  bool standsUnchangedAt(const boost::filesystem::path& path) const;
  /// Reads at a position; fewer bytes than asked for only at the end of the file.
  std::size_t readAt(std::uint64_t position, unsigned char* data, std::size_t size);
  /// The same; fewer bytes throw "damaged".
  void readExactly(std::uint64_t position, unsigned char* data, std::size_t size);

private:
  platform::File file_;
  platform::FileStamp stamp_;
};

/// A stretch of a file, which must outlive this object.
class RangeSource : public ByteSource {
public:
  RangeSource(InputFile& file, std::uint64_t position, std::uint64_t size);
  /// Throws "damaged" when the file ends before the stretch does.
  std::size_t read(unsigned char* data, std::size_t size) override;

private:
  InputFile& file_;
  std::uint64_t position_;
  std::uint64_t left_;
};

/// A file that appears under its name, complete, with commit(); anything that goes wrong throws "cannotWrite".
class OutputFile : public ByteSink {
public:
  explicit OutputFile(const boost::filesystem::path& target);
  explicit OutputFile(const platform::Spot& target);

  void write(const unsigned char* data, std::size_t size) override;
  void write(const Bytes& data) { write(data.data(), data.size()); }
  void finish() override {}
  std::uint64_t position() const { return position_; }
  /// Overwrites bytes written earlier; the position stays at the end.
  void patch(std::uint64_t at, const Bytes& data);
  /// Once everything is written.
  void setLastWriteTime(std::int64_t nanoseconds);
  /// What takes its time, so that commit() does not.
  void flushToDisk();
  void commit();
  /// As AtomicFile::commitBy().
  bool commitBy(const platform::Replacement& replace);

private:
  platform::AtomicFile file_;
  std::uint64_t position_ = 0;
};

}  // namespace zip
}  // namespace Kelta
