// SPDX-License-Identifier: Apache-2.0
// The names that the archive of one key may have: plain or encrypted, since devices turn encrypted names on at
// different times. There is one record for a key, that of the archive which counts; another one beside it is a spare.
#include "SyncPair0/SyncPair.h"
#include "SyncPair0/TimeSteps.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

platform::FileStamp lookUnderName(const std::wstring& path) {
  platform::FileStamp stamp = platform::stampOf(platform::pathOf(path));
  if (platform::hasOtherName(platform::pathOf(path))) stamp.kind = platform::Kind::missing;
  return stamp;
}

}  // namespace

std::wstring SyncPair::userPath(const std::wstring& path) {
  if (platform::pathOf(path).extension() != ".kelta" || !platform::liesBelow(path, destFolder_)) return path;
  const std::wstring plain = handler_->handleName(path);
  return plain.empty() ? path : joinPath(parentOf(path), plain);
}

// The one that a new archive gets comes first; none when that cannot be told now.
std::vector<std::wstring> SyncPair::archivePaths(const std::wstring& key) {
  const std::wstring plain = joinPath(destFolder_, key);
  std::vector<std::wstring> paths = handler_->archiveNames(plain);
  for (std::wstring& path : paths) path = joinPath(parentOf(plain), path);
  return paths;
}

// The archive that is recorded for the key, else one that is there, else the one to be made. Empty: it cannot be told
// now.
std::wstring SyncPair::archiveFor(const std::wstring& key) {
  const std::wstring plain = joinPath(destFolder_, key);
  // Mostly it has the name that it would get: those under all other keys need not be made.
  if (platform::pathOf(key).extension() != ".kelta") {
    const std::wstring first = joinPath(parentOf(plain), handler_->handleName(plain));
    if (destStateList.count(first) > 0) return first;
  }
  const std::vector<std::wstring> paths = archivePaths(key);
  for (const std::wstring& path : paths) {
    if (destStateList.count(path) > 0) return path;
  }
  for (const std::wstring& path : paths) {
    if (lookUnderName(path).kind == platform::Kind::file) return path;
  }
  return paths.empty() ? std::wstring() : paths.front();
}

SyncPair::Archives SyncPair::archivesThere(const std::wstring& key) {
  Archives archives;
  for (const std::wstring& path : archivePaths(key)) {
    const platform::FileStamp stamp = lookUnderName(path);
    if (stamp.kind == platform::Kind::file) archives[path] = stamp;
  }
  return archives;
}

// Nothing is known of the key: both sides are merged, as versions of one time where the times may be the same.
void SyncPair::mergeAnew(const std::wstring& key, const platform::FileStamp& archive) {
  forgetBoth(key, false);
  if (srcSyncList.count(key) > 0) return;
  const std::wstring inside = joinPath(sourceFolder_, key);
  const platform::FileStamp stamp = lookUnderName(inside);
  if (stamp.kind != platform::Kind::file) return;
  const std::int64_t time = mayBeOneTime(stamp, archive) ? archive.seconds() : stamp.seconds();
  srcSyncList[key] = SyncObject{false, time, inside, std::wstring(), false, stamp};
}

// A recorded archive is found under another name. A newer version shows as an update then; another version, older or of
// the same time, is merged.
void SyncPair::takeOverRecord(const std::wstring& key, const std::wstring& from, const std::wstring& to,
                              const platform::FileStamp& stamp) {
  const StateRecord record = destStateList[from];
  destStateList.erase(from);
  stateChanged_ = renameOccurred_ = true;
  const auto pending = destSyncList.find(key);
  if (pending != destSyncList.end() && pending->second.fullPath == from) destSyncList.erase(pending);
  PAIR_INFO("renamed: %s, now %s", utf8(from).c_str(), utf8(nameOf(to)).c_str());
  destStateList[to] = record;
  if (stamp.seconds() > recordedTime(record) || isKnown(side(false), key, to, stamp) == Known::yes) return;
  destStateList.erase(to);
  mergeAnew(key, stamp);
}

// Whether an archive that has no record is the one that counts for its key. One that was only renamed takes its record
// along. Of two the newer counts, of equally old ones that with the encrypted name: every device must come to the same
// choice, or each would remove what the other keeps.
bool SyncPair::countsForKey(const std::wstring& key, const std::wstring& path, const platform::FileStamp& stamp) {
  const std::wstring plainForm = joinPath(destFolder_, key) + L".kelta";
  bool counts = true;
  for (const std::wstring& other : archivePaths(key)) {
    if (other == path) continue;
    const auto record = destStateList.find(other);
    const bool recorded = record != destStateList.end();
    const platform::FileStamp otherStamp = lookUnderName(other);
    if (otherStamp.kind != platform::Kind::file) {
      if (recorded && otherStamp.kind == platform::Kind::missing) takeOverRecord(key, other, path, stamp);
      continue;
    }
    const bool first = other == plainForm || (path != plainForm && path < other);
    const bool wins = tellOrder(stamp, otherStamp) ? stamp.seconds() > otherStamp.seconds() : first;
    const bool known = recorded && isAsRecorded(side(false), other, otherStamp) == Known::yes &&
                       srcStateList.count(joinPath(sourceFolder_, key)) > 0;
    PAIR_INFO("two archives of one file, %s counts", utf8(nameOf(wins ? path : other)).c_str());
    spares_[key].emplace(wins ? other : path, Spare{wins ? otherStamp : stamp, wins && known});
    const auto pending = destSyncList.find(key);
    if (wins && pending != destSyncList.end() && pending->second.fullPath == other) destSyncList.erase(pending);
    if (wins && recorded) takeOverRecord(key, other, path, stamp);
    counts = counts && wins;
  }
  return counts;
}

bool SyncPair::renameArchives(const std::function<bool(const Renamed&)>& rename) {
  requireIntactRoot(side(true));
  requireIntactRoot(side(false));
  const auto follow = [&](const std::wstring& from, const std::wstring& to) {
    const auto record = destStateList.find(from);
    if (record == destStateList.end()) return;
    destStateList[to] = record->second;
    destStateList.erase(from);
    stateChanged_ = renameOccurred_ = true;
  };
  try {
    const bool done = rename(follow);
    writeState();
    return done;
  } catch (const boost::thread_interrupted&) {
    writeState();
    throw;
  }
}

}  // namespace Kelta
