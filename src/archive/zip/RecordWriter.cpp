// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "archive/zip/Records.h"

namespace Kelta {
namespace zip {

namespace {

constexpr std::uint16_t kMadeBy = 63;  ///< version 6.3 of the format, attributes as of FAT
constexpr std::uint32_t kArchiveAttribute = 0x20;
constexpr std::uint16_t kZip64Version = 45;

std::uint32_t low32(std::uint64_t value) { return static_cast<std::uint32_t>(std::min<std::uint64_t>(value, kFull32)); }

void appendCommon(Bytes& out, const Entry& entry, bool zip64, std::size_t extraSize) {
  append(out, entry.flags, 2);
  append(out, entry.method, 2);
  append(out, entry.dosTime, 4);
  append(out, entry.crc, 4);
  append(out, zip64 ? kFull32 : low32(entry.compressedSize), 4);
  append(out, zip64 ? kFull32 : low32(entry.size), 4);
  append(out, entry.name.size(), 2);
  append(out, extraSize, 2);
}

Bytes centralExtra(const Entry& entry) {
  Bytes large;
  for (const std::uint64_t value : {entry.size, entry.compressedSize, entry.headerOffset})
    if (value >= kFull32) append(large, value, 8);
  Bytes extra;
  if (!large.empty()) {
    append(extra, 0x0001, 2);
    append(extra, large.size(), 2);
    append(extra, large.data(), large.size());
  }
  if (entry.hasMarks) {
    append(extra, 0x0017, 2);
    append(extra, 8, 2);
    append(extra, 2, 2);
    append(extra, entry.marks.algorithm, 2);
    append(extra, entry.marks.keyBits, 2);
    append(extra, entry.marks.flags, 2);
  }
  return extra;
}

std::uint16_t versionNeeded(const Entry& entry, bool zip64) {
  return zip64 ? std::max(entry.versionNeeded, kZip64Version) : entry.versionNeeded;
}

}  // namespace

Bytes localHeader(const Entry& entry, bool zip64) {
  Bytes extra;
  if (zip64) {
    append(extra, 0x0001, 2);
    append(extra, 16, 2);
    append(extra, entry.size, 8);
    append(extra, entry.compressedSize, 8);
  }
  Bytes out;
  append(out, kLocalSignature, 4);
  append(out, versionNeeded(entry, zip64), 2);
  appendCommon(out, entry, zip64, extra.size());
  append(out, entry.name.data(), entry.name.size());
  append(out, extra.data(), extra.size());
  return out;
}

Bytes centralRecord(const Entry& entry) {
  const Bytes extra = centralExtra(entry);
  const bool large = std::max({entry.size, entry.compressedSize, entry.headerOffset}) >= kFull32;
  Bytes out;
  append(out, kCentralSignature, 4);
  append(out, kMadeBy, 2);
  append(out, versionNeeded(entry, large), 2);
  appendCommon(out, entry, false, extra.size());
  append(out, 0, 2);  // comment
  append(out, 0, 2);  // disk
  append(out, 0, 2);  // internal attributes
  append(out, kArchiveAttribute, 4);
  append(out, low32(entry.headerOffset), 4);
  append(out, entry.name.data(), entry.name.size());
  append(out, extra.data(), extra.size());
  return out;
}

Bytes endRecords(std::uint64_t entries, std::uint64_t directoryOffset, std::uint64_t directorySize) {
  Bytes out;
  if (entries >= kFull16 || directoryOffset >= kFull32 || directorySize >= kFull32) {
    append(out, kEnd64Signature, 4);
    append(out, 44, 8);
    append(out, kMadeBy, 2);
    append(out, kZip64Version, 2);
    append(out, 0, 4);
    append(out, 0, 4);
    append(out, entries, 8);
    append(out, entries, 8);
    append(out, directorySize, 8);
    append(out, directoryOffset, 8);
    append(out, kLocatorSignature, 4);
    append(out, 0, 4);
    append(out, directoryOffset + directorySize, 8);
    append(out, 1, 4);
  }
  append(out, kEndSignature, 4);
  append(out, 0, 4);  // disks
  append(out, std::min<std::uint64_t>(entries, kFull16), 2);
  append(out, std::min<std::uint64_t>(entries, kFull16), 2);
  append(out, low32(directorySize), 4);
  append(out, low32(directoryOffset), 4);
  append(out, 0, 2);  // comment
  return out;
}

}  // namespace zip
}  // namespace Kelta
