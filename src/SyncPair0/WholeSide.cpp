// SPDX-License-Identifier: Apache-2.0
// Operations over one whole side that are no part of a cycle.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/LastLook.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

// Removes a folder in which nothing but our own files is left.
bool removeEmptied(const platform::Spot& spot) {
  const platform::EntryId id = spot.look().id;
  std::vector<std::pair<boost::filesystem::path, platform::EntryId>> own;
  {
    const platform::OpenFolder folder = spot.folder.folder(spot.name);
    for (const auto& name : folder.list()) {
      const platform::Entry entry = folder.look(name);
      const bool ours = utf8(name) == ".rid" || platform::isAbandoned(utf8(name));
      if (!ours || entry.stamp.kind != platform::Kind::file) return false;
      own.emplace_back(name, entry.id);
    }
    for (const auto& entry : own) folder.removeFile(entry.first, entry.second);
  }  // a folder that is held cannot be removed everywhere
  return spot.folder.removeFolder(spot.name, id);
}

}  // namespace

struct SyncPair::Removal {
  std::wstring path;
  std::wstring counterpart;
  bool isFolder;
  platform::FileStamp stamp;
};

void SyncPair::tell(const std::wstring& operation, const std::wstring& path, std::uint64_t done, std::uint64_t total) {
  if (progress_) progress_(operation, path, done, total);
}

// The archive holds the same content in other bytes: its record gets the new hash. Times stay as they are.
void SyncPair::refreshHash(const std::wstring& archive) {
  const auto record = destStateList.find(archive);
  if (record == destStateList.end()) return;
  const std::int64_t time = recordedTime(record->second);
  // An archive that changed since is still to be scanned.
  if (platform::stampOf(platform::pathOf(archive)).seconds() != time) return;
  record->second = makeRecord(archive, time);
  stateChanged_ = true;
  ++successfulEvents_;
}

bool SyncPair::rewrapArchives(const std::function<bool(const Progress&, const Renamed&)>& change) {
  const Progress progress = [this](const std::wstring& outcome, const std::wstring& path, std::uint64_t done,
                                   std::uint64_t total) {
    if (outcome == L"rewrap") refreshHash(path);
    tell(outcome, path, done, total);
  };
  return renameArchives([&](const Renamed& renamed) { return change(progress, renamed); });
}

bool SyncPair::mayRemove(const Side& own, const std::wstring& key, const std::wstring& path,
                         const std::wstring& counterpart) {
  const std::wstring& inside = own.inside ? path : counterpart;
  return isInSync(key, inside, own.inside ? counterpart : path) && !liesBehindLink(own, path);
}

std::vector<SyncPair::Removal> SyncPair::planRemovals(bool inside, std::uint64_t& left) {
  const Side own = side(inside);
  std::vector<Removal> removals;
  for (const auto& record : own.state) {
    interruption_->check();
    const bool isFolder = recordedAsFolder(inside, record.first, record.second);
    const std::wstring key = keyOf(own, record.first, isFolder);
    const std::wstring counterpart = key.empty() ? key : pathFor(side(!inside), key, isFolder);
    const platform::FileStamp stamp = stampUnderName(record.first);
    if (isFolder || (!key.empty() && mayRemove(own, key, record.first, counterpart))) {
      removals.push_back({record.first, counterpart, isFolder, stamp});
    } else if (stamp.kind != platform::Kind::missing) {
      PAIR_INFO("not in sync, left: %s", utf8(record.first).c_str());
      ++left;
    }
  }
  return removals;
}

// On disk before anything is removed: an entry that is gone but still recorded would pass for a deletion, which would
// go to the other side and from there to every device.
void SyncPair::forgetRemovals(const std::vector<Removal>& removals) {
  for (const Removal& removal : removals) {
    for (StateList* const list : {&srcStateList, &destStateList}) {
      list->erase(removal.path);
      list->erase(removal.counterpart);
    }
  }
  writeStateList(srcStateList, stateFiles_[0]);
  writeStateList(destStateList, stateFiles_[1]);
}

bool SyncPair::remove(const Removal& removal, bool inside) {
  const platform::FileStamp now = stampUnderName(removal.path);
  if (now.kind == platform::Kind::missing) return true;
  if (removal.isFolder ? now.kind != platform::Kind::folder : !now.sameContent(removal.stamp)) return false;
  try {
    const platform::Spot spot = spotOf(side(inside).root, removal.path);
    if (removal.isFolder) return removeEmptied(spot);
    const platform::Recycled recycled =
        inside ? spot.folder.throwAway(spot.name, &removal.stamp) : platform::Recycled::noBin;
    return recycled == platform::Recycled::noBin ? removeJudged(spot, removal.stamp)
                                                 : recycled == platform::Recycled::yes;
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    return false;
  }
}

bool SyncPair::removeAllFiles(bool inside) {
  if (!stateLoaded_) {
    PAIR_ERROR("no state is loaded, nothing removed");
    return false;
  }
  requireIntactRoot(side(true));
  requireIntactRoot(side(false));
  std::uint64_t left = 0;
  const std::vector<Removal> removals = planRemovals(inside, left);
  forgetRemovals(removals);
  srcSyncList.clear();
  destSyncList.clear();
  std::uint64_t done = 0;
  for (auto removal = removals.rbegin(); removal != removals.rend(); ++removal) {
    interruption_->check();
    const bool removed = remove(*removal, inside);
    if (!removed) PAIR_INFO("not removed: %s", utf8(removal->path).c_str());
    left += removed ? 0U : 1U;
    tell(removed ? L"delete" : L"failed", removal->path, ++done, removals.size());
  }
  PAIR_INFO("removed %lu entries, %lu left", static_cast<unsigned long>(done), static_cast<unsigned long>(left));
  return left == 0;
}

}  // namespace Kelta
