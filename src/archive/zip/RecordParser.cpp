// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "archive/zip/Records.h"

namespace Kelta {
namespace zip {

namespace {

constexpr std::uint16_t kZip64Field = 0x0001;
constexpr std::uint16_t kStrongField = 0x0017;
constexpr std::uint16_t kStrongFormat = 2;
constexpr std::uint16_t kNewestVersion = 63;
constexpr std::size_t kOffsetPosition = 42;  ///< of the header offset in a central record

/// One field of an extra block.
FieldReader findExtra(FieldReader extra, std::uint16_t wanted) {
  while (extra.left() > 0) {
    const std::uint16_t id = extra.u16();
    const std::uint16_t size = extra.u16();
    const unsigned char* data = extra.take(size);
    if (id == wanted) return FieldReader(data, size);
  }
  return FieldReader(nullptr, 0);
}

/// Replaces numbers that stand as all ones by those of the ZIP64 field.
void widenSizes(FieldReader& large, std::uint64_t& size, std::uint64_t& compressedSize) {
  if (size == kFull32) size = large.u64();
  if (compressedSize == kFull32) compressedSize = large.u64();
}

void takeMarks(Entry& entry, FieldReader extra) {
  FieldReader strong = findExtra(extra, kStrongField);
  if (strong.left() == 0) return;
  if (strong.u16() != kStrongFormat) throw ArchiveError(ArchiveFailure::unsupported, "an unknown encryption record");
  entry.marks.algorithm = strong.u16();
  entry.marks.keyBits = strong.u16();
  entry.marks.flags = strong.u16();
  entry.hasMarks = true;
}

void checkFlags(const Entry& entry) {
  const bool strong = (entry.flags & kStrongFlag) != 0;
  if ((entry.versionNeeded & 0xFF) > kNewestVersion || (entry.flags & ~kReadableFlags) != 0 ||
      (entry.encrypted() && !strong))
    throw ArchiveError(ArchiveFailure::unsupported, "an entry of a kind that is not read here");
  if (entry.encrypted() && !entry.hasMarks) damaged("the encryption record is missing");
  if (strong && !entry.encrypted()) damaged("contradicting encryption flags");
  if (entry.isFolder() && (entry.size != 0 || entry.encrypted())) damaged("a folder with content");
}

}  // namespace

Entry parseCentralRecord(FieldReader& directory) {
  Entry entry;
  FieldReader start = directory;
  const std::size_t before = directory.left();
  if (directory.u32() != kCentralSignature) damaged("a central record is missing");
  directory.take(2);
  entry.versionNeeded = directory.u16();
  entry.flags = directory.u16();
  entry.method = directory.u16();
  entry.dosTime = directory.u32();
  entry.crc = directory.u32();
  entry.compressedSize = directory.u32();
  entry.size = directory.u32();
  const std::size_t nameSize = directory.u16();
  const std::size_t extraSize = directory.u16();
  const std::size_t commentSize = directory.u16();
  if (directory.u16() != 0) throw ArchiveError(ArchiveFailure::unsupported, "an archive in several parts");
  directory.take(6);  // attributes
  entry.headerOffset = directory.u32();
  const unsigned char* name = directory.take(nameSize);
  entry.name.assign(name, name + nameSize);
  const unsigned char* extraData = directory.take(extraSize);
  directory.take(commentSize);
  const std::size_t length = before - directory.left();
  const unsigned char* record = start.take(length);
  entry.central.assign(record, record + length);

  const FieldReader extra(extraData, extraSize);
  FieldReader large = findExtra(extra, kZip64Field);
  widenSizes(large, entry.size, entry.compressedSize);
  entry.offsetPosition = kOffsetPosition;
  if (entry.headerOffset == kFull32) {
    const unsigned char* at = large.take(8);
    entry.headerOffset = FieldReader(at, 8).u64();
    entry.offsetPosition = static_cast<std::size_t>(at - record);
    entry.offsetSize = 8;
  }
  takeMarks(entry, extra);
  checkFlags(entry);
  return entry;
}

void checkLocalHeader(InputFile& file, Entry& entry) {
  unsigned char start[kLocalHeaderSize];
  file.readExactly(entry.headerOffset, start, sizeof start);
  FieldReader fields(start, sizeof start);
  if (fields.u32() != kLocalSignature) damaged("a local header is missing");
  fields.take(2);  // version
  const std::uint16_t flags = fields.u16();
  const std::uint16_t method = fields.u16();
  fields.take(4);  // time
  const std::uint32_t crc = fields.u32();
  std::uint64_t compressedSize = fields.u32();
  std::uint64_t size = fields.u32();
  const std::size_t nameSize = fields.u16();
  const std::size_t extraSize = fields.u16();
  Bytes rest(nameSize + extraSize);
  file.readExactly(entry.headerOffset + kLocalHeaderSize, rest.data(), rest.size());
  const std::string name(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(nameSize));
  if (flags != entry.flags || method != entry.method || name != entry.name)
    damaged("the headers name different entries");
  entry.dataOffset = entry.headerOffset + kLocalHeaderSize + rest.size();
  if ((entry.flags & kDescriptorFlag) != 0) return;
  FieldReader large = findExtra(FieldReader(rest.data() + nameSize, extraSize), kZip64Field);
  widenSizes(large, size, compressedSize);
  if (crc != entry.crc || size != entry.size || compressedSize != entry.compressedSize)
    damaged("the headers name different sizes");
}

void checkDescriptor(InputFile& file, const Entry& entry, std::uint64_t size) {
  if (size != 12 && size != 16 && size != 20 && size != 24) damaged("a wrong data descriptor");
  unsigned char bytes[24];
  const auto count = static_cast<std::size_t>(size);
  file.readExactly(entry.endOffset - size, bytes, count);
  FieldReader fields(bytes, count);
  if (count % 8 == 0 && fields.u32() != kDescriptorSignature) damaged("the data descriptor is missing");
  const bool large = count >= 20;
  const std::uint32_t crc = fields.u32();
  const std::uint64_t compressedSize = large ? fields.u64() : fields.u32();
  if (crc != entry.crc || compressedSize != entry.compressedSize || (large ? fields.u64() : fields.u32()) != entry.size)
    damaged("the data descriptor contradicts the directory");
}

}  // namespace zip
}  // namespace Kelta
