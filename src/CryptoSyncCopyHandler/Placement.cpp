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
bool CryptoSyncCopyHandler::putInPlace(const fs::path& fresh, const CopyJob& job) {
  const fs::path target = platform::pathOf(job.target);
  const bool empty = job.targetStamp.kind == platform::Kind::missing;
  const bool placed = empty ? platform::moveFile(fresh, target) : replaceJudged(fresh, target, job.targetStamp);
  return placed || targetTaken(job);
}

bool CryptoSyncCopyHandler::place(const fs::path& from, CopyJob& job) {
  std::string reason;
  if (makeFolders(job.targetRoot, parentOf(job.target), reason) != Reach::there) {
    HANDLER_ERROR("%s", reason.c_str());
    return false;
  }
  const fs::path target = platform::pathOf(job.target);
  const bool timeSet = platform::setLastWriteTime(from, job.time());
  platform::giveNormalRights(from, target);
  const platform::FileStamp placed = platform::stampOf(from);
  if (!targetUnchanged(job)) return false;
  try {
    if (!putInPlace(from, job)) return false;
    job.outcome.placed = placed;
  } catch (const fs::filesystem_error& error) {
    if (error.code() != boost::system::errc::cross_device_link) throw;
    if (!placeAcrossVolumes(from, job)) return false;
  }
  if (job.targetStamp.kind == platform::Kind::missing) platform::takeFolderRights(target);
  platform::syncFolder(target.parent_path());
  job.outcome.written = job.target;
  // Without its source's time the copy would pass for a change: a second try, unless somebody wrote to it since.
  if (!timeSet && platform::stampOf(target).sameContent(placed)) {
    if (platform::setLastWriteTime(target, job.time()))
      job.outcome.placed.nanoseconds = platform::stampOf(target).nanoseconds;
    else
      HANDLER_ERROR("couldn't set the time of %s", utf8(target).c_str());
  }
  return true;
}

// The Temp folder lies on another volume: the copy grows beside the target instead.
bool CryptoSyncCopyHandler::placeAcrossVolumes(const fs::path& from, CopyJob& job) {
  platform::File input(from, platform::File::Mode::read);
  platform::AtomicFile output(platform::pathOf(job.target));
  std::vector<char> buffer(kPlacementBufferBytes);
  while (const std::size_t count = input.read(buffer.data(), buffer.size())) {
    interruption().check();
    output.file().write(buffer.data(), count);
  }
  if (!output.file().setLastWriteTime(job.time()))
    HANDLER_ERROR("couldn't set the time of %s", utf8(output.temporary()).c_str());
  output.file().flushToDisk();
  output.file().close();
  platform::giveNormalRights(output.temporary(), platform::pathOf(job.target));
  job.outcome.placed = platform::stampOf(output.temporary());
  return putInPlace(output.temporary(), job);
}

bool CryptoSyncCopyHandler::placeInside(const fs::path& from, CopyJob& job) {
  HANDLER_DEBUG("path: %s", utf8(job.target).c_str());
  HANDLER_DEBUG("pardir = %s", utf8(parentOf(job.target)).c_str());
  HANDLER_DEBUG("Parent, inside: %s", utf8(job.targetRoot).c_str());
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
