// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <string>
#include <vector>

#include "archive/zip/Records.h"

namespace Kelta {
namespace zip {

/// What an archive may be beyond what the format's writers make.
struct ReadingRules {
  /// Bytes in front of the first entry and behind the end record, and several entries of one name, are passed over:
  /// tools add them to archives that are otherwise whole.
  bool additions = false;
  std::uint64_t entries = ~std::uint64_t(0);  ///< more are "foreign", before any is read
};

/// An archive opened for reading. The constructor checks everything but the entries' data: the records must
/// fill the file without gap or overlap, both headers of an entry agree, names are safe and differ in more
/// than case. A central directory of more than 16 MiB is "unsupported".
class ArchiveReader {
public:
  explicit ArchiveReader(const boost::filesystem::path& archive, const ReadingRules& rules = ReadingRules());

  /// In the order of the directory.
  const std::vector<Entry>& entries() const { return entries_; }
  /// Null when there is none of that name.
  const Entry* find(const std::string& name) const;
  InputFile& file() { return file_; }

private:
  void readDirectory(const Directory& directory);
  void checkNames() const;
  void checkLayout(std::uint64_t directoryOffset);

  ReadingRules rules_;
  InputFile file_;
  std::vector<Entry> entries_;
};

/// The content of one entry. The reader's file must outlive it.
class EntryReader {
public:
  /// Throws "damaged" or "unsupported" when the data cannot be what the headers say.
  EntryReader(InputFile& file, const Entry& entry);
  ~EntryReader();

  /// Whether unlock() must succeed before read().
  bool needsPassword() const { return entry_.encrypted(); }
  /// What a password must open; of an encrypted entry.
  const DecryptionHeader& lock() const { return header_; }
  /// False when the password is not the one; another may be tried.
  bool unlock(const std::string& password);
  /// Fills the buffer; fewer bytes only at the end. By then size, padding and CRC have been checked: whatever does not
  /// fit throws "damaged".
  std::size_t read(unsigned char* data, std::size_t size);

private:
  void open(ByteSource& plain);

  const Entry& entry_;
  RangeSource raw_;
  DecryptionHeader header_;
  std::unique_ptr<ByteSource> decrypted_;
  std::unique_ptr<ByteSource> inflated_;
  ByteSource* content_ = nullptr;
  std::uint64_t done_ = 0;
  std::uint32_t crc_ = 0;
};

}  // namespace zip
}  // namespace Kelta
