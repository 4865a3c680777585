// SPDX-License-Identifier: Apache-2.0
// A file and a folder of one name. On the Outside both can stand ("x.kelta" and "x/"), on the Inside they cannot. The
// folder keeps the name, since much may lie below it; the file goes on under a conflict name on the device that
// notices it, on each side where it is, and so reaches the other devices as a rename. Ended in between, the next scan
// finds a rename, or an addition and a deletion.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {
namespace {

using platform::Kind;

constexpr int kConflictNames = 8;

}  // namespace

bool SyncPair::isFolderOfPair(const std::wstring& path) {
  return stampUnderName(path).kind == Kind::folder && !handler_->ignore(platform::pathOf(path));
}

// Whether a folder, on either side, has the name of the file that is to be carried over.
bool SyncPair::clashesWithFolder(const std::wstring& key, const SyncObject& so) {
  if (stampUnderName(so.fullPath).kind != Kind::file) return false;
  return isFolderOfPair(joinPath(sourceFolder_, key)) || isFolderOfPair(joinPath(destFolder_, key));
}

bool SyncPair::wasFile(const std::wstring& key) const {
  const std::wstring path = joinPath(sourceFolder_, key);
  const auto known = srcStateList.find(path);
  return known != srcStateList.end() && !recordedAsFolder(true, path, known->second);
}

// A file in whose place the source side has a folder now: its deletion goes ahead of what is to lie in the folder,
// since a device that met both would take them for a clash. False while it is still to be found, or did not succeed.
bool SyncPair::carryFormerFile(const Side& from, const Side& to, const std::wstring& key) {
  if (!wasFile(key)) return true;
  const auto pending = from.list.find(key);
  if (pending != from.list.end() && pending->second.deletion && !pending->second.isFolder) {
    const SyncObject deletion = pending->second;
    from.list.erase(pending);
    resolveEntry(from, to, key, deletion);
    return !wasFile(key);
  }
  return !from.inside || stampUnderName(joinPath(from.root, key)).kind == Kind::file;
}

// Whether everything on the way to a place is a folder, or will be made one.
bool SyncPair::clearWay(const Side& from, const Side& to, const std::wstring& key, bool isFolder) {
  std::vector<std::wstring> above;
  for (std::wstring each = isFolder ? key : parentOf(key); !each.empty(); each = parentOf(each)) above.push_back(each);
  for (auto each = above.rbegin(); each != above.rend(); ++each) {
    if (!carryFormerFile(from, to, *each)) return false;
  }
  if (!to.inside) return true;
  for (const std::wstring& each : above) {
    const platform::Kind kind = stampUnderName(joinPath(to.root, each)).kind;
    if (kind == Kind::file) return putFileAside(each);
    if (kind != Kind::missing) break;
  }
  return true;
}

// Several devices may notice the same: they come to one name, under which `file`, when it has no archive of its own any
// more, may stand on the Outside already. Empty: none is free, or fits.
std::wstring SyncPair::keyAside(const std::wstring& key, std::int64_t time, const std::wstring& file) {
  std::wstring copy = conflictNameOf(key, sharedConflictSuffix(key, time));
  for (int attempt = 0; attempt < kConflictNames; ++attempt) {
    const std::wstring inside = joinPath(sourceFolder_, copy);
    const std::vector<std::wstring> archives = archivePaths(copy);
    bool fits = !archives.empty() && inside.size() <= kMaxPathCharacters;
    for (const std::wstring& archive : archives) fits = fits && archive.size() <= kMaxPathCharacters;
    if (!fits) return std::wstring();
    const Archives there = archivesThere(copy);
    const bool itsOwn = there.size() == 1 && !file.empty() && holdsContent(there.begin()->first, file);
    if (stampUnderName(inside).kind == Kind::missing && (there.empty() || itsOwn)) return copy;
    copy = conflictNameOf(key, clock_->nowSeconds());
  }
  return std::wstring();
}

// Each archive keeps the form of its name. False when one was left.
bool SyncPair::moveArchivesAside(const std::wstring& key, const std::wstring& copy, const Archives& archives) {
  const std::vector<std::wstring> from = archivePaths(key);
  const std::vector<std::wstring> to = archivePaths(copy);
  bool all = true;
  for (std::size_t i = 0; i < from.size(); ++i) {
    if (archives.count(from[i]) == 0) continue;
    const std::wstring& target = to[i < to.size() ? i : 0];
    const auto record = destStateList.find(from[i]);
    if (!moveFile(from[i], target)) {
      all = false;
      continue;
    }
    if (record != destStateList.end()) {
      destStateList[target] = record->second;
      destStateList.erase(record);
    }
    givenUp_.erase(from[i]);
    handler_->deleteStatus(true, from[i]);
    waiting_.forget(from[i]);
  }
  return all;
}

