// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <vector>

#include "platform/Files.h"

namespace Kelta {
namespace platform {

/// An entry as it was at one moment.
struct Entry {
  FileStamp stamp;
  EntryId id;
};

/// A folder that is held open, so that what is done in it by name is done there, whatever is put in the folder's place,
/// or above it, meanwhile. Each step down from the first one refuses links. Nothing below follows one either.
///
/// A name is one plain component: empty, ".", ".." and whatever holds a separator are refused. Failures throw
/// filesystem_error with full paths. What changes or removes an entry takes the id of the one that is meant, and does
/// nothing when another one stands under the name by now (errc::no_such_file_or_directory).
///
/// A copy stands for the same open folder. On Windows neither the folder nor those above it, as far as they were
/// reached step by step, can be renamed or removed while it lives: keep it no longer than for one piece of work.
class OpenFolder {
public:
  /// Links on the way are followed, and at its end: this is a folder that the user named. Empty: the current folder.
  explicit OpenFolder(const boost::filesystem::path& folder);
  /// As it was given, with the names of the steps; for messages.
  const boost::filesystem::path& path() const;

  /// One step down. errc::no_such_file_or_directory, also when the folder stands under another name;
  /// errc::not_a_directory: a link, or no folder.
  OpenFolder folder(const boost::filesystem::path& name) const;
  /// The same; a missing folder is made.
  OpenFolder makeFolder(const boost::filesystem::path& name) const;

  /// Never throws. `other`: something is found, but not under this very name. `unknown`: the system refuses to tell.
  Entry look(const boost::filesystem::path& name) const;
  /// The names in the folder.
  std::vector<boost::filesystem::path> list() const;
  /// As platform::isOpenForWriting().
  bool isOpenForWriting(const boost::filesystem::path& name) const;
  /// Opens a file, or makes it.
  File open(const boost::filesystem::path& name, File::Mode mode) const;

  /// Renames a file within its volume in one step, replacing a file that is there. Across volumes:
  /// errc::cross_device_link.
  void replace(const boost::filesystem::path& name, const EntryId& id, const OpenFolder& to,
               const boost::filesystem::path& toName) const;
  /// Renames a file or a folder and replaces nothing: false, with nothing done, when something stands there already.
  bool move(const boost::filesystem::path& name, const EntryId& id, const OpenFolder& to,
            const boost::filesystem::path& toName) const;
  /// As exchangeFiles(): false, with nothing done, where the system cannot.
  bool exchange(const boost::filesystem::path& name, const EntryId& id, const OpenFolder& to,
                const boost::filesystem::path& toName) const;

  /// Removes a file, or a link itself; a folder only when it is empty. False when nothing stands there.
  bool removeFile(const boost::filesystem::path& name, const EntryId& id) const { return remove(name, id, Kind::file); }
  bool removeFolder(const boost::filesystem::path& name, const EntryId& id) const {
    return remove(name, id, Kind::folder);
  }

  /// As moveToRecycleBin().
  Recycled throwAway(const boost::filesystem::path& name, const FileStamp* judged = nullptr,
                     bool* canceled = nullptr) const;

  /// Gives an open file, made for its owner alone, the rights that it is to have under `name` here: those of the file
  /// that it will replace (on Windows also its read-only, hidden and system marks), else those of any new file.
  void giveNormalRights(File& fresh, const boost::filesystem::path& name) const;

  /// Makes renames and removals in it durable, where the system can.
  void sync() const;

private:
  struct Impl;
  explicit OpenFolder(std::shared_ptr<const Impl> impl) : impl_(std::move(impl)) {}
  boost::filesystem::path pathOf(const boost::filesystem::path& name) const;
  void requireSame(const char* what, const boost::filesystem::path& name, const EntryId& id) const;
  bool remove(const boost::filesystem::path& name, const EntryId& id, Kind kind) const;

  std::shared_ptr<const Impl> impl_;
};

/// A name in an open folder, whatever stands under it.
struct Spot {
  OpenFolder folder;
  boost::filesystem::path name;

  boost::filesystem::path path() const { return folder.path() / name; }
  Entry look() const { return folder.look(name); }
};

}  // namespace platform
}  // namespace Kelta
