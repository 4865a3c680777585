// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/ArchiveReader.h"

#include <zlib.h>

#include <algorithm>
#include <set>

#include "archive/zip/Deflate.h"
#include "archive/zip/EntryName.h"

namespace Kelta {
namespace zip {

namespace {

constexpr std::uint64_t kLargestDirectory = 16 * 1024 * 1024;

}  // namespace

ArchiveReader::ArchiveReader(const boost::filesystem::path& archive, const ReadingRules& rules)
    : rules_(rules), file_(archive) {
  const Directory directory = findDirectory(file_, rules_.additions);
  if (directory.entries > rules_.entries) throw ArchiveError(ArchiveFailure::foreign, "too many entries");
  readDirectory(directory);
  checkNames();
  checkLayout(directory.offset);
}

const Entry* ArchiveReader::find(const std::string& name) const {
  for (const Entry& entry : entries_)
    if (entry.name == name) return &entry;
  return nullptr;
}

void ArchiveReader::readDirectory(const Directory& directory) {
  if (directory.size > kLargestDirectory)
    throw ArchiveError(ArchiveFailure::unsupported, "the directory is too large to be read here");
  Bytes bytes(static_cast<std::size_t>(directory.size));
  file_.readExactly(directory.offset, bytes.data(), bytes.size());
  FieldReader fields(bytes.data(), bytes.size());
  while (fields.left() > 0 && entries_.size() < directory.entries) {
    entries_.push_back(parseCentralRecord(fields));
    entries_.back().headerOffset += directory.shift;
  }
  if (fields.left() > 0 || entries_.size() != directory.entries)
    damaged("the directory holds another number of entries");
}

void ArchiveReader::checkNames() const {
  std::set<std::string> seen;
  for (const Entry& entry : entries_) {
    if (!isUtf8(entry.name)) {
      const bool claimed = (entry.flags & kUtf8Flag) != 0;
      throw ArchiveError(claimed ? ArchiveFailure::damaged : ArchiveFailure::unsupported, "a name that is not UTF-8");
    }
    checkEntryName(entry.name);
    if (!seen.insert(foldedName(entry.name)).second && !rules_.additions) damaged("two entries of one name");
  }
}

void ArchiveReader::checkLayout(std::uint64_t directoryOffset) {
  std::vector<Entry*> byOffset;
  for (Entry& entry : entries_) byOffset.push_back(&entry);
  std::sort(byOffset.begin(), byOffset.end(),
            [](const Entry* a, const Entry* b) { return a->headerOffset < b->headerOffset; });
  const std::uint64_t first = byOffset.empty() ? directoryOffset : byOffset[0]->headerOffset;
  if (first != 0 && !rules_.additions) damaged("data before the first entry");
  for (std::size_t i = 0; i < byOffset.size(); ++i) {
    Entry& entry = *byOffset[i];
    entry.endOffset = i + 1 < byOffset.size() ? byOffset[i + 1]->headerOffset : directoryOffset;
    checkLocalHeader(file_, entry);
    if (entry.dataOffset > entry.endOffset || entry.compressedSize > entry.endOffset - entry.dataOffset)
      damaged("an entry runs into the next record");
    const std::uint64_t gap = entry.endOffset - entry.dataOffset - entry.compressedSize;
    if ((entry.flags & kDescriptorFlag) != 0) {
      checkDescriptor(file_, entry, gap);
    } else if (gap != 0) {
      damaged("bytes between two records");
    }
  }
}

EntryReader::EntryReader(InputFile& file, const Entry& entry)
    : entry_(entry), raw_(file, entry.dataOffset, entry.compressedSize), header_() {
  if (entry.method != kStored && entry.method != kDeflated)
    throw ArchiveError(ArchiveFailure::unsupported, "a compression method that is not read here");
  if (!entry.encrypted()) {
    if (entry.method == kStored && entry.size != entry.compressedSize) damaged("a stored entry of two sizes");
    open(raw_);
    return;
  }
  checkMarks(entry.marks);
  header_ = readDecryptionHeader(raw_, entry.compressedSize);
  if (!(header_.marks == entry.marks)) damaged("the headers name different encryptions");
  const std::uint64_t left = entry.compressedSize - header_.length;
  if (left == 0 || left % kBlockSize != 0) damaged("the encrypted data has no whole number of blocks");
}

EntryReader::~EntryReader() = default;

void EntryReader::open(ByteSource& plain) {
  content_ = &plain;
  if (entry_.method != kDeflated) return;
  inflated_ = std::make_unique<InflateSource>(plain);
  content_ = inflated_.get();
}

bool EntryReader::unlock(const std::string& password) {
  DataKey key;
  if (!zip::unlock(header_, password, key)) return false;
  decrypted_ = std::make_unique<DecryptSource>(raw_, key.key, key.iv.data());
  open(*decrypted_);
  return true;
}

std::size_t EntryReader::read(unsigned char* data, std::size_t size) {
  if (content_ == nullptr) throw ArchiveError(ArchiveFailure::wrongPassword, "the entry needs a password");
  const std::size_t got = content_->read(data, size);
  if (got > entry_.size - done_) damaged("more data than the headers declare");
  done_ += got;
  crc_ = static_cast<std::uint32_t>(crc32(crc_, data, static_cast<uInt>(got)));
  if (got < size && done_ != entry_.size) damaged("less data than the headers declare");
  if (got < size && crc_ != entry_.crc) damaged("a wrong CRC");
  return got;
}

}  // namespace zip
}  // namespace Kelta
