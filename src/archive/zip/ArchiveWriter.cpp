// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/ArchiveWriter.h"

#include <zlib.h>

#include <algorithm>
#include <memory>

#include "archive/zip/Deflate.h"
#include "archive/zip/EntryName.h"

namespace Kelta {
namespace zip {

namespace {

/// More than Deflate and the encryption can add to a file of less than 4 GiB.
constexpr std::uint64_t kLargestGrowth = 16 * 1024 * 1024;
constexpr std::uint16_t kStrongVersion = 51;
constexpr std::uint16_t kNoOaepVersion = 61;

bool isAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Date and time as DOS counts them (UTC, two-second steps, 1980 to 2107), the date in the upper half.
std::uint32_t dosTimeOf(std::int64_t seconds) {
  constexpr std::int64_t day = 86400;
  constexpr std::int64_t first = 315532800;  // 1980-01-01
  constexpr std::int64_t last = 4354819198;  // 2107-12-31 23:59:58
  const std::int64_t clamped = std::min(std::max(seconds, first), last);
  // Days counted from 1 March of the year 0, in which leap days come last.
  const std::int64_t days = clamped / day + 719468;
  const std::int64_t ofEra = days % 146097;
  const std::int64_t yearOfEra = (ofEra - ofEra / 1460 + ofEra / 36524 - ofEra / 146096) / 365;
  const std::int64_t dayOfYear = ofEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shifted = (5 * dayOfYear + 2) / 153;
  const std::int64_t dayOfMonth = dayOfYear - (153 * shifted + 2) / 5 + 1;
  const std::int64_t month = shifted < 10 ? shifted + 3 : shifted - 9;
  const std::int64_t year = yearOfEra + days / 146097 * 400 + (month <= 2 ? 1 : 0);
  const std::int64_t time = clamped % day;
  const std::int64_t date = (year - 1980) << 9 | month << 5 | dayOfMonth;
  return static_cast<std::uint32_t>(date << 16 | time / 3600 << 11 | time % 3600 / 60 << 5 | time % 60 / 2);
}

Entry entryFor(const std::string& name, const InputFile& source, const EntryOptions& options) {
  checkEntryName(name);
  if (!isUtf8(name) || name.back() == '/' || name.size() >= kFull16)
    throw ArchiveError(ArchiveFailure::unsafeName, "no name for an entry");
  Entry entry;
  entry.name = name;
  entry.method = options.method();
  entry.dosTime = dosTimeOf(source.lastWriteSeconds());
  if (!isAscii(name)) entry.flags |= kUtf8Flag;
  if (options.method() == kDeflated && options.level() >= 8) entry.flags |= 0x0002;
  if (options.encrypted()) {
    entry.flags |= kEncryptedFlag | kStrongFlag;
    entry.versionNeeded = (options.encryptionFlags() & kNoOaepFlag) != 0 ? kNoOaepVersion : kStrongVersion;
    entry.hasMarks = true;
    entry.marks = {kAlgorithmAes256, kKeyBits, options.encryptionFlags()};
  }
  return entry;
}

}  // namespace

void ArchiveWriter::add(const std::string& name, InputFile& source, const EntryOptions& options,
                        const std::string& password, const BufferDone& done) {
  Entry entry = entryFor(name, source, options);
  entry.headerOffset = out_.position();
  entry.size = source.size();
  const bool zip64 = entry.size >= kFull32 - kLargestGrowth;
  out_.write(localHeader(entry, zip64));
  const std::uint64_t dataOffset = out_.position();

  ByteSink* first = &out_;
  std::unique_ptr<ByteSink> encrypting;
  std::unique_ptr<ByteSink> deflating;
  if (options.encrypted()) {
    DataKey key;
    out_.write(makeDecryptionHeader(password, options.encryptionFlags(), key));
    encrypting = std::make_unique<EncryptSink>(*first, key.key, key.iv.data());
    first = encrypting.get();
  }
  if (options.method() == kDeflated) {
    deflating = std::make_unique<DeflateSink>(*first, options.level());
    first = deflating.get();
  }
  pump(source, entry, *first, done);
  entry.compressedSize = out_.position() - dataOffset;
  if (!zip64 && entry.compressedSize >= kFull32)
    throw ArchiveError(ArchiveFailure::internal, "the packed file outgrew its header");
  out_.patch(entry.headerOffset, localHeader(entry, zip64));
  append(centralRecord(entry));
}

void ArchiveWriter::pump(InputFile& source, Entry& entry, ByteSink& first, const BufferDone& done) {
  const std::unique_ptr<unsigned char[]> buffer(new unsigned char[kBufferSize]);
  std::uint64_t position = 0;
  while (const std::size_t got = source.readAt(position, buffer.get(), kBufferSize)) {
    position += got;
    if (position > entry.size) break;
    entry.crc = static_cast<std::uint32_t>(crc32(entry.crc, buffer.get(), static_cast<uInt>(got)));
    first.write(buffer.get(), got);
    if (done) done(got);
  }
  if (position != entry.size || source.changed())
    throw ArchiveError(ArchiveFailure::changed, "the file changed while it was packed");
  first.finish();
}

void ArchiveWriter::copy(InputFile& archive, const Entry& entry, const BufferDone& done) {
  const std::uint64_t offset = out_.position();
  if (offset > entry.headerOffset) throw ArchiveError(ArchiveFailure::internal, "entries copied out of order");
  const std::unique_ptr<unsigned char[]> buffer(new unsigned char[kBufferSize]);
  RangeSource source(archive, entry.headerOffset, entry.endOffset - entry.headerOffset);
  while (const std::size_t got = source.read(buffer.get(), kBufferSize)) {
    out_.write(buffer.get(), got);
    if (done) done(got);
  }
  Bytes record = entry.central;
  Bytes field;
  zip::append(field, offset, entry.offsetSize);
  std::copy(field.begin(), field.end(), record.begin() + static_cast<std::ptrdiff_t>(entry.offsetPosition));
  append(record);
}

void ArchiveWriter::append(const Bytes& centralRecord) {
  zip::append(directory_, centralRecord.data(), centralRecord.size());
  ++entries_;
}

void ArchiveWriter::finish() {
  const std::uint64_t offset = out_.position();
  out_.write(directory_);
  out_.write(endRecords(entries_, offset, directory_.size()));
}

}  // namespace zip
}  // namespace Kelta
