// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "archive/zip/ArchiveReader.h"
#include "archive/zip/ArchiveWriter.h"
#include "archive/zip/PasswordListener.h"

namespace Kelta {
namespace zip {

enum class ArchiveType { none = 0, zip = 1 };

/// Performs operations on archives; one object serves one operation at a time. Failures throw ArchiveError; what
/// the progress function throws passes through. Either way no partial file stays, and an archive that was to
/// be replaced is as it was.
class ArchiveEngine {
public:
  /// Bytes dealt with so far in this operation.
  using Progress = std::function<void(std::uint64_t)>;

  static constexpr unsigned kReplaceTarget = 0x80;  ///< without it an existing target is left alone: "cannotWrite"
  static constexpr unsigned kReplaceFiles = 0x10;   ///< the same for the files that an extraction writes

  static constexpr unsigned kOnlyEncrypted = 0x1;  ///< an entry that was not encrypted is "damaged"

  static constexpr unsigned kKeepTime = 0x1;  ///< an updated archive keeps its last-write time
  static constexpr unsigned kMustOpen = 0x2;  ///< an update fails unless the password opens every encrypted entry

  /// Not owned; null: encrypted entries fail with "wrongPassword".
  void setPasswordListener(PasswordListener* listener) { listener_ = listener; }
  /// Whether the listener may ask a person, up to three times for one entry.
  void setInteractive(bool interactive) { interactive_ = interactive; }
  void setProgress(const Progress& progress) { progress_ = progress; }
  /// kReplaceTarget or 0.
  void setWriteFlags(unsigned flags) { writeFlags_ = flags; }
  /// kReplaceFiles, kOnlyEncrypted, both or 0.
  void setExtractOption(unsigned option) { extractOption_ = option; }

  /// How archives are read; by default as strictly as they are written.
  void setReadingRules(const ReadingRules& rules) { rules_ = rules; }
  /// kKeepTime, kMustOpen, both or 0.
  void setUpdateOption(unsigned option) { updateOption_ = option; }
  /// The archive as the caller knows it: an update fails with "cannotRead" when another stands there by now.
  void setExpected(const platform::FileStamp& stamp) { expected_ = std::make_unique<platform::FileStamp>(stamp); }

  /// What the file is, judged by its end record and its start. Throws "cannotRead".
  static ArchiveType detectArchiveType(const boost::filesystem::path& archive);

  /// Notes a file for the next writeArchive() or updateArchive().
  void addFile(const boost::filesystem::path& source, const std::string& entryName, const EntryOptions& options);
  /// Writes the noted files into a new archive, which appears in one step.
  void writeArchive(const boost::filesystem::path& target);
  /// Puts the noted files into an existing archive, in place of unencrypted entries of the same name (whatever the
  /// case); an encrypted one of that name is "badArgument". Other entries are copied byte for byte.
  void updateArchive(const boost::filesystem::path& archive);
  /// The same in the folder that is held open, with its last step done by `replace`: "changed" when that declines.
  void updateArchive(const platform::Spot& archive, const platform::Replacement& replace);

  /// Extracts the entries that match into `folder`, created if missing; "*" is all of them, another pattern the
  /// entry of exactly that name ("noEntry" when there is none). Each file appears when it has been checked.
  void extract(const boost::filesystem::path& archive, const std::string& pattern,
               const boost::filesystem::path& folder);
  /// The content of one entry of at most `limit` bytes; a larger one is "unsupported".
  std::string extractText(const boost::filesystem::path& archive, const std::string& name, std::size_t limit);

private:
  struct Addition {
    boost::filesystem::path source;
    std::string name;
    EntryOptions options;
  };

  void update(const boost::filesystem::path& place, const platform::Spot* spot, const platform::Replacement* replace);
  void addPending(ArchiveWriter& writer);
  void requireOpening(ArchiveReader& reader);
  void copyOthers(ArchiveReader& reader, ArchiveWriter& writer);
  void extractEntry(ArchiveReader& reader, const Entry& entry, const boost::filesystem::path& archive,
                    const boost::filesystem::path& folder);
  void unlock(EntryReader& content, const Entry& entry);
  void askPassword(const std::string& item, bool retry);
  void advance(std::size_t bytes);

  PasswordListener* listener_ = nullptr;
  bool interactive_ = false;
  Progress progress_;
  unsigned writeFlags_ = 0;
  unsigned extractOption_ = 0;
  unsigned updateOption_ = 0;
  ReadingRules rules_;
  std::unique_ptr<platform::FileStamp> expected_;
  std::vector<Addition> pending_;
  SecretText password_;  ///< the last answer of the listener
  std::uint64_t done_ = 0;
};

}  // namespace zip
}  // namespace Kelta
