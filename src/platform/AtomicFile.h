// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <functional>
#include <memory>
#include <string>

#include "platform/OpenFolder.h"

namespace Kelta {
namespace platform {

/// Puts the file `fresh` of that identity in the place of `target`. False when what stands there must stay.
using Replacement = std::function<bool(const Spot& fresh, const EntryId& id, const Spot& target)>;

/// Writes a whole file so that under its name there is always the old content or the new, complete
/// one, whatever happens in between. The temporary file stands in the target's folder under a name
/// that isTemporaryName() knows and every scan ignores. What others put in its place is neither followed nor taken for
/// it.
class AtomicFile {
public:
  /// Creates the temporary file, for its owner alone. Throws filesystem_error. With `ownerOnly` commit() leaves its
  /// rights as they are; else it gives it those of the file it replaces, or of any new file. The path's folder may be
  /// reached through links.
  explicit AtomicFile(const boost::filesystem::path& target, bool ownerOnly = false);
  AtomicFile(OpenFolder folder, boost::filesystem::path name, bool ownerOnly = false);
  /// Removes what stands under the temporary name, unless commit() succeeded.
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  File& file() { return *file_; }
  const boost::filesystem::path& temporary() const { return temporary_; }
  /// Flushes to disk, closes, and renames over the target. Throws filesystem_error; the target is then as it was.
  void commit();
  /// The same, but replaces nothing: false when something stands under the name by now.
  bool commitNew();
  /// The same, with its last step done by `replace`.
  bool commitBy(const Replacement& replace);

private:
  void finish();

  OpenFolder folder_;
  boost::filesystem::path name_;
  boost::filesystem::path temporary_;
  std::unique_ptr<File> file_;
  EntryId id_;
  bool ownerOnly_;
  bool committed_ = false;
};

/// Writes `content` to `target` through an AtomicFile.
void writeWholeFile(const boost::filesystem::path& target, const std::string& content, bool ownerOnly = false);

/// A fresh name for a temporary file or folder: ".~kelsync-" + machine token (8 hex digits) + "-" + process
/// id (decimal) + "-" + 8 random hex digits. The process remembers it as its own until forgetTemporaryName().
std::string temporaryName();
void forgetTemporaryName(const std::string& name);

/// Whether `name` (a last component, UTF-8) has that form, whoever made it.
bool isTemporaryName(const std::string& name);

/// Whether this process has the name in use.
bool isOwnTemporaryName(const std::string& name);

/// Whether it was made on this machine by a process that is gone (or by an earlier process of our own
/// number), so that nobody will finish it and it may be removed.
bool isAbandoned(const std::string& name);

/// A file that was taken out of its place to be looked at, or is to take that place.
struct Displaced {
  FileStamp judged;   ///< what was to be replaced or removed
  FileStamp fresh;    ///< what was to take its place, if anything
  std::string place;  ///< the name it had; of a long one the beginning and the end
};

/// A name for it that tells all this, so that whoever finds it after a sudden end knows what to keep. It begins with
/// `temporary`, a temporary name, and is one itself, but never an abandoned one.
std::string displacedName(const std::string& temporary, const Displaced& file);

/// False unless `name` is such a name, and was made on this machine by a process that is gone.
bool readDisplaced(const std::string& name, Displaced& file);

}  // namespace platform
}  // namespace Kelta
