// SPDX-License-Identifier: Apache-2.0
// Renames of one side, carried out on the other as what they are: found after the side's scan (RenameHashes.cpp),
// joined by a table (RenameMatch.cpp), and each looked at again right before it is done. Whatever is not exactly as
// recorded stays in the sync lists as a deletion and an addition, so the worst that can happen is a copy.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "SyncPair0/RenameJob.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

bool isRecorded(const StateList& state, const std::wstring& path) {
  const auto below = recordsBelow(state, path);
  return state.count(path) > 0 || below.first != below.second;
}

// A case-only rename finds the entry itself under its new name where case does not matter.
bool isFree(const std::wstring& target, const std::wstring& entry) {
  const auto path = platform::pathOf(target);
  if (platform::stampOf(path).kind == platform::Kind::missing) return true;
  return platform::hasOtherName(path) && platform::sameEntry(path, platform::pathOf(entry));
}

}  // namespace

void SyncPair::resolveRename(std::wstring folder) {
  if (!ok_ || !handler_) return;
  handler_->beginOperation();
  const Side one = sideOf(folder);
  const bool foldersMoved = resolveRenames(one);
  // What was pending below a folder was scanned anew under its new name.
  if (foldersMoved) resolveRenames(side(!one.inside));
  // What was scanned of the other side is still to be resolved.
  clearRenameHashes(one);
  if (renameOccurred_) saveRenames();
}

// True when a folder was renamed.
bool SyncPair::resolveRenames(const Side& one) {
  if (one.inside) renewCopiedIds(false);
  bool any = false;
  for (bool moved = true; moved; any = any || moved) {
    moved = false;
    for (const RenameMatch& match :
         matchRenames(renameCandidates(one, false, true), renameCandidates(one, true, true))) {
      moved = carryRename(one, match) || moved;
    }
  }
  if (one.inside) renewCopiedIds(true);
  for (const RenameMatch& match :
       matchRenames(renameCandidates(one, false, false), renameCandidates(one, true, false))) {
    carryRename(one, match);
  }
  return any;
}

// Done on the disk and not known to the state, a rename would have to be recognised again at the next start.
void SyncPair::saveRenames() {
  const bool changed = stateChanged_;
  for (const std::wstring& folder : renamedIn_) platform::syncFolder(platform::pathOf(folder));
  renamedIn_.clear();
  try {
    writeState();
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
  }
  stateChanged_ = changed;
}

bool SyncPair::carryRename(const Side& one, const RenameMatch& match) {
  interruption_->check();
  const Side two = side(!one.inside);
  const auto gone = one.list.find(match.from);
  const auto added = one.list.find(match.to);
  // An outer folder's rename may have taken both along.
  if (gone == one.list.end() || added == one.list.end() || !gone->second.deletion || added->second.deletion) {
    return false;
  }
  const RenameJob job{one,
                      two,
                      match,
                      gone->second.fullPath,
                      added->second.fullPath,
                      pathFor(two, match.from, match.isFolder),
                      pathFor(two, match.to, match.isFolder),
                      added->second.timestamp};
  PAIR_DEBUG("rename of %s to %s", utf8(job.ownFrom).c_str(), utf8(job.ownTo).c_str());
  if (!mayCarryRename(job) || !makeParents(job)) return false;
  try {
    return match.isFolder ? renameFolder(job) : renameFile(job);
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    return false;
  }
}

// What can be told without looking at the other side's disk.
bool SyncPair::mayCarryRename(const RenameJob& job) {
  if (job.from.empty() || job.to.empty()) return false;
  const auto own = job.one.state.find(job.ownFrom);
  const auto other = job.two.state.find(job.from);
  if (own == job.one.state.end() || other == job.two.state.end()) return false;
  if (recordedAsFolder(job.two.inside, other->first, other->second) != job.match.isFolder) return false;
  if (isRecorded(job.one.state, job.ownTo) || isRecorded(job.two.state, job.to)) return false;
  if (job.two.list.count(job.match.from) > 0 || job.two.list.count(job.match.to) > 0) return false;
  const bool fits = job.to.size() <= kMaxPathCharacters && platform::canStandAsName(nameOf(job.to)) &&
                    !isReservedName(nameOf(job.match.to), job.match.isFolder);
  if (!fits || busy_.count(job.from) > 0) return false;
  if (handler_->mayRename(job.ownFrom, job.ownTo)) return true;
  PAIR_INFO("not as a rename: %s", utf8(job.ownTo).c_str());
  return false;
}

