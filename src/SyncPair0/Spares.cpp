// SPDX-License-Identifier: Apache-2.0
// What becomes of an archive beside the one that counts for its key. It goes only when that one is in sync here and
// nothing is lost with it: its content was seen before, is the same, or is in the recycle bin. A different version of
// the same time goes on as a conflict copy.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "CryptoSyncCopyHandler/LastLook.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "CryptoSyncCopyHandler/TempArea.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "SyncPair0/TimeSteps.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {}  // namespace

void SyncPair::removeSpare(const std::wstring& path, const platform::FileStamp& stamp) {
  if (isFileLocked(path)) return;
  const platform::Spot spot = spotOf(destFolder_, path);
  const bool removed = removeJudged(spot, stamp);
  PAIR_INFO("removed the other archive of the file: %s ? %s", utf8(path).c_str(), log::truth(removed));
  if (!removed) return;
  spot.folder.sync();
  destStateList.erase(path);
  stateChanged_ = true;
  ++successfulEvents_;
}

// Before a file is encrypted: its archives under other names than `counted` hold nothing that would be lost with them.
bool SyncPair::keepUnseen(const std::wstring& key, const std::wstring& source, const std::wstring& counted,
                          const Archives& archives) {
  for (const auto& archive : archives) {
    if (archive.first == counted) continue;
    const auto spares = spares_.find(key);
    const bool found = spares != spares_.end() && spares->second.count(archive.first) > 0;
    if (found && spares->second.at(archive.first).known &&
        spares->second.at(archive.first).stamp.sameContent(archive.second))
      continue;
    if (keepOutsideLoser(source, archive.first) != Kept::yes) return false;
  }
  return true;
}

// After a file was encrypted: `written` is its only archive and record. `before` are those that stood there.
void SyncPair::dropOtherArchives(const std::wstring& key, const std::wstring& written, const Archives& before) {
  if (lookAt(written).kind != platform::Kind::file) return;
  for (const auto& archive : before) {
    if (archive.first != written) removeSpare(archive.first, archive.second);
  }
  for (const std::wstring& path : archivePaths(key)) {
    if (path != written && lookAt(path).kind == platform::Kind::missing) destStateList.erase(path);
  }
}

// A file was deleted, or one archive of it, while there is another archive. On the Inside it comes back; a vanished
// archive's record is found by the next scan.
void SyncPair::carryArchiveBack(const Side& from, const Side& to, const std::wstring& key, const Archives& archives) {
  PAIR_INFO("there is another archive of it, not deleted: %s", utf8(key).c_str());
  if (!from.inside) return;
  forgetBoth(key, false);
  for (const auto& archive : archives) {
    const auto spares = spares_.find(key);
    if (spares != spares_.end() && spares->second.count(archive.first) > 0) continue;
    const SyncObject alive{false, archive.second.seconds(), archive.first, std::wstring(), false, archive.second};
    return carryCopy(to, from, key, alive, nullptr);
  }
}

void SyncPair::settleSpare(const std::wstring& key, const std::wstring& path, const Spare& spare) {
  const std::wstring inside = joinPath(sourceFolder_, key);
  const std::wstring counted = archiveFor(key);
  const bool inSync = counted != path && isInSync(key, inside, counted);
  if (!inSync || !lookAt(path).sameContent(spare.stamp) || isFileLocked(path)) return;
  requireIntactRoot(side(true));
  requireIntactRoot(side(false));
  if (spare.known || sameContent(counted, path)) return removeSpare(path, spare.stamp);
  if (tellOrder(lookAt(counted), spare.stamp)) {
    if (keepOutsideLoser(inside, path) == Kept::yes) removeSpare(path, spare.stamp);
    return;
  }
  std::unique_ptr<TempArea> area;
  std::wstring opened;
  if (openArchive(path, area, opened) != Opened::yes) return;
  if (sameContent(opened, inside)) return removeSpare(path, spare.stamp);
  const std::wstring copy = key + newConflictSuffix(clock_->nowSeconds());
  const std::vector<std::wstring> paths = archivePaths(copy);
  if (!paths.empty() && moveFile(path, paths.front())) report(L"conflict", joinPath(sourceFolder_, copy));
}

void SyncPair::settleSpares() {
  const auto spares = std::move(spares_);
  spares_.clear();
  if (tempFolder_.empty()) return;
  for (const auto& list : spares) {
    for (const auto& spare : list.second) {
      interruption_->check();
      try {
        settleSpare(list.first, spare.first, spare.second);
      } catch (const boost::filesystem::filesystem_error& error) {
        PAIR_ERROR("%s", error.what());
      }
    }
  }
}

}  // namespace Kelta
