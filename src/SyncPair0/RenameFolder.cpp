// SPDX-License-Identifier: Apache-2.0
// The rename of a folder: one move on the other side takes everything along, whatever was changed below it meanwhile.
// The records of both sides follow, and both new subtrees are scanned again: what changed shows under the new names.
#include "SyncPair0/RenameJob.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {}  // namespace

bool SyncPair::renameFolder(const RenameJob& job) {
  if (!isReady(job) || stampUnderName(job.from).kind != platform::Kind::folder) return false;
  if (!carryMove(job)) return false;
  followFolder(job.one, job.match, job.ownFrom, job.ownTo);
  followFolder(job.two, job.match, job.from, job.to);
  forgetOlder(job.one, job.ownTo);
  forgetOlder(job.two, job.to);
  finishRename(job);
  for (const Side& each : {job.one, job.two}) {
    const std::wstring folder = pathFor(each, job.match.to, true);
    scanForUpdates(folder, each.state, each.list, kCheckInterval);
    scanForDeletes(folder, each.state, each.list, kCheckInterval);
  }
  return true;
}

// A restored copy of the folder carries its identifier too, and on the other side another folder may have taken its
// place. The scan sees no file that is older than recorded, and the sides would differ for good: both are merged.
void SyncPair::forgetOlder(const Side& each, const std::wstring& folder) {
  std::vector<std::wstring> keys;
  const auto below = recordsBelow(each.state, folder);
  for (auto record = below.first; record != below.second; ++record) {
    if (recordedAsFolder(each.inside, record->first, record->second)) continue;
    const platform::FileStamp stamp = stampUnderName(record->first);
    if (stamp.kind != platform::Kind::file || stamp.seconds() >= recordedTime(record->second)) continue;
    const bool hashed = stamp.size < kHashedBytes;
    if (hashed && makeRecord(record->first, stamp.seconds())[1] == record->second[1]) continue;
    keys.push_back(keyOf(each, record->first, false));
  }
  for (const std::wstring& key : keys) {
    if (!key.empty()) forgetBoth(key, false);
  }
}

// The records of one side move; nothing below both names is pending any more.
void SyncPair::followFolder(const Side& each, const RenameMatch& match, const std::wstring& from,
                            const std::wstring& to) {
  // An archive that was given up is tried again under its new name.
  for (auto archive = givenUp_.lower_bound(joinPath(from, L"")); archive != givenUp_.end();) {
    if (!platform::liesBelow(*archive, from)) break;
    handler_->deleteStatus(true, *archive);
    each.state.erase(*archive);
    archive = givenUp_.erase(archive);
  }
  updateStateListByParent(from, to, each.state);
  each.state.erase(from);
  setState(each.state, to);
  for (const std::wstring& key : {match.from, match.to}) {
    purgeSyncListByPrefix(each.list, key);
    each.list.erase(key);
  }
  forgetRenameHashes(each, from);
  forgetRenameHashes(each, to);
}

}  // namespace Kelta
