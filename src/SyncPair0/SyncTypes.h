// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/Files.h"

namespace Kelta {

/// A record of the state: last-write time in seconds since the epoch as decimal text, and the content hash.
using StateRecord = std::vector<std::wstring>;

/// What one side looked like when it was last in sync: generic full path → record.
using StateList = std::map<std::wstring, StateRecord>;

/// The records strictly below a folder, as a range of the list.
std::pair<StateList::const_iterator, StateList::const_iterator> recordsBelow(const StateList& list,
                                                                             const std::wstring& folder);

/// After how many entries a scan looks whether it has been interrupted.
constexpr int kCheckInterval = 500;

/// The first record that is neither `path` nor below it, for a walk that skips a subtree.
StateList::const_iterator recordBehind(const StateList& list, const std::wstring& path);

/// The recorded time in seconds; 0 for a record without one.
std::int64_t recordedTime(const StateRecord& record);

/// What is recorded of an entry that is not, or may not be, what its counterpart holds: a time before any that it can
/// have, so that it counts as an update whatever time it gets, and its absence as a deletion.
std::int64_t unseenTime(const platform::FileStamp& stamp);
bool isUnseen(const StateRecord& record, const platform::FileStamp& stamp);

/// One pending change of one side. Valid when it has a path.
struct SyncObject {
  bool deletion = false;
  std::int64_t timestamp = 0;  ///< last-write time, seconds since the epoch; for a deletion the recorded one; for
                               ///< versions of which none is newer, the same on both sides
  std::wstring fullPath;
  std::wstring fileHash;
  bool isFolder = false;
  platform::FileStamp stamp;  ///< as the scan saw it; `missing` where only the time is known
};

/// Whether an entry is what the scan saw.
bool isAsScanned(const platform::FileStamp& now, const SyncObject& scanned);

/// Pending changes of one side by key: the plain path relative to the root, the same on both sides.
using SyncList = std::map<std::wstring, SyncObject>;

/// What a scan puts aside for the rename resolution: full path → what the entry is recognised by.
struct RenameHash {
  std::wstring hash;
  bool isFolder = false;
};
using RenameHashes = std::map<std::wstring, RenameHash>;

/// How much of a file its content hash covers, in bytes: the beginning.
constexpr std::uint64_t kHashedBytes = 5000 * 1024;

/// A folder of the pair is missing, or has lost everything that was known in it.
class RootMissing : public std::exception {
public:
  const char* what() const noexcept override { return "a folder of the pair is missing"; }
};

}  // namespace Kelta
