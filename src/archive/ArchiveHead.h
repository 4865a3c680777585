// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

#include "archive/zip/ArchiveReader.h"

namespace Kelta {
namespace archive {

/// How the archives of a pair are read: what a tool has added to one that is otherwise whole does not matter, and one
/// that holds more than 1,024 entries is another program's.
constexpr zip::ReadingRules kPairRules{true, 1024};

/// What an archive of a pair shows without any key, read in one go. Throws zip::ArchiveError; "noEntry" when it lacks
/// the metadata or the content, "damaged" unless there is one content and it is encrypted, "foreign" when it holds more
/// metadata than 64 KiB.
class ArchiveHead {
public:
  ArchiveHead(const boost::filesystem::path& archive, const std::string& metadataEntry);

  /// The texts of all entries of the metadata's name.
  const std::vector<std::string>& metadata() const { return metadata_; }
  /// Whether the password opens the content, judged by what was read: no file is touched whatever the password is.
  bool opens(const std::string& password) const;

private:
  void readMetadata(zip::ArchiveReader& reader, const std::string& name);
  void readLock(zip::ArchiveReader& reader);

  std::vector<std::string> metadata_;
  zip::DecryptionHeader lock_;
};

}  // namespace archive
}  // namespace Kelta
