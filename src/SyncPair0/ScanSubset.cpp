// SPDX-License-Identifier: Apache-2.0
// Scans limited to some folders, as a folder watcher reports them: their direct entries, and everything below a folder
// that is new, or that has gone.
#include <deque>
#include <set>

#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr int kCheckInterval = 500;
constexpr std::size_t kLoggedEntries = 20;
const char kLabel[] = "[subset scan] ";

// The direct child of `folder` that `path` is, or lies below.
std::wstring childOf(const std::wstring& folder, const std::wstring& path) {
  return path.substr(0, path.find(L'/', joinPath(folder, L"").size()));
}

}  // namespace

SyncPair::ScanResult SyncPair::scanForUpdates(std::vector<std::wstring> folderList) {
  PAIR_DEBUG("folderList size = %d", static_cast<int>(folderList.size()));
  handler_->beginOperation();
  ScanResult result;
  std::set<std::wstring> seen;
  for (std::size_t i = 0; i < folderList.size(); ++i) {
    const std::wstring start = folderForm(folderList[i]);
    PAIR_DEBUG("folderList entry %d - %s", static_cast<int>(i), utf8(start).c_str());
    const Side scanned = sideOf(start);
    if (!platform::liesBelow(start, scanned.root)) {
      PAIR_ERROR("%s lies in neither folder of the pair", utf8(start).c_str());
      continue;
    }
    requireIntactRoot(scanned);
    Walk walk{scanned, kCheckInterval, kLabel, {}, {}};
    std::deque<std::wstring> queue{start};
    while (!queue.empty()) {
      interruption_->check();
      const std::wstring folder = queue.front();
      queue.pop_front();
      const auto stamp = platform::stampOf(platform::pathOf(folder));
      if (!seen.insert(folder).second || stamp.kind == platform::Kind::missing) continue;
      requireRoots();
      std::vector<std::wstring> folders;
      scanFolder(walk, folder, folders);
      PAIR_DEBUG("any subfolders to scan? %d", static_cast<int>(walk.newFolders.size()));
      queue.insert(queue.end(), walk.newFolders.begin(), walk.newFolders.end());
      walk.newFolders.clear();
    }
    result += walk.result;
  }
  return result;
}

SyncPair::ScanResult SyncPair::scanForDeletes(std::wstring syncFolder, StateList& stateList, SyncList& syncList,
                                              int checkInterval, std::map<std::wstring, bool> folderList) {
  const Side scanned = sideOf(syncFolder);
  PAIR_DEBUG("folderList.size() %d", static_cast<int>(folderList.size()));
  requireIntactRoot(scanned);
  Walk walk{{scanned.inside, scanned.root, stateList, syncList}, checkInterval, kLabel, {}, {}};
  PAIR_DEBUG("stateList size() = %d", static_cast<int>(stateList.size()));
  std::size_t logged = 0;
  for (const auto& listed : folderList) {
    if (logged < kLoggedEntries) PAIR_DEBUG("folderList entry: %s", utf8(listed.first).c_str());
    if (logged++ == kLoggedEntries) PAIR_DEBUG("... ^ Remaining entries truncated ...");
    const auto below = recordsBelow(stateList, listed.first);
    auto record = below.first;
    while (record != below.second) {
      interruption_->check();
      const std::wstring path = record->first;
      PAIR_DEBUG("[subset scan] does this entry from state exist on disk? %s", utf8(path).c_str());
      checkRecord(walk, path, record->second);
      const bool gone = platform::stampOf(platform::pathOf(path)).kind == platform::Kind::missing;
      PAIR_DEBUG("Exists on disk? %s", log::truth(!gone));
      if (gone) checkRecordsBelow(walk, path);
      // Names such as "d.txt" sort between "d" and "d/x".
      record = std::next(record);
      while (record != below.second && parentOf(record->first) != listed.first &&
             stateList.count(childOf(listed.first, record->first)) > 0) {
        record = recordBehind(stateList, childOf(listed.first, record->first));
      }
    }
    // The listed folder itself may be what has gone.
    const auto own = stateList.find(listed.first);
    if (own != stateList.end()) checkRecord(walk, own->first, own->second);
  }
  if (walk.result.total() > 0) requireIntactRoot(scanned);
  return walk.result;
}

void SyncPair::subScanForUpdates(std::vector<std::wstring> folderList) {
  if (folderList.empty()) return;
  placeMarkers();
  scanForUpdates(std::move(folderList));
}

void SyncPair::subScanForDeletes(std::vector<std::wstring> folderList) {
  if (folderList.empty()) return;
  placeMarkers();
  std::map<std::wstring, bool> sides[2];
  for (const auto& listed : folderList) {
    const std::wstring folder = folderForm(listed);
    const Side scanned = sideOf(folder);
    if (platform::liesBelow(folder, scanned.root)) sides[scanned.inside ? 0 : 1][folder] = true;
  }
  if (!sides[0].empty()) scanForDeletes(sourceFolder_, srcStateList, srcSyncList, kCheckInterval, sides[0]);
  if (!sides[1].empty()) scanForDeletes(destFolder_, destStateList, destSyncList, kCheckInterval, sides[1]);
}

void SyncPair::subScanForChanges(std::vector<std::wstring> folderList) {
  for (const auto& listed : folderList) PAIR_DEBUG("folderList entry = %s", utf8(listed).c_str());
  PAIR_DEBUG("subset scan #%d", 1);
  subScanForUpdates(folderList);
  subScanForDeletes(std::move(folderList));
}

}  // namespace Kelta