// False when it could not be done; `copy` is empty then, or the part that is there is found by the next scan.
bool SyncPair::moveFileAside(const std::wstring& key, std::wstring& copy) {
  const std::wstring inside = joinPath(sourceFolder_, key);
  const std::wstring counted = archiveFor(key);
  const Archives archives = archivesThere(key);
  const platform::FileStamp plain = stampUnderName(inside);
  const bool here = plain.kind == Kind::file;
  if (!here && archives.empty()) return false;
  if (reachFolder(sourceFolder_, parentOf(inside)).reach == Reach::refused ||
      reachFolder(destFolder_, parentOf(joinPath(destFolder_, key))).reach == Reach::refused)
    return false;
  const bool synced = here && archives.count(counted) > 0 && isInSync(key, inside, counted);
  copy = keyAside(key, here ? plain.seconds() : archives.begin()->second.seconds(),
                  archives.empty() ? inside : std::wstring());
  if (copy.empty()) return false;
  const std::wstring insideCopy = joinPath(sourceFolder_, copy);
  if (here && !moveFile(inside, insideCopy)) return false;
  if (synced) srcStateList[insideCopy] = srcStateList.at(inside);
  const bool moved = moveArchivesAside(key, copy, archives);
  platform::syncFolder(platform::pathOf(parentOf(insideCopy)));
  platform::syncFolder(platform::pathOf(parentOf(joinPath(destFolder_, copy))));
  forgetBoth(key, false);
  if (!synced || !moved) forgetBoth(copy, false);
  return moved;
}

// What is pending of the file goes with its name. True when the name is free for the folder.
bool SyncPair::putFileAside(const std::wstring& key) {
  requireIntactRoot(side(true));
  requireIntactRoot(side(false));
  const std::wstring inside = joinPath(sourceFolder_, key);
  if (stampUnderName(inside).kind == Kind::file &&
      (isFileLocked(inside) || platform::isOpenForWriting(platform::pathOf(inside)))) {
    if (waiting_.note(inside, L"in-use")) report(L"changing", inside);
    return false;
  }
  std::wstring copy;
  bool moved = false;
  try {
    moved = moveFileAside(key, copy);
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
  }
  if (!moved) {
    copyProblem_ = L"a folder has the same name";
    copyFailed(side(true), key, SyncObject{false, 0, inside, std::wstring(), false, {}});
    return false;
  }
  for (SyncList* const list : {&srcSyncList, &destSyncList}) {
    const auto pending = list->find(key);
    if (pending != list->end() && !pending->second.isFolder) list->erase(pending);
  }
  spares_.erase(key);
  waiting_.forget(inside);
  handler_->deleteStatus(true, inside);
  stateChanged_ = renameOccurred_ = true;
  ++successfulEvents_;
  notify(L"SYNC", L"Conflict: a folder has the name of the file " + jsonEscaped(nameOf(key)) + L", which was kept as " +
                      jsonEscaped(nameOf(copy)));
  report(L"conflict", joinPath(sourceFolder_, copy));
  carryAside(copy);
  return true;
}

// Where it is on both sides it is in sync, or the next scan merges it.
void SyncPair::carryAside(const std::wstring& copy) {
  const std::wstring inside = joinPath(sourceFolder_, copy);
  const platform::FileStamp plain = stampUnderName(inside);
  const Archives archives = archivesThere(copy);
  if ((plain.kind == Kind::file) != archives.empty()) return;
  const bool here = archives.empty();
  const std::wstring& path = here ? inside : archives.begin()->first;
  const platform::FileStamp& stamp = here ? plain : archives.begin()->second;
  carryCopy(side(here), side(!here), copy, SyncObject{false, stamp.seconds(), path, std::wstring(), false, stamp},
            nullptr);
}

// An addition of a file on one side and of a folder on the other.
void SyncPair::settleKindClash(const Side& one, const Side& two, const std::wstring& key, const SyncObject& so,
                               const SyncObject& so2) {
  PAIR_INFO("a file on one side, a folder on the other: %s", utf8(key).c_str());
  if (!putFileAside(key)) return;
  if (so.isFolder) return carryCopy(one, two, key, so, nullptr);
  carryCopy(two, one, key, so2, nullptr);
}

}  // namespace Kelta
