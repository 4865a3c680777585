// SPDX-License-Identifier: Apache-2.0
// Scans limited to some folders, as a folder watcher reports them: their direct entries, and everything below a folder
// that is new, or that has gone.
#include <algorithm>
#include <deque>
#include <set>

#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

constexpr std::size_t kLoggedEntries = 20;
const char kLabel[] = "[subset scan] ";

// The direct child of `folder` that `path` is, or lies below.
std::wstring childOf(const std::wstring& folder, const std::wstring& path) {
  return path.substr(0, path.find(L'/', joinPath(folder, L"").size()));
}

const void* addressOf(const StateList& list) { return &list; }

}  // namespace

// Whether a scan of the whole side would come to the folder: a watcher tells of what lies in ignored folders, behind
// links and under short names as well.
bool SyncPair::isScanned(const Side& side, const std::wstring& folder) {
  for (std::wstring path = folder; path.size() > side.root.size(); path = parentOf(path)) {
    const boost::filesystem::path entry = platform::pathOf(path);
    const platform::Kind kind = platform::stampOf(entry).kind;
    if (kind != platform::Kind::folder && kind != platform::Kind::unknown) return false;
    if (keyOf(side, path, true).empty() || handler_->ignore(entry) || platform::hasOtherName(entry)) {
      PAIR_DEBUG_OF("scanForUpdates", "[subset scan] Ignored: (%d) %s", static_cast<int>(path.size()),
                    utf8(path).c_str());
      return false;
    }
  }
  return true;
}

// The listed folders as this pair spells them, each once. What lies in neither side is left out. With a folder in whose
// place a file was goes the one that they are in: there the file shows as deleted, or renamed.
std::vector<std::wstring> SyncPair::ownFolders(const std::vector<std::wstring>& folderList) {
  std::vector<std::wstring> folders;
  std::set<std::wstring> seen;
  for (const std::wstring& listed : folderList) {
    std::wstring folder;
    const bool own = ownSpelling(listed, folder) && platform::liesBelow(folder, sideOf(folder).root);
    if (!own) PAIR_ERROR("%s lies in neither folder of the pair", utf8(listed).c_str());
    if (!own) continue;
    if (seen.insert(folder).second) folders.push_back(folder);
    const Side side = sideOf(folder);
    for (; folder.size() > side.root.size(); folder = parentOf(folder)) {
      const std::wstring parent = parentOf(folder);
      if (wasFile(keyOf(side, folder, true)) && seen.insert(parent).second) folders.push_back(parent);
    }
  }
  return folders;
}

SyncPair::ScanResult SyncPair::scanForUpdates(std::vector<std::wstring> folderList) {
  PAIR_DEBUG("folderList size = %d", static_cast<int>(folderList.size()));
  handler_->beginOperation();
  ScanResult result;
  std::set<std::wstring> seen;
  int number = 0;
  for (const std::wstring& start : ownFolders(folderList)) {
    PAIR_DEBUG("folderList entry %d - %s", number++, utf8(start).c_str());
    const Side scanned = sideOf(start);
    requireIntactRoot(scanned);
    PAIR_DEBUG("tmpap = %s", utf8(start).c_str());
    if (scanned.inside)
      PAIR_DEBUG("stateList = %p srcStateList = %p", addressOf(scanned.state), addressOf(srcStateList));
    else
      PAIR_DEBUG("stateList = %p destStateList = %p", addressOf(scanned.state), addressOf(destStateList));
    if (!isScanned(scanned, start)) continue;
    Walk walk{scanned, kCheckInterval, __func__, kLabel, {}};
    std::deque<std::wstring> queue{start};
    while (!queue.empty()) {
      interruption_->check();
      const std::wstring folder = queue.front();
      queue.pop_front();
      const auto stamp = platform::stampOf(platform::pathOf(folder));
      if (!seen.insert(folder).second || stamp.kind == platform::Kind::missing) continue;
      requireRoots();
      // Somebody waits for the listed folder; only what is below a new one is as large as it likes.
      walk.checkInterval = folder == start ? 0 : kCheckInterval;
      std::vector<std::wstring> folders;
      scanFolder(walk, folder, folders);
      const std::size_t before = queue.size();
      for (const auto& found : folders) {
        if (scanned.state.count(found) == 0) queue.push_back(found);
      }
      PAIR_DEBUG("any subfolders to scan? %d", static_cast<int>(queue.size() - before));
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
  Walk walk{{scanned.inside, scanned.root, stateList, syncList}, checkInterval, __func__, kLabel, {}};
  PAIR_DEBUG("stateList (%p) = srcStateList (%p)? answer: %s", addressOf(stateList), addressOf(srcStateList),
             log::truth(&stateList == &srcStateList));
  PAIR_DEBUG("stateList size() = %d", static_cast<int>(stateList.size()));
  const auto added = std::count_if(walk.side.list.begin(), walk.side.list.end(),
                                   [](const auto& entry) { return entry.second.isFolder && !entry.second.deletion; });
  PAIR_DEBUG("[subset scan] subfoldersFromAdd.size() = %d", static_cast<int>(added));
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
      const platform::Kind kind = platform::stampOf(platform::pathOf(path)).kind;
      PAIR_DEBUG("Exists on disk? %s", log::truth(kind != platform::Kind::missing));
      if (kind != platform::Kind::folder || walk.renamed.count(path) > 0) checkRecordsBelow(walk, path);
      // Names such as "d.txt" sort between "d" and "d/x".
      record = std::next(record);
      while (record != below.second && parentOf(record->first) != listed.first &&
             stateList.count(childOf(listed.first, record->first)) > 0) {
        PAIR_DEBUG("[subset scan] didn't find state entry parent in user folderList, skipping check. entryParent = %s",
                   utf8(parentOf(record->first)).c_str());
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
  for (const std::wstring& folder : ownFolders(folderList)) sides[isSrcFolder(folder) ? 0 : 1][folder] = true;
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
