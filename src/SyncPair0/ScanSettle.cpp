// SPDX-License-Identifier: Apache-2.0
// The scan of one whole side, repeated until it has settled: a tree that is still being written keeps producing
// changes. The Inside waits longer for folder activity (a folder being copied in) and gives up after six passes;
// the Outside, which its client fills file by file, after three.
#include <algorithm>

#include "SyncPair0/SyncPair.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr int kLastInsidePass = 4;
constexpr long kInsidePause = 1500;
constexpr long kFolderPause = 500;
constexpr long kMaxFolderPause = 4500;
constexpr long kOutsidePauseStep = 1000;
constexpr long kMaxOutsidePause = 2000;

}  // namespace

void SyncPair::settleSrc() {
  placeMarkers();
  for (int pass = 0;; ++pass) {
    const ScanResult updates = scanForUpdates(sourceFolder_, srcStateList, srcSyncList, kCheckInterval);
    PAIR_DEBUG_OF("scanSrcChanges", "srcSyncList.size=%d", static_cast<int>(srcSyncList.size()));
    const ScanResult deletes = scanForDeletes(sourceFolder_, srcStateList, srcSyncList, kCheckInterval);
    PAIR_DEBUG_OF("scanSrcChanges", "srcSyncList.size=%d", static_cast<int>(srcSyncList.size()));
    const long total = updates.total() + deletes.total();
    if (total == 0 || pass > kLastInsidePass) return;
    long pause = kInsidePause;
    if (updates.foldersAdded != 0 || deletes.foldersDeleted != 0) {
      pause += std::min(kFolderPause * total, kMaxFolderPause);
      PAIR_DEBUG_OF("scanSrcChanges", "l = %ld", total);
    }
    pause = settlingPause(srcSyncList, pause);
    PAIR_DEBUG_OF("scanSrcChanges", "rescan sleep for %ld", pause);
    sleepWithCheck(1, pause);
  }
}

void SyncPair::settleDest() {
  placeMarkers();
  for (long pause = kOutsidePauseStep;; pause += kOutsidePauseStep) {
    const ScanResult updates = scanForUpdates(destFolder_, destStateList, destSyncList, kCheckInterval);
    PAIR_DEBUG_OF("scanDestChanges", "destSyncList.size() = %d", static_cast<int>(destSyncList.size()));
    const ScanResult deletes = scanForDeletes(destFolder_, destStateList, destSyncList, kCheckInterval);
    PAIR_DEBUG_OF("scanDestChanges", "destSyncList.size() = %d", static_cast<int>(destSyncList.size()));
    if (updates.total() + deletes.total() == 0 || pause > kMaxOutsidePause) return;
    const long made = settlingPause(destSyncList, pause);
    PAIR_DEBUG_OF("scanDestChanges", "scan sleep for %ld", made);
    sleepWithCheck(1, made);
  }
}

void SyncPair::scanSrcChanges() {
  try {
    settleSrc();
    resolveRename(sourceFolder_);
  } catch (const RootMissing&) {
    srcSyncList.clear();
    clearRenameHashes(side(true));
  }
}

void SyncPair::scanDestChanges() {
  try {
    settleDest();
    resolveRename(destFolder_);
  } catch (const RootMissing&) {
    destSyncList.clear();
    clearRenameHashes(side(false));
  }
}

}  // namespace Kelta
