// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <string>
#include <vector>

#include "PairFolders.h"
#include "platform/LockFile.h"

namespace Kelta {
namespace host {

/// Where the command keeps what belongs to one pair on this machine:
///
///     state/  what both sides looked like when they were last in step, and the quarantine records
///     temp/   intermediate files
///     log/    log.properties, syncpair.log; in reading/ those of the commands that only read
///     key     the key, when it was made here
///     key.new the key that is about to replace it, while a change of keys is not finished
///     key.old the one before; key.old.2 and so on the ones of later changes
///     notifications  what the engine told in the last run, as JSON
///     failed  what could not be carried over and still is not, as JSON
///     waiting what was left for later at the end of the last cycle, as JSON
///     names   there while archives get encrypted names
///     pair    the two folders it belongs to, one on each line; there from the first run on
///     lock    what the system's lock is on; in it, for a message, the number of the process that has it
///
/// From open() to the end of the object no other run changes the folder or works with the pair.
class WorkFolder {
public:
  /// `text` as the user gave it; empty for the default, which is derived from the two folders of the pair.
  /// Throws Failure (usage) when it lies in one of them or the system names no place for it.
  WorkFolder(const std::wstring& text, const PairFolders& pair);
  /// A folder that was made for a run which came to nothing goes with it.
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  /// Creates what is missing, for the owner alone, and takes the lock. Throws Failure: failed when it cannot,
  /// usage when the folder belongs to another pair.
  void open();
  /// The same without the lock, for a command that changes nothing: another run may be going on.
  void openForReading() const;
  /// Notes which pair the folder belongs to from now on. Throws Failure (failed).
  void claim() const;
  /// Gets the log folder ready. Throws Failure (failed).
  void prepareLog() const;

  /// Throws Failure (usage) when the folder belongs to another pair.
  void refuseOtherPair() const;
  /// Whether the folder has belonged to its pair since an earlier run.
  bool claimed() const;
  /// Whether archives of the pair get encrypted names from here.
  bool namesRemembered() const;
  void rememberNames(bool encrypted) const;  ///< throws Failure (failed)
  /// Keeps what a run told the host, what failed, and what it left for later. Throw Failure (failed).
  void keepNotifications(const std::wstring& text) const;
  void keepFailed(const std::wstring& text) const;
  void keepWaiting(const std::wstring& text) const;
  /// The same of the last run; an empty list, with a complaint, when it cannot be read, and one without when there is
  /// none.
  std::wstring notifications() const;
  std::wstring failed() const;
  std::wstring waiting() const;

  std::wstring name() const { return genericOf(root_); }
  std::wstring state() const { return genericOf(root_ / "state"); }
  std::wstring temp() const { return genericOf(root_ / "temp"); }
  std::wstring log() const { return genericOf(root_ / "log"); }
  std::wstring readingLog() const { return genericOf(root_ / "log" / "reading"); }
  boost::filesystem::path keyFile() const { return root_ / "key"; }
  boost::filesystem::path newKeyFile() const { return root_ / "key.new"; }
  boost::filesystem::path oldKeyFile() const { return root_ / "key.old"; }
  bool keyChangePending() const;
  /// Throws Failure (failed) while a change of keys is not finished: some archives are under either key.
  void requireNoKeyChange() const;

private:
  boost::filesystem::path pairFile() const { return root_ / "pair"; }
  boost::filesystem::path lockFile() const { return root_ / "lock"; }
  void createFolders() const;
  void takeLock();
  void removeUnused();

  boost::filesystem::path root_;
  std::wstring pairText_;
  std::vector<boost::filesystem::path> made_;  ///< by open(): the folder and those above it, the outermost first
  std::unique_ptr<platform::LockFile> lock_;
};

}  // namespace host
}  // namespace Kelta
