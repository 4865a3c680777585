// SPDX-License-Identifier: Apache-2.0
// The rename of a folder: one move on the other side takes everything along, whatever was changed below it meanwhile.
// The records of both sides follow, and both new subtrees are scanned again: what changed shows under the new names.
#include "SyncPair0/RenameJob.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr int kCheckInterval = 500;

}  // namespace

bool SyncPair::renameFolder(const RenameJob& job) {
  if (!isReady(job) || stampUnderName(job.from).kind != platform::Kind::folder) return false;
  if (!carryMove(job)) return false;
  followFolder(job.one, job.match, job.ownFrom, job.ownTo);
  followFolder(job.two, job.match, job.from, job.to);
  finishRename(job);
  for (const Side& each : {job.one, job.two}) {
    const std::wstring folder = pathFor(each, job.match.to, true);
    scanForUpdates(folder, each.state, each.list, kCheckInterval);
    scanForDeletes(folder, each.state, each.list, kCheckInterval);
  }
  return true;
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
