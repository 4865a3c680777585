// SPDX-License-Identifier: Apache-2.0
// The rename of a file. The archive's name alone changes: its password does not depend on it. What a content hash says
// of a renamed file's content:
//
//     shorter than the hashed part, or size and CRC-32 are the archive's  the same; a new time is passed on
//     hashed in part, newer                                               renamed, and copied as an update
//     hashed in part, as old or older                                     another file: no rename
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/PairFolders.h"
#include "SyncPair0/RenameJob.h"
#include "SyncPair0/SyncPair.h"
#include "SyncPair0/TimeSteps.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {

// Whether the recorded content is all of the renamed file's. Of a file that ends where the hash does the recorded one
// may have been longer.
bool SyncPair::hasRecordedContent(const RenameJob& job, const std::wstring& counterpart) {
  const platform::FileStamp own = stampUnderName(job.ownTo);
  const auto& record = job.one.state.at(job.ownFrom);
  if (isUnseen(record, own)) return false;
  if (own.size < kHashedBytes) {
    if (recordedTime(record) == job.time) return true;
    // In the second of the scan it could have been written to again.
    waitOutRunningSecond(own);
    return generateFileHash(job.ownTo) == record[1] && stampUnderName(job.ownTo).sameContent(own);
  }
  const std::wstring& archive = job.one.inside ? counterpart : job.ownTo;
  const std::wstring& plain = job.one.inside ? job.ownTo : counterpart;
  return holdsContent(archive, plain);
}

// The same rename was done on both sides, or was not recorded before the last run ended.
bool SyncPair::isDoneAlready(const RenameJob& job, const StateRecord& record) {
  if (stampUnderName(job.from).kind != platform::Kind::missing) return false;
  const platform::FileStamp there = stampUnderName(job.to);
  if (there.kind != platform::Kind::file || there.seconds() != recordedTime(record)) return false;
  return !record[1].empty() && generateFileHash(job.to) == record[1];
}

// A version that was not carried over must not go along unseen.
bool SyncPair::isKnownCounterpart(const RenameJob& job, const platform::FileStamp& stamp) {
  return isKnown(job.two, job.match.from, job.from, stamp) == Known::yes;
}

// What stands there then, as far as it is ours.
platform::FileStamp SyncPair::passTimeOn(const RenameJob& job, const platform::FileStamp& moved) try {
  const platform::Spot spot = spotOf(job.two.root, job.to);
  platform::File file = spot.folder.open(spot.name, platform::File::Mode::adjust);
  if (!file.stamp().sameContent(moved)) return moved;
  file.setLastWriteTime(stampUnderName(job.ownTo).nanoseconds);
  return file.stamp();
} catch (const boost::filesystem::filesystem_error& error) {
  PAIR_ERROR("%s", error.what());
  return moved;
}

bool SyncPair::renameFile(const RenameJob& job) {
  if (!isReady(job)) return false;
  const StateRecord record = job.two.state.at(job.from);
  const bool done = isDoneAlready(job, record);
  const std::wstring& counterpart = done ? job.to : job.from;
  const platform::FileStamp stamp = stampUnderName(counterpart);
  if (!done && !isKnownCounterpart(job, stamp)) return false;
  if (isFileLocked(counterpart)) return false;
  const std::int64_t recorded = recordedTime(job.one.state.at(job.ownFrom));
  const bool same = hasRecordedContent(job, counterpart);
  if (!same && job.time <= recorded) return false;
  if (!isReady(job) || !stampUnderName(counterpart).sameContent(stamp)) return false;
  if (!done && !carryMove(job)) return false;
  // Only the very file that was moved gets the time. What was made of an archive's is no new one.
  const bool touched = job.time != recorded && (job.one.inside || !mayBeTimeOf(stampUnderName(job.ownTo), recorded));
  recordRenamedFile(job, same, same && touched ? passTimeOn(job, stamp) : stamp);
  finishRename(job);
  return true;
}

// An update that is still to be copied keeps the recorded time, and its place in the list. A version that took the
// place of what was moved is recorded as unseen.
void SyncPair::recordRenamedFile(const RenameJob& job, bool same, const platform::FileStamp& left) {
  const auto follow = [](StateList& state, const std::wstring& from, const std::wstring& to) -> StateRecord& {
    StateRecord record = std::move(state.at(from));
    state.erase(from);
    return state[to] = std::move(record);
  };
  saved_.erase(job.one.inside ? job.ownFrom : job.from);
  StateRecord& own = follow(job.one.state, job.ownFrom, job.ownTo);
  StateRecord& other = follow(job.two.state, job.from, job.to);
  job.one.list.erase(job.match.from);
  if (!same) return;
  if (recordedTime(own) != job.time) {
    own[0] = std::to_wstring(job.time);
    const platform::FileStamp now = stampUnderName(job.to);
    other[0] = std::to_wstring(now.sameContent(left) ? now.seconds() : unseenTime(now));
  }
  job.one.list.erase(job.match.to);
}

}  // namespace Kelta
