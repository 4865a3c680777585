// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/Files.h"

namespace Kelta {

/// What the caller has seen of both ends of a copy and has judged. Only while it is so the copy is put in place.
struct CopyGuard {
  platform::FileStamp source;
  /// Every path that may be replaced; at any other nothing may stand.
  std::map<std::wstring, platform::FileStamp> targets;
  /// The time that the copy gets, in nanoseconds; 0: the source's.
  std::int64_t time = 0;
};

/// How a copy ended.
struct CopyOutcome {
  enum class Result {
    done,     ///< `written` appeared as `placed`
    settled,  ///< nothing was written and nothing is to be done: the archive was given up for want of its key
    changed,  ///< an end is not what the caller has seen, or is in use; nothing was placed
    damaged,  ///< the source was read as a whole and is beyond recovery
    failed,
  };
  Result result = Result::failed;
  std::wstring written;
  platform::FileStamp placed;
  std::wstring problem;  ///< why nothing was copied, for the user; empty where that is not known
};

/// How a deletion ended.
struct DeletionOutcome {
  std::pair<bool, bool> gone;       ///< the Inside entry, the Outside entry
  boost::system::error_code error;  ///< why the counterpart is still there, where the system told
};

/// Every operation of a pair on file contents and names. The order of the operations is part of the contract.
class ISyncCopyHandler {
public:
  /// Copies one file from one side to the other, transforming it. `dest` is the plain name on the
  /// target's side (the handler maps its last component). Returns success and the path actually
  /// written, empty when none was. The target carries the source's last-write time. Throws
  /// filesystem_error when a file could not be accessed.
  virtual std::pair<bool, std::wstring> copyFile(boost::filesystem::path src, boost::filesystem::path dest) = 0;

  /// Creates the counterpart `dest` of the folder `src`; true when it is there afterwards.
  virtual bool copyDir(boost::filesystem::path src, boost::filesystem::path dest) = 0;

  /// Makes a conflict copy of a file changed on both sides, given by its two full paths, that of the Outside with the
  /// plain name: the Outside version takes the plain name, the Inside version goes on under a conflict name. Returns
  /// the two paths of the conflict copy, formed like those given, source first; none when nothing was changed.
  virtual std::vector<std::wstring> conflictCopy(std::wstring& src, std::wstring& dest) = 0;

  /// Maps the name of a file to the other side's: one ending in ".kelta" to the plain name, any other to the
  /// archive's. `name` is a full path of either side, or a last component alone, which then belongs to the default
  /// asset; the result is a last component. Empty when it cannot be mapped now: no key, or a damaged name.
  virtual std::wstring handleName(std::wstring name) = 0;

  /// Is told the outcome of a deletion of `path`, or that what it named was renamed; what it knew of one that is gone
  /// it forgets.
  virtual void deleteStatus(bool deleted, std::wstring path) = 0;

  virtual ~ISyncCopyHandler();

  /// Whether a rename between the two may be carried out as one.
  virtual bool mayRename(std::wstring from, std::wstring to) = 0;

  /// True if the path must never be synchronised.
  virtual bool ignore(boost::filesystem::path path) = 0;

  /// Deletes the counterpart of a removed entry; a removed folder is given with a trailing "/", and its
  /// counterpart goes only when nothing but our own marker is left in it. Returns whether the Inside
  /// entry, and whether the Outside entry, is gone.
  virtual std::pair<bool, bool> doDelete(std::wstring path) = 0;

  /// The same as copyFile(), under the caller's guard; without one both ends must stay as they are when the copy
  /// begins. Throws as it does.
  virtual CopyOutcome copyGuarded(boost::filesystem::path src, boost::filesystem::path dest,
                                  const CopyGuard* guard) = 0;

  /// The same as doDelete(); the counterpart of a file goes only as long as it is `judged`.
  virtual DeletionOutcome deleteGuarded(std::wstring path, const platform::FileStamp& judged) = 0;

  /// Is told of a rename that was carried over, by paths relative to the roots.
  virtual void noteRenamed(std::wstring from, std::wstring to, bool isFolder) = 0;

  /// Is told that a file that changed on both sides turned out to need no copy: what was quarantined about the path no
  /// longer holds.
  virtual void foundInSync(std::wstring path) = 0;

  /// All the names that the archive of the plain path `path`, on either side, may have. The one that a new archive gets
  /// comes first. None when it cannot be told now.
  virtual std::vector<std::wstring> archiveNames(std::wstring path) = 0;

  /// An archive is about to be replaced or removed although nobody here could read it: a copy of it, as it is, goes to
  /// the recycle bin, or where there is none on under a conflict name beside it, once; the host is told. False when it
  /// could not be kept: then it must stay.
  virtual bool keepAsItIs(std::wstring archive) = 0;

  /// A scan, a resolution or another operation begins: whatever is remembered about folders and about keys that were
  /// asked for is looked at anew from here on.
  virtual void beginOperation() = 0;

  /// What tells this pair's Outside from another's: the same on every device of the pair and under every key, and
  /// nothing that would help to guess one. Empty as long as no key was installed.
  virtual std::string outsideMark() = 0;
};

}  // namespace Kelta
