// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "archive/zip/Records.h"

namespace Kelta {
namespace zip {

namespace {

constexpr std::size_t kEndSize = 22;
constexpr std::size_t kLocatorSize = 20;
constexpr std::size_t kEnd64Size = 56;
constexpr std::size_t kLargestComment = 0xFFFF;

/// Whether an end record stands there; with `additions` something may follow its comment.
bool isEndRecord(const unsigned char* at, std::size_t size, bool additions) {
  FieldReader fields(at, size);
  if (fields.u32() != kEndSignature) return false;
  fields.take(kEndSize - 6);
  const std::size_t comment = fields.u16();
  return comment == size - kEndSize || (additions && comment < size - kEndSize);
}

/// Nothing ends this file: tells a torn archive from something else by the way it begins.
[[noreturn]] void noEndRecord(InputFile& file) {
  unsigned char start[4];
  if (file.readAt(0, start, sizeof start) == sizeof start && FieldReader(start, 4).u32() == kLocalSignature)
    damaged("the end record is missing");
  throw ArchiveError(ArchiveFailure::notAnArchive, "not a zip archive");
}

/// Position of the end record: of one that closes the file, or else of the last one.
std::uint64_t findEnd(InputFile& file, bool additions) {
  const std::uint64_t size = file.size();
  Bytes tail;
  const auto find = [&](bool more) {
    for (std::size_t left = kEndSize; left <= tail.size(); ++left)
      if (isEndRecord(tail.data() + tail.size() - left, left, more)) return left;
    return std::size_t(0);
  };
  for (const std::size_t window : {kEndSize, kEndSize + kLargestComment}) {
    tail.resize(static_cast<std::size_t>(std::min<std::uint64_t>(size, window)));
    file.readExactly(size - tail.size(), tail.data(), tail.size());
    if (const std::size_t left = find(false)) return size - left;
  }
  if (const std::size_t left = additions ? find(true) : 0) return size - left;
  noEndRecord(file);
}

/// The ZIP64 end record, which `locator` points at and must stand right before.
Directory readEnd64(InputFile& file, FieldReader locator, std::uint64_t locatorPosition) {
  const std::uint32_t disk = locator.u32();
  const std::uint64_t position = locator.u64();
  if (disk != 0 || locator.u32() > 1) throw ArchiveError(ArchiveFailure::unsupported, "an archive in several parts");
  if (locatorPosition < kEnd64Size || position > locatorPosition - kEnd64Size) damaged("a misplaced ZIP64 end record");
  unsigned char record[kEnd64Size];
  file.readExactly(position, record, sizeof record);
  FieldReader fields(record, sizeof record);
  if (fields.u32() != kEnd64Signature) damaged("the ZIP64 end record is missing");
  if (fields.u64() != locatorPosition - position - 12) damaged("the ZIP64 end record has a wrong size");
  fields.take(4);
  if (fields.u64() != 0) throw ArchiveError(ArchiveFailure::unsupported, "an archive in several parts");
  Directory directory;
  directory.entries = fields.u64();
  if (fields.u64() != directory.entries) damaged("the end record contradicts itself");
  directory.size = fields.u64();
  directory.offset = fields.u64();
  if (directory.offset > position || directory.size != position - directory.offset) damaged("a misplaced directory");
  return directory;
}

/// Whether the end record's own field agrees with the ZIP64 one.
bool agrees(std::uint64_t field, std::uint64_t full, std::uint64_t value) { return field == full || field == value; }

}  // namespace

Directory findDirectory(InputFile& file, bool additions) {
  const std::uint64_t end = findEnd(file, additions);
  unsigned char record[kEndSize];
  file.readExactly(end, record, sizeof record);
  FieldReader fields(record, sizeof record);
  fields.take(4);
  if (fields.u32() != 0) throw ArchiveError(ArchiveFailure::unsupported, "an archive in several parts");
  Directory directory;
  directory.entries = fields.u16();
  if (fields.u16() != directory.entries) damaged("the end record contradicts itself");
  directory.size = fields.u32();
  directory.offset = fields.u32();

  if (end >= kLocatorSize) {
    unsigned char locator[kLocatorSize];
    file.readExactly(end - kLocatorSize, locator, sizeof locator);
    FieldReader located(locator, sizeof locator);
    if (located.u32() == kLocatorSignature) {
      const Directory large = readEnd64(file, located, end - kLocatorSize);
      if (!agrees(directory.entries, kFull16, large.entries) || !agrees(directory.size, kFull32, large.size) ||
          !agrees(directory.offset, kFull32, large.offset))
        damaged("the two end records contradict each other");
      return large;
    }
  }
  if (directory.offset > end || directory.size > end - directory.offset) damaged("a misplaced directory");
  directory.shift = end - directory.offset - directory.size;
  if (directory.shift != 0 && !additions) damaged("a misplaced directory");
  directory.offset += directory.shift;
  return directory;
}

}  // namespace zip
}  // namespace Kelta