// The new folders above the new name come first.
bool SyncPair::makeParents(const RenameJob& job) {
  std::vector<std::wstring> missing;
  for (std::wstring key = parentOf(job.match.to); !key.empty(); key = parentOf(key)) {
    if (job.two.state.count(pathFor(job.two, key, true)) == 0) missing.push_back(key);
  }
  for (auto key = missing.rbegin(); key != missing.rend(); ++key) {
    const auto pending = job.one.list.find(*key);
    if (pending == job.one.list.end() || pending->second.deletion || !pending->second.isFolder) return false;
    const auto clash = job.two.list.find(*key);
    if (clash != job.two.list.end() && (clash->second.deletion || !clash->second.isFolder)) return false;
    const SyncObject folder = pending->second;
    job.one.list.erase(*key);
    carryCopy(job.one, job.two, *key, folder, nullptr);
    if (job.two.state.count(pathFor(job.two, *key, true)) == 0) return false;
    job.two.list.erase(*key);
  }
  return true;
}

// A folder may have taken a file's name by now; an archive's is another one.
bool SyncPair::hasLeft(const RenameJob& job) {
  const bool folderCame = !job.match.isFolder && stampUnderName(job.ownFrom).kind == platform::Kind::folder;
  return folderCame || isFree(job.ownFrom, job.ownTo);
}

// The last look: both roots, the way to both places, the renamed entry itself.
bool SyncPair::isReady(const RenameJob& job) {
  requireIntactRoot(job.one);
  requireIntactRoot(job.two);
  const platform::FileStamp own = stampUnderName(job.ownTo);
  const bool asScanned = job.match.isFolder ? own.kind == platform::Kind::folder
                                            : own.kind == platform::Kind::file && own.seconds() == job.time;
  return asScanned && hasLeft(job) && reachFolder(job.two.root, parentOf(job.from)).reach == Reach::there &&
         reachFolder(job.two.root, parentOf(job.to)).reach == Reach::there;
}

// False, with nothing done, when it could not be done in one step: then it is carried over as a copy and a deletion.
bool SyncPair::moveFile(std::wstring src, std::wstring dest) {
  PAIR_DEBUG("src = %s", utf8(src).c_str());
  PAIR_DEBUG("dest = %s", utf8(dest).c_str());
  if (!isFree(dest, src)) {
    PAIR_INFO("destination is in use: %s", utf8(dest).c_str());
    return false;
  }
  try {
    if (!moveBelow(sideOf(src).root, src, dest)) {
      PAIR_INFO("destination is in use: %s", utf8(dest).c_str());
      return false;
    }
    // Some systems take a name that differs by case alone for the same, and report success.
    if (platform::hasOtherName(platform::pathOf(dest))) {
      PAIR_INFO("kept its name: %s", utf8(src).c_str());
      return false;
    }
    PAIR_DEBUG("boofs::rename() succeeded");
    renamedIn_.insert(parentOf(dest));
    return true;
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    PAIR_INFO("rename() failed, resorting to manual             (copy/delete in dest).");
    return false;
  }
}

void SyncPair::finishRename(const RenameJob& job) {
  renameOccurred_ = true;
  stateChanged_ = true;
  ++successfulEvents_;
  waiting_.forget(job.ownFrom);
  waiting_.forget(job.from);
  handler_->deleteStatus(true, job.ownFrom);
  handler_->deleteStatus(true, job.from);
  handler_->noteRenamed(job.match.from, job.match.to, job.match.isFolder);
  refreshParent(job.match.from);
  refreshParent(job.match.to);
  PAIR_INFO("renamed: %s, now %s", utf8(job.from).c_str(), utf8(job.to).c_str());
  notifyDone(L"Renamed " + jsonEscaped(nameOf(job.match.to)) + L" successfully.");
  report(L"rename", job.to);
}

}  // namespace Kelta
