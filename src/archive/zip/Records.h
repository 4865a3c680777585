// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "archive/zip/Bytes.h"
#include "archive/zip/FileStreams.h"
#include "archive/zip/StrongEncryption.h"

namespace Kelta {
namespace zip {

// The records of a zip file. A number that does not fit its field stands there as all ones and follows, as
// 8 bytes, in the ZIP64 extra field (id 0x0001), in the order size, compressed size, offset.
//
//   local header     signature, version, flags, method, time, date, CRC-32, compressed size, size,
//                    name size, extra size, name, extra
//   central record   signature, made by, version, flags, method, time, date, CRC-32, compressed size, size, name
//                    size, extra size, comment size, disk, attributes (2, 4), offset, name, extra, comment
//   end record       signature, disk, disk, entries, entries, directory size, directory offset, comment size, comment

constexpr std::uint32_t kLocalSignature = 0x04034B50;
constexpr std::uint32_t kCentralSignature = 0x02014B50;
constexpr std::uint32_t kDescriptorSignature = 0x08074B50;
constexpr std::uint32_t kEndSignature = 0x06054B50;
constexpr std::uint32_t kEnd64Signature = 0x06064B50;
constexpr std::uint32_t kLocatorSignature = 0x07064B50;
constexpr std::uint32_t kFull32 = 0xFFFFFFFF;
constexpr std::uint16_t kFull16 = 0xFFFF;

constexpr std::uint16_t kEncryptedFlag = 0x0001;
constexpr std::uint16_t kDescriptorFlag = 0x0008;  ///< sizes and CRC follow the data
constexpr std::uint16_t kStrongFlag = 0x0040;
constexpr std::uint16_t kUtf8Flag = 0x0800;
constexpr std::uint16_t kReadableFlags =
    kEncryptedFlag | 0x0006 | kDescriptorFlag | kStrongFlag | kUtf8Flag;  ///< 0x0006: how hard it was compressed

constexpr std::uint16_t kStored = 0;
constexpr std::uint16_t kDeflated = 8;
constexpr std::uint64_t kLocalHeaderSize = 30;

/// One entry as its headers describe it.
struct Entry {
  std::string name;  ///< UTF-8
  std::uint16_t versionNeeded = 20;
  std::uint16_t flags = 0;
  std::uint16_t method = kDeflated;
  std::uint32_t dosTime = 0;  ///< date in the upper half
  std::uint32_t crc = 0;
  std::uint64_t compressedSize = 0;
  std::uint64_t size = 0;
  std::uint64_t headerOffset = 0;
  bool hasMarks = false;
  StrongMarks marks;

  // Known to the reader only.
  std::uint64_t dataOffset = 0;
  std::uint64_t endOffset = 0;     ///< where the next record begins
  Bytes central;                   ///< the central record as it stands in the archive
  std::size_t offsetPosition = 0;  ///< of the header offset in it
  int offsetSize = 4;              ///< 8: in the ZIP64 extra field

  bool encrypted() const { return (flags & kEncryptedFlag) != 0; }
  bool isFolder() const { return !name.empty() && name.back() == '/'; }
};

/// The local header; with `zip64` both sizes stand in a ZIP64 extra field.
Bytes localHeader(const Entry& entry, bool zip64);
Bytes centralRecord(const Entry& entry);
/// The end record, and the ZIP64 ones before it where they are needed.
Bytes endRecords(std::uint64_t entries, std::uint64_t directoryOffset, std::uint64_t directorySize);

struct Directory {
  std::uint64_t entries = 0;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t shift = 0;  ///< what every offset in the archive lacks, since it was put behind something else
};

/// Finds the central directory through the end record, which must close the file; with `additions` other bytes may
/// stand behind it (up to 64 KiB) and in front of the archive. Throws "notAnArchive", "damaged" or "unsupported".
Directory findDirectory(InputFile& file, bool additions = false);

Entry parseCentralRecord(FieldReader& directory);

/// Reads the entry's local header and sets dataOffset. Throws "damaged" when it contradicts the central record.
void checkLocalHeader(InputFile& file, Entry& entry);

/// Checks the data descriptor, the `size` bytes between an entry's data and the next record.
void checkDescriptor(InputFile& file, const Entry& entry, std::uint64_t size);

}  // namespace zip
}  // namespace Kelta
