// SPDX-License-Identifier: Apache-2.0
// What the scans put aside for the rename resolution: each added and each deleted entry with what it is recognised by.
//
//     a file                     its content hash; an empty file has none and is never taken for a renamed one
//     a folder of the Inside     its identifier, which follows it in its ".rid"
//     a folder of the Outside    what is directly in it, since its time alone tells little: cloud clients set their own
#include <algorithm>
#include <set>

#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

// The hash of a folder of the Inside that could not be marked is the "+" alone.
bool isMark(const std::wstring& hash) { return !hash.empty() && hash != L"+"; }

// Identifiers of more than one folder: what is in one was copied into another, the ".rid" included.
std::set<std::wstring> sharedIds(const StateList& state) {
  std::set<std::wstring> seen;
  std::set<std::wstring> shared;
  for (const auto& record : state) {
    const std::wstring& hash = record.second[1];
    if (isMark(hash) && hash[0] == L'+' && !seen.insert(hash).second) shared.insert(hash);
  }
  return shared;
}

// The entries below a folder, as a range.
template <class Map>
auto rangeBelow(Map& map, const std::wstring& folder) {
  const std::wstring prefix = joinPath(folder, L"");
  std::wstring behind = prefix;
  ++behind.back();
  return std::make_pair(map.lower_bound(prefix), map.lower_bound(behind));
}

// The names and hashes directly in a folder; where no file is among them, with its time and what is in its folders.
std::wstring contentsOf(const RenameHashes& hashes, const std::wstring& folder) {
  const auto below = rangeBelow(hashes, folder);
  std::wstring files;
  std::wstring folders;
  std::wstring deeper;
  for (auto entry = below.first; entry != below.second; ++entry) {
    if (parentOf(entry->first) != folder) continue;
    const std::wstring name = nameOf(entry->first);
    if (!entry->second.isFolder) {
      files += name + L'\n' + entry->second.hash + L'\n';
      continue;
    }
    folders += name + L"/\n";
    if (files.empty()) deeper += contentsOf(hashes, entry->first) + L'\n';
  }
  if (!files.empty()) return files + folders;
  const auto own = hashes.find(folder);
  return folders.empty() || own == hashes.end() ? std::wstring() : own->second.hash + L'\n' + folders + deeper;
}

}  // namespace

void SyncPair::putRenameHashAdd(const std::wstring& path, const std::wstring& hash, bool isFolder) {
  if (isMark(hash)) renameAdds_[isSrcFolder(path) ? 0 : 1][path] = {hash, isFolder};
}

void SyncPair::putRenameHashDel(const std::wstring& path, const std::wstring& hash, bool isFolder) {
  if (isMark(hash)) renameDels_[isSrcFolder(path) ? 0 : 1][path] = {hash, isFolder};
}

void SyncPair::clearRenameHashes(const Side& side) {
  renameAdds_[side.inside ? 0 : 1].clear();
  renameDels_[side.inside ? 0 : 1].clear();
}

void SyncPair::forgetRenameHashes(const Side& side, const std::wstring& folder) {
  for (RenameHashes* hashes : {&renameAdds_[side.inside ? 0 : 1], &renameDels_[side.inside ? 0 : 1]}) {
    const auto below = rangeBelow(*hashes, folder);
    hashes->erase(below.first, below.second);
    hashes->erase(folder);
  }
}

// The candidates that are still pending as the scan left them.
std::vector<RenameCandidate> SyncPair::renameCandidates(const Side& side, bool deleted, bool folders) {
  const RenameHashes& hashes = (deleted ? renameDels_ : renameAdds_)[side.inside ? 0 : 1];
  std::vector<RenameCandidate> candidates;
  std::set<std::wstring> shared;
  if (side.inside && deleted && folders && !hashes.empty()) shared = sharedIds(side.state);
  for (const auto& entry : hashes) {
    if (entry.second.isFolder != folders || shared.count(entry.second.hash) > 0) continue;
    const std::wstring key = keyOf(side, entry.first, folders);
    const auto pending = side.list.find(key);
    if (pending == side.list.end() || pending->second.fullPath != entry.first) continue;
    if (pending->second.deletion != deleted || pending->second.isFolder != folders) continue;
    if ((side.state.count(entry.first) > 0) != deleted) continue;
    const std::wstring hash = folders && !side.inside ? contentsOf(hashes, entry.first) : entry.second.hash;
    if (!hash.empty()) candidates.push_back({key, hash, pending->second.timestamp, folders});
  }
  return candidates;
}

// A folder was copied together with its identifier when another one that is still there carries the same: it gets one
// of its own. `alsoNew`: also of several new folders with the same one all but the first do; none is a renamed one
// then.
void SyncPair::renewCopiedIds(bool alsoNew) {
  RenameHashes& added = renameAdds_[0];
  if (std::none_of(added.begin(), added.end(), [](const auto& entry) { return entry.second.isFolder; })) return;
  std::set<std::wstring> taken{getFolderRenameId(sourceFolder_)};
  for (const auto& record : srcStateList) {
    if (!recordedAsFolder(true, record.first, record.second)) continue;
    const auto pending = srcSyncList.find(keyOf(side(true), record.first, true));
    if (pending == srcSyncList.end() || !pending->second.deletion) taken.insert(record.second[1]);
  }
  for (auto entry = added.begin(); entry != added.end();) {
    const std::wstring& id = entry->second.hash;
    const bool copied = entry->second.isFolder && taken.count(id) > 0;
    if (alsoNew && entry->second.isFolder) taken.insert(id);
    if (copied && renewFolderRenameId(entry->first)) PAIR_INFO("a copy: %s", utf8(entry->first).c_str());
    entry = copied ? added.erase(entry) : std::next(entry);
  }
}

}  // namespace Kelta
