// SPDX-License-Identifier: Apache-2.0
// Deletions of one side: records whose entry is gone. Only an entry that the system says is not there counts as gone;
// one that it refuses to tell about (no right to look, an I/O error) is left alone, since taking it for deleted
// would delete its counterpart.
#include <algorithm>

#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {

void SyncPair::purgeSyncListByPrefix(SyncList& list, const std::wstring& parentPath) {
  PAIR_DEBUG("parentPath: %s", utf8(parentPath).c_str());
  auto entry = list.lower_bound(joinPath(parentPath, L""));
  while (entry != list.end() && platform::liesBelow(entry->first, parentPath)) {
    PAIR_DEBUG("checkpath: %s", utf8(entry->first).c_str());
    PAIR_DEBUG("delete from syncList: %s", utf8(entry->first).c_str());
    entry = list.erase(entry);
  }
}

// A pending change of the same key gives way when it tells of the very entry that is gone now, or of another kind of
// entry (the old one must go before the new one can take its name). A deletion never hides another file's addition.
void SyncPair::noteDeletion(Walk& walk, const std::wstring& path, const StateRecord& record, bool isFolder) {
  const std::wstring key = keyOf(walk.side, path, isFolder);
  PAIR_DEBUG_OF(walk.method, "relPath = %s", utf8(key).c_str());
  if (*walk.label != '\0')
    PAIR_DEBUG_OF(walk.method, "syncList.count(relPath) %d", static_cast<int>(walk.side.list.count(key)));
  if (key.empty()) return;
  const auto pending = walk.side.list.find(key);
  if (pending != walk.side.list.end()) {
    const bool replaced = pending->second.isFolder != isFolder;
    if (pending->second.deletion || (!replaced && pending->second.fullPath != path)) return;
    if (replaced) purgeSyncListByPrefix(walk.side.list, key);
  }
  stateChanged_ = true;
  PAIR_INFO_OF(walk.method, "%sDELETE: %s, fileHash: %s", walk.label, utf8(path).c_str(), utf8(record[1]).c_str());
  putRenameHashDel(path, record[1], isFolder);
  ++(isFolder ? walk.result.foldersDeleted : walk.result.filesDeleted);
  walk.side.list[key] = SyncObject{true, recordedTime(record), path, std::wstring(), isFolder, {}};
}

// A known folder that is a link now takes no part any more: what is, or is not, behind the link says nothing.
bool SyncPair::liesBehindLink(const Side& side, const std::wstring& path) {
  for (std::wstring folder = parentOf(path); folder.size() > side.root.size(); folder = parentOf(folder)) {
    if (platform::stampOf(platform::pathOf(folder)).kind == platform::Kind::symlink) return true;
  }
  return false;
}

// What is found there stands in a folder of another name.
bool SyncPair::liesBelowOtherName(const Side& side, const std::wstring& path) {
  for (std::wstring folder = parentOf(path); folder.size() > side.root.size(); folder = parentOf(folder)) {
    if (platform::hasOtherName(platform::pathOf(folder))) return true;
  }
  return false;
}

// Whether a vanished archive may be one of those whose names cannot be read: renaming keeps its time. In its own folder
// a newer one may be it as well, written again, or touched by a cloud client.
bool SyncPair::mayHaveUnreadName(const std::wstring& path, const StateRecord& record) const {
  const std::int64_t time = recordedTime(record);
  const auto own = unreadNames_.find(parentOf(path));
  if (own != unreadNames_.end() && !own->second.empty() && *own->second.rbegin() >= time) return true;
  return std::any_of(unreadNames_.begin(), unreadNames_.end(),
                     [&](const auto& folder) { return folder.second.count(time) > 0; });
}

void SyncPair::checkRecord(Walk& walk, const std::wstring& path, const StateRecord& record) {
  const bool isFolder = recordedAsFolder(walk.side.inside, path, record);
  const platform::Kind kind = platform::stampOf(platform::pathOf(path)).kind;
  const bool kindChanged = (kind == platform::Kind::file && isFolder) || (kind == platform::Kind::folder && !isFolder);
  if (kind == platform::Kind::unknown) PAIR_ERROR_OF(walk.method, "cannot look at %s", utf8(path).c_str());
  if (kind == platform::Kind::missing && liesBehindLink(walk.side, path)) return;
  if (kind == platform::Kind::missing && !walk.side.inside && !isFolder && mayHaveUnreadName(path, record)) {
    PAIR_INFO_OF(walk.method, "perhaps under a name that cannot be read here, not deleted: %s", utf8(path).c_str());
    return;
  }
  const bool renamed = walk.renamed.count(parentOf(path)) > 0 || platform::hasOtherName(platform::pathOf(path));
  if (renamed && isFolder) walk.renamed.insert(path);
  if (kind == platform::Kind::missing || kindChanged || renamed) noteDeletion(walk, path, record, isFolder);
}

void SyncPair::checkRecordsBelow(Walk& walk, const std::wstring& folder) {
  const auto below = recordsBelow(walk.side.state, folder);
  std::uint64_t counter = 0;
  for (auto record = below.first; record != below.second; ++record) {
    interruption_->check();
    ++counter;
    if (walk.checkInterval > 0 && counter % static_cast<std::uint64_t>(walk.checkInterval) == 0) spareDisk(1000);
    PAIR_DEBUG_OF(walk.method, "checking: %s", utf8(record->first).c_str());
    checkRecord(walk, record->first, record->second);
  }
}

SyncPair::ScanResult SyncPair::scanForDeletes(std::wstring syncFolder, StateList& stateList, SyncList& syncList,
                                              int checkInterval) {
  const Side scanned = sideOf(syncFolder);
  PAIR_DEBUG("%s", utf8(syncFolder).c_str());
  requireIntactRoot(scanned);
  Walk walk{{scanned.inside, scanned.root, stateList, syncList}, checkInterval, __func__, "", {}};
  checkRecordsBelow(walk, folderForm(std::move(syncFolder)));
  // A volume that went away during the walk looks like a mass deletion.
  if (walk.result.total() > 0) requireIntactRoot(scanned);
  return walk.result;
}

}  // namespace Kelta
