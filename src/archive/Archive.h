// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/AtomicFile.h"

namespace Kelta {
namespace zip {
class PasswordListener;
}
namespace archive {

// The archive operations as the engine and the exports use them. Failures throw zip::ArchiveError
// (archive/zip/ArchiveError.h) and leave no partial output.

/// Called after every buffer of content, with the bytes of plain content so far. May throw to stop the operation.
using Progress = std::function<void(std::uint64_t)>;

extern const char* const kContentEntry;  ///< "Content"

struct PackRequest {
  boost::filesystem::path source;
  boost::filesystem::path target;    ///< replaced in one step when it exists
  std::string password;              ///< UTF-8, not empty (unless a listener gives it)
  boost::filesystem::path metadata;  ///< stored unencrypted under its own name; empty: none
  bool compress = true;              ///< Deflate level 9, or stored
  bool keepSourceName = false;       ///< the entry carries the source's name instead of "Content"
  std::uint16_t encryptionFlags = 0x4101;
};

void pack(const PackRequest& request, const Progress& progress = Progress());

/// Extracts every entry into `folder`, created if missing.
void unpack(const boost::filesystem::path& archive, const boost::filesystem::path& folder, const std::string& password,
            const Progress& progress = Progress());

/// Extracts the entry "Content" alone into `folder`, and only if it was encrypted under the password: whoever can write
/// to the Outside could put anything else there. This and what follows for archives of a pair read by the rules of
/// ArchiveHead.h.
void unpackContent(const boost::filesystem::path& archive, const boost::filesystem::path& folder,
                   const std::string& password, const Progress& progress = Progress());

/// The whole text of one entry of at most 16 MiB. The password may be empty for an unencrypted one.
std::string readEntry(const boost::filesystem::path& archive, const std::string& entry, const std::string& password);

/// Whether the entry "Content" has the size and the CRC-32 of the plain `file`, which is read to the end. No password
/// is needed. Failures to read either throw.
bool holds(const boost::filesystem::path& archive, const boost::filesystem::path& file,
           const Progress& progress = Progress());

/// Packing and reading with the password from a listener, which may ask a person.
void pack(const PackRequest& request, zip::PasswordListener& passwords);
void unpack(const boost::filesystem::path& archive, const boost::filesystem::path& folder,
            zip::PasswordListener& passwords);
std::string readEntry(const boost::filesystem::path& archive, const std::string& entry,
                      zip::PasswordListener& passwords);

/// Replaces (or adds) the unencrypted entry named as the file `metadata`.
void updateMetadata(const boost::filesystem::path& archive, const boost::filesystem::path& metadata);

/// The same in an archive that looks as `known` and whose content the password opens; anything else fails, with the
/// archive as it was. The archive keeps its last-write time, but not its size: whoever carries changed files to other
/// devices would otherwise not see it. `replace` puts the new archive in the place of the old one.
void replaceMetadata(const platform::Spot& archive, const platform::FileStamp& known,
                     const boost::filesystem::path& metadata, const std::string& password,
                     const platform::Replacement& replace, const Progress& progress);

}  // namespace archive
}  // namespace Kelta
