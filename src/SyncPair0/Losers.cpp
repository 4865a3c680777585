// SPDX-License-Identifier: Apache-2.0
// The version that is about to be replaced by a newer one goes to the recycle bin first. What cannot be kept is not
// replaced.
#include <boost/filesystem/exception.hpp>
#include <vector>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "CryptoSyncCopyHandler/LastLook.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "CryptoSyncCopyHandler/TempArea.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Recycled;
using platform::Spot;

const wchar_t* const kNotKept = L"the older version could not be put into the recycle bin";

bool copyAcrossVolumes(const Spot& from, const Spot& to) {
  platform::File input = from.folder.open(from.name, platform::File::Mode::read);
  platform::AtomicFile output(to.folder, to.name, true);
  std::vector<char> buffer(platform::kCopyBufferBytes);
  while (const std::size_t count = input.read(buffer.data(), buffer.size())) output.file().write(buffer.data(), count);
  output.file().setLastWriteTime(input.stamp().nanoseconds);
  return output.commitNew();
}

// Otherwise each run would throw the same version away again.
bool canGrowBeside(const std::wstring& root, const std::wstring& path) try {
  const Spot spot = spotOf(root, path);
  const platform::AtomicFile probe(spot.folder, spot.name);
  return true;
} catch (const fs::filesystem_error&) {
  return false;
}

// False when it cannot stand there.
bool moveAnywhere(const Spot& from, const Spot& to) try {
  return from.folder.move(from.name, from.look().id, to.folder, to.name);
} catch (const fs::filesystem_error& error) {
  if (error.code() != boost::system::errc::cross_device_link) return false;
  return copyAcrossVolumes(from, to);
}

// Where there is no recycle bin a conflict copy keeps it. `no`: it is still in its place.
Recycled putAside(const Spot& file, const std::wstring& copy, const platform::FileStamp& judged) {
  const Recycled recycled = file.folder.throwAway(file.name, &judged);
  if (recycled != Recycled::noBin) return recycled;
  const bool kept =
      copy.size() <= kMaxPathCharacters && moveJudged(file, {file.folder, platform::pathOf(nameOf(copy))}, judged);
  return kept ? recycled : Recycled::no;
}

}  // namespace

// Decrypts an archive into a Temp area of its own, made here, so that it can be looked at.
SyncPair::Opened SyncPair::openArchive(const std::wstring& archive, std::unique_ptr<TempArea>& area,
                                       std::wstring& content) {
  if (tempFolder_.empty()) return Opened::no;
  try {
    area = std::make_unique<TempArea>(tempFolder_, this);
  } catch (const fs::filesystem_error& error) {
    PAIR_ERROR_OF("isFileConflictCopy", "%s", error.what());
    return Opened::no;
  }
  content = platform::wideOf(area->path() / "content_conflict_guard");
  PAIR_DEBUG_OF("isFileConflictCopy", "fromPath file = %s", utf8(archive).c_str());
  PAIR_DEBUG_OF("isFileConflictCopy", "conflict guard temp file = %s", utf8(content).c_str());
  const platform::FileStamp before = lookAt(archive);
  std::wstring written;
  if (doCopy(archive, content, 1, &written)) return written.empty() ? Opened::lacksKey : Opened::yes;
  // One that is being written just now looks damaged as well.
  return sourceIsDamaged_ && lookAt(archive).sameContent(before) ? Opened::damaged : Opened::no;
}

void SyncPair::tellLoser(const std::wstring& loser, Recycled recycled, const std::wstring& copy) {
  const std::wstring where =
      recycled == Recycled::yes ? L"put into the recycle bin" : L"kept as " + jsonEscaped(nameOf(copy));
  notifyDone(L"Conflict: the other version of " + jsonEscaped(nameOf(loser)) + L" was " + where);
}

// The Inside version lost: it goes to the recycle bin, once the winner is known to open.
SyncPair::Kept SyncPair::keepInsideLoser(const std::wstring& archive, const std::wstring& loser,
                                         const platform::FileStamp& judged) {
  std::unique_ptr<TempArea> area;
  std::wstring content;
  const Opened opened = openArchive(archive, area, content);
  if (opened == Opened::lacksKey) return Kept::unreadable;
  if (opened != Opened::yes) return Kept::no;
  try {
    if (sameContent(loser, content)) return Kept::yes;
    const std::wstring copy = conflictNameOf(loser, clock_->nowSeconds());
    const Recycled recycled = putAside(spotOf(sideOf(loser).root, loser), copy, judged);
    if (recycled != Recycled::no) {
      tellLoser(loser, recycled, copy);
      return Kept::yes;
    }
    if (!lookAt(loser).sameContent(judged)) return Kept::changed;
    copyProblem_ = kNotKept;
  } catch (const fs::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    copyProblem_ = reasonOf(error.code());
  }
  return Kept::no;
}

// The Outside version lost: nobody here has seen it, so its content goes to the recycle bin, once: replacing it may
// fail for long. One that is damaged goes there as it is.
SyncPair::Kept SyncPair::keepOutsideLoser(const std::wstring& winner, const std::wstring& archive) {
  const platform::FileStamp stamp = lookAt(archive);
  const auto kept = keptLosers_.find(archive);
  if (kept != keptLosers_.end() && kept->second.sameContent(stamp)) return Kept::yes;
  if (!canGrowBeside(destFolder_, archive)) {
    copyProblem_ = L"its folder cannot be written to";
    return Kept::no;
  }
  std::unique_ptr<TempArea> area;
  std::wstring content;
  const Opened opened = openArchive(archive, area, content);
  if (opened == Opened::damaged) {
    if (handler_->keepAsItIs(archive)) return Kept::yes;
    copyProblem_ = kNotKept;
    return Kept::no;
  }
  if (opened != Opened::yes) return Kept::no;
  try {
    if (sameContent(winner, content)) return Kept::yes;
    if (recycleBeside(winner, platform::pathOf(content), area->path())) {
      keptLosers_[archive] = stamp;
      return Kept::yes;
    }
    copyProblem_ = kNotKept;
  } catch (const fs::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    copyProblem_ = reasonOf(error.code());
  }
  return Kept::no;
}

// From beside the winner, so that it lands in the bin of that volume (the Temp folder may lie in memory) and comes back
// from there to where it belongs; under a conflict name, so that it is synchronised when it does. Where it cannot stand
// there it goes from the Temp folder, under the winner's name.
bool SyncPair::recycleBeside(const std::wstring& winner, const fs::path& content, const fs::path& area) {
  const std::wstring beside = conflictNameOf(winner, clock_->nowSeconds());
  const platform::OpenFolder folder(area);
  const Spot source{folder, content.filename()};
  const Spot target{spotOf(sideOf(winner).root, winner).folder, platform::pathOf(nameOf(beside))};
  if (beside.size() <= kMaxPathCharacters && moveAnywhere(source, target)) {
    const Recycled recycled = target.folder.throwAway(target.name);
    if (recycled != Recycled::no) {
      tellLoser(winner, recycled, beside);
      return true;
    }
    target.folder.removeFile(target.name, target.look().id);
    return false;
  }
  const Spot named{folder, platform::pathOf(nameOf(winner))};
  const bool renamed = platform::wideOf(named.path()).size() <= kMaxPathCharacters && moveAnywhere(source, named);
  if (folder.throwAway((renamed ? named : source).name) != Recycled::yes) return false;
  tellLoser(winner, Recycled::yes, std::wstring());
  return true;
}

}  // namespace Kelta
