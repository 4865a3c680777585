// SPDX-License-Identifier: Apache-2.0
// The start-up state. Where a state file is missing or damaged, only what both sides agree on counts as known (the
// counterpart exists and, for files, carries the same time); everything else shows as an addition and is merged,
// nothing deleted.
#include <boost/filesystem/exception.hpp>

#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

bool isFileThere(const std::wstring& path) {
  return platform::stampOf(platform::pathOf(path)).kind == platform::Kind::file;
}

}  // namespace

void SyncPair::generateDirList(StateList& list, std::wstring folder) {
  PAIR_DEBUG("%s", utf8(folder).c_str());
  handler_->beginOperation();
  Walk walk{sideOf(folder), 0, __func__, "", {}, {}};
  std::vector<std::wstring> folders{folderForm(std::move(folder))};
  while (!folders.empty()) {
    interruption_->check();
    const std::wstring current = folders.back();
    folders.pop_back();
    std::vector<boost::filesystem::path> entries;
    if (!listFolder(__func__, current, entries)) continue;
    for (const auto& entry : entries) {
      std::wstring path;
      platform::FileStamp stamp;
      if (leftOut(walk, entry, path, stamp)) continue;
      list.emplace(path, makeRecord(path, stamp.seconds()));
      if (stamp.kind == platform::Kind::folder) folders.push_back(path);
    }
  }
}

// Where a file has two archives, none: both sides are merged.
StateList::const_iterator SyncPair::counterpartIn(const StateList& outside, const std::wstring& key, bool isFolder) {
  if (isFolder) return outside.find(pathFor(side(false), key, true));
  auto found = outside.end();
  for (const std::wstring& path : archivePaths(key)) {
    const auto match = outside.find(path);
    if (match == outside.end()) continue;
    if (found != outside.end()) return outside.end();
    found = match;
  }
  return found;
}

// What a record of time 0 tells, that the content there is not what the other side has, must not be forgotten where
// both carry one time. It is kept as long as the other side is as recorded; else, as when one file was lost, nothing is
// known of the two. True for such a pair.
bool SyncPair::keepUnsettled(const StateList::value_type& src, const StateList::value_type& dest,
                             const StateList& oldSrc, const StateList& oldDest) {
  const auto ownRecord = oldSrc.find(src.first);
  const auto otherRecord = oldDest.find(dest.first);
  const bool own = ownRecord != oldSrc.end();
  const bool other = otherRecord != oldDest.end();
  const bool ownUnsettled = own && recordedTime(ownRecord->second) == 0;
  const bool otherUnsettled = other && recordedTime(otherRecord->second) == 0;
  if (!ownUnsettled && !otherUnsettled) return false;
  const bool ownAsKnown = own && (ownUnsettled || ownRecord->second == src.second);
  const bool otherAsKnown = other && (otherUnsettled || otherRecord->second == dest.second);
  if (!ownAsKnown || !otherAsKnown) return true;
  srcStateList.insert(*ownRecord);
  destStateList.insert(*otherRecord);
  return true;
}

void SyncPair::stateMissingIndex() {
  placeMarkers();
  StateList inside;
  StateList outside;
  generateDirList(inside, sourceFolder_);
  generateDirList(outside, destFolder_);
  const StateList oldSrc = std::move(srcStateList);
  const StateList oldDest = std::move(destStateList);
  srcStateList.clear();
  destStateList.clear();
  for (const auto& entry : inside) {
    PAIR_DEBUG("stateMissingIndex() src: %s %s", utf8(entry.first).c_str(), utf8(entry.second[0]).c_str());
    const bool isFolder = recordedAsFolder(true, entry.first, entry.second);
    const std::wstring key = keyOf(side(true), entry.first, isFolder);
    const auto match = counterpartIn(outside, key, isFolder);
    if (match == outside.end()) continue;
    if (!isFolder && keepUnsettled(entry, *match, oldSrc, oldDest)) continue;
    if (!isFolder && match->second[0] != entry.second[0]) continue;
    PAIR_DEBUG("stateMissingIndex() match: %s %s", utf8(match->first).c_str(), utf8(match->second[0]).c_str());
    srcStateList.insert(entry);
    destStateList.insert(*match);
  }
  writeStateList(srcStateList, stateFiles_[0]);
  writeStateList(destStateList, stateFiles_[1]);
}

// What a damaged file still says cannot be trusted to tell a deletion.
bool SyncPair::rebuildNeeded() {
  if (!rootPresent(side(true))) return false;
  const bool replaced = outsideWasReplaced();
  return replaced || stateDamaged_ || !isFileThere(stateFiles_[0]) || !isFileThere(stateFiles_[1]);
}

// A record without its counterpart (a damaged line, a crash between the two files, a file that could not be opened
// for want of a key) would let a missing file pass for a deletion. Without it the entry is merged like a new one.
void SyncPair::dropUnpairedRecords() {
  givenUp_.clear();
  StateList paired;
  for (const auto& entry : srcStateList) {
    const bool isFolder = recordedAsFolder(true, entry.first, entry.second);
    const std::wstring key = keyOf(side(true), entry.first, isFolder);
    const auto match = key.empty() ? destStateList.end() : destStateList.find(pathFor(side(false), key, isFolder));
    if (match != destStateList.end()) paired.insert(*match);
  }
  for (auto entry = srcStateList.begin(); entry != srcStateList.end();) {
    const bool isFolder = recordedAsFolder(true, entry->first, entry->second);
    const std::wstring key = keyOf(side(true), entry->first, isFolder);
    const bool known = !key.empty() && paired.count(pathFor(side(false), key, isFolder)) > 0;
    if (!known) PAIR_INFO("no counterpart recorded for %s", utf8(entry->first).c_str());
    entry = known ? std::next(entry) : srcStateList.erase(entry);
  }
  destStateList.swap(paired);
}

// Without its record an archive that was given up shows as an addition.
void SyncPair::dropRetriedRecords() {
  for (const std::wstring& archive : retry_) {
    if (givenUp_.erase(archive) == 0) continue;
    const std::wstring key = keyOf(side(false), archive, false);
    if (!key.empty() && srcStateList.count(pathFor(side(true), key, false)) == 0) destStateList.erase(archive);
    stateChanged_ = true;
  }
  retry_.clear();
}

// What an unreadable file means was told already.
void SyncPair::tellIfNotWhole() {
  const bool lacksFile = isFileThere(stateFiles_[0]) != isFileThere(stateFiles_[1]);
  const bool lacksSide = srcStateList.empty() != destStateList.empty();
  if (unread_.empty() && (stateDamaged_ || lacksFile || lacksSide))
    notify(L"ERROR", L"The state was not whole, both sides are merged where it tells nothing");
}

void SyncPair::initState() {
  try {
    requireUsableFolders();
    sweepStateFolder();
    stateDamaged_ = false;
    loadRootIds();
    srcStateList.clear();
    destStateList.clear();
    loadStateFromDisk(stateFiles_[0], srcStateList);
    loadStateFromDisk(stateFiles_[1], destStateList);
    tellIfNotWhole();
    if (rebuildNeeded()) stateMissingIndex();
    replayJournal();
    dropUnpairedRecords();
    stateLoaded_ = true;
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    notify(L"ERROR", L"The state could not be read or written, check logs");
  } catch (const RootMissing&) {
    PAIR_ERROR("state not built");
  } catch (const std::exception& error) {
    PAIR_ERROR("STL exception: %s", error.what());
    notify(L"ERROR", L"STL exception, check logs");
  }
}

}  // namespace Kelta
