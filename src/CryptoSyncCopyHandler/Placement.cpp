// SPDX-License-Identifier: Apache-2.0
// Putting a finished file in its place: with its time and its rights set beforehand, it appears in one rename.
#include <boost/filesystem/exception.hpp>
#include <vector>

#include "CryptoSyncCopyHandler/CopyJob.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/LastLook.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Files.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Spot;

constexpr std::size_t kPlacementBufferBytes = 1024 * 1024;

}  // namespace

bool CryptoSyncCopyHandler::targetTaken(const CopyJob& job) {
  HANDLER_INFO("target changed meanwhile, left as it is: %s", utf8(job.target).c_str());
  endChanged_ = true;
  return false;
}

bool CryptoSyncCopyHandler::targetUnchanged(const CopyJob& job) {
  return platform::stampOf(platform::pathOf(job.target)).sameContent(job.targetStamp) || targetTaken(job);
}

// What appears in an empty place, or in that of what was judged, at the last moment is not replaced.
bool CryptoSyncCopyHandler::putInPlace(const Spot& fresh, const platform::EntryId& id, const Spot& target,
                                       const CopyJob& job) {
  const bool empty = job.targetStamp.kind == platform::Kind::missing;
  const bool placed = empty ? fresh.folder.move(fresh.name, id, target.folder, target.name)
                            : replaceJudged(fresh, id, target, job.targetStamp);
  return placed || targetTaken(job);
}

bool CryptoSyncCopyHandler::place(const fs::path& from, CopyJob& job) {
  const Way way = makeFolders(job.targetRoot, parentOf(job.target));
  if (!way.folder) {
    HANDLER_ERROR("%s", way.reason.c_str());
    return false;
  }
  const Spot target{*way.folder, platform::pathOf(nameOf(job.target))};
  const Spot fresh{platform::OpenFolder(from.parent_path()), from.filename()};
  platform::File file = fresh.folder.open(fresh.name, platform::File::Mode::adjust);
  const bool timeSet = file.setLastWriteTime(job.time());
  target.folder.giveNormalRights(file, target.name);
  const platform::FileStamp placed = file.stamp();
  const platform::EntryId id = file.id();
  file.close();  // an open file cannot be moved everywhere
  if (!target.look().stamp.sameContent(job.targetStamp)) return targetTaken(job);
  try {
    if (!putInPlace(fresh, id, target, job)) return false;
    job.outcome.placed = placed;
  } catch (const fs::filesystem_error& error) {
    if (error.code() != boost::system::errc::cross_device_link) throw;
    if (!placeAcrossVolumes(fresh, target, job)) return false;
  }
  if (job.targetStamp.kind == platform::Kind::missing) platform::takeFolderRights(target.path());
  target.folder.sync();
  job.outcome.written = job.target;
  if (!timeSet) setTimeInPlace(target, job);
  return true;
}

// Without its source's time the copy would pass for a change: a second try, unless somebody wrote to it since.
void CryptoSyncCopyHandler::setTimeInPlace(const Spot& target, CopyJob& job) {
  try {
    platform::File file = target.folder.open(target.name, platform::File::Mode::adjust);
    if (!file.stamp().sameContent(job.outcome.placed)) return;
    if (file.setLastWriteTime(job.time())) {
      job.outcome.placed.nanoseconds = file.stamp().nanoseconds;
      return;
    }
  } catch (const fs::filesystem_error&) {  // told below
  }
  HANDLER_ERROR("couldn't set the time of %s", utf8(target.path()).c_str());
}

// The Temp folder lies on another volume: the copy grows beside the target instead.
bool CryptoSyncCopyHandler::placeAcrossVolumes(const Spot& from, const Spot& target, CopyJob& job) {
  platform::File input = from.folder.open(from.name, platform::File::Mode::read);
  platform::AtomicFile output(target.folder, target.name);
  std::vector<char> buffer(kPlacementBufferBytes);
  while (const std::size_t count = input.read(buffer.data(), buffer.size())) {
    interruption().check();
    output.file().write(buffer.data(), count);
  }
  if (!output.file().setLastWriteTime(job.time()))
    HANDLER_ERROR("couldn't set the time of %s", utf8(output.temporary()).c_str());
  job.outcome.placed = output.file().stamp();
  return output.commitBy([&](const Spot& fresh, const platform::EntryId& id, const Spot& place) {
    return putInPlace(fresh, id, place, job);
  });
}

bool CryptoSyncCopyHandler::placeInside(const fs::path& from, CopyJob& job) {
  HANDLER_DEBUG_OF("moveInside", "path: %s", utf8(job.target).c_str());
  HANDLER_DEBUG_OF("moveInside", "pardir = %s", utf8(parentOf(job.target)).c_str());
  HANDLER_DEBUG_OF("moveInside", "Parent, inside: %s", utf8(job.targetRoot).c_str());
  return place(from, job);
}

void CryptoSyncCopyHandler::moveInside(fs::path from, std::wstring to) {
  CopyJob job;
  job.source = from;
  job.target = genericForm(std::move(to));
  job.targetRoot = isBelow(job.target, tempFolder_) ? tempFolder_ : insideFolder_;
  if (takeStamps(job, std::wstring()) && placeInside(from, job)) return;
  throw fs::filesystem_error("Cannot move a file into its place", platform::pathOf(job.target),
                             make_error_code(boost::system::errc::operation_not_permitted));
}

void CryptoSyncCopyHandler::writeFile(std::wstring path, char* text) {
  HANDLER_DEBUG("%s", utf8(path).c_str());
  platform::writeWholeFile(platform::pathOf(path), text);
}

}  // namespace Kelta
