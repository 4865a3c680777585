// SPDX-License-Identifier: Apache-2.0
// Carrying one decision out. What was decided from the scan is looked at again right before it is done: an entry that
// changed since is left alone, and the next scan finds it.
#include <boost/filesystem/exception.hpp>
#include <cstdlib>

#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

// File systems keep times in steps of up to two seconds.
constexpr std::int64_t kTimeStep = 2;

bool isThere(const std::wstring& path) {
  const platform::Kind kind = stampUnderName(path).kind;
  return kind == platform::Kind::file || kind == platform::Kind::folder;
}

}  // namespace

void SyncPair::report(const wchar_t* operation, const std::wstring& path) {
  ++entriesDone_;
  if (progress_) progress_(operation, path, entriesDone_, entriesDone_ + srcSyncList.size() + destSyncList.size());
}

void SyncPair::recordBoth(const std::wstring& key, bool isFolder) {
  setState(srcStateList, pathFor(side(true), key, isFolder));
  setState(destStateList, pathFor(side(false), key, isFolder));
}

// A file and a folder of the same plain name share a key, but not a record.
void SyncPair::forgetBoth(const std::wstring& key, bool isFolder) {
  for (const Side& each : {side(true), side(false)}) {
    const auto record = each.state.find(pathFor(each, key, isFolder));
    if (record == each.state.end()) continue;
    if (recordedAsFolder(each.inside, record->first, record->second) == isFolder) each.state.erase(record);
  }
  stateChanged_ = true;
}

void SyncPair::refreshParent(const std::wstring& key) {
  const std::wstring parent = parentOf(key);
  if (parent.empty()) return;
  PAIR_DEBUG("updating state for parent %s", utf8(parent).c_str());
  // A parent that is gone keeps its record: its own deletion is still to be carried over.
  for (const Side& each : {side(true), side(false)}) {
    const std::wstring path = pathFor(each, parent, true);
    if (stampUnderName(path).kind == platform::Kind::folder) setState(each.state, path);
  }
}

// Without its records the entry is found again by the next scan.
void SyncPair::copyFailed(const Side& from, const std::wstring& key, const SyncObject& so) {
  forgetBoth(key, so.isFolder);
  PAIR_ERROR("could not carry over %s", utf8(so.fullPath).c_str());
  const std::wstring reason = copyProblem_.empty() ? copyProblem_ : L'"' + jsonEscaped(copyProblem_) + L'"';
  copyProblem_.clear();
  notify(L"SYNC", L"Could not copy " + jsonEscaped(nameOf(so.fullPath)), reason);
  report(L"failed", joinPath(from.root, key));
}

void SyncPair::carryCopy(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                         const SyncObject* other) {
  PAIR_DEBUG("destination (pairPath) = %s", utf8(pathFor(to, key, so.isFolder)).c_str());
  requireIntactRoot(from);
  requireIntactRoot(to);
  if (so.isFolder)
    carryFolder(from, to, key, so);
  else
    carryFile(from, to, key, so, other);
}

void SyncPair::carryFolder(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so) {
  const std::wstring target = pathFor(to, key, true);
  const bool wasThere = isThere(target);
  bool made = false;
  try {
    made = handler_->copyDir(platform::pathOf(so.fullPath), platform::pathOf(target));
  } catch (const std::exception& error) {
    PAIR_ERROR("exception: %s", error.what());
  }
  if (!made) return copyFailed(from, key, so);
  recordBoth(key, true);
  ++successfulEvents_;
  refreshParent(key);
  if (wasThere) return;
  notify(L"SYNC", L"Copied " + jsonEscaped(nameOf(target)) + L" successfully.");
  report(L"folder", target);
}

// Whether overwriting the target loses nothing that was not seen: it is missing, or as the scan or the state knows it.
bool SyncPair::targetIsAsKnown(const Side& from, const Side& to, const std::wstring& source, const std::wstring& target,
                               const SyncObject* other) {
  const platform::FileStamp stamp = stampUnderName(target);
  if (stamp.kind == platform::Kind::missing) return true;
  if (stamp.kind != platform::Kind::file || isFileLocked(target)) return false;
  if (other && !other->deletion) return stamp.seconds() == other->timestamp;
  const auto record = to.state.find(target);
  return !other && record != to.state.end() && from.state.count(source) > 0 &&
         stamp.seconds() == recordedTime(record->second);
}

// A file that was written to within the running second could be written to again without its time, in whole
// seconds, telling so.
void SyncPair::waitOutRunningSecond(const platform::FileStamp& stamp) {
  const std::int64_t now = clock_->nowMicroseconds();
  if (stamp.seconds() != now / 1000000) return;
  clock_->wait((1000000 - now % 1000000) / 1000 + 10, *interruption_);
}

// Copies, and tells the time that the source had before; false also when the source changed under way.
bool SyncPair::copyUnchanged(const std::wstring& source, const std::wstring& target, std::int64_t& time,
                             std::wstring& written, const std::function<bool()>& mayWrite) {
  const platform::FileStamp before = stampUnderName(source);
  waitOutRunningSecond(before);
  time = before.seconds();
  bool copied = false;
  try {
    copied = doCopy(source, target, 5, &written, mayWrite);
  } catch (const std::exception& error) {
    PAIR_ERROR("exception: %s", error.what());
  }
  PAIR_INFO("copied successfully? %s", log::truth(copied));
  if (!copied) return false;
  if (stampUnderName(source).sameContent(before)) return true;
  PAIR_INFO("changed while it was copied: %s", utf8(source).c_str());
  return false;
}

// Records both ends as they were copied, even when one has gone since, so that the next scan sees it. A copy that is
// not as it was placed is content that nobody has seen: both ends are merged anew.
void SyncPair::recordCopy(const Side& from, const Side& to, const std::wstring& key, const std::wstring& source,
                          std::int64_t time, const std::wstring& written) {
  stateChanged_ = true;
  from.state[source] = makeRecord(source, time);
  const platform::FileStamp placed = stampUnderName(written);
  // A file system with coarse times shows a whole, even second.
  const std::int64_t stored = placed.kind == platform::Kind::missing ? time : placed.seconds();
  const bool rounded = placed.nanoseconds % (kTimeStep * 1000000000) == 0 && std::abs(stored - time) <= kTimeStep;
  if (stored != time && !rounded) return forgetBoth(key, false);
  to.state[written] = makeRecord(written, stored);
}

void SyncPair::carryFile(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                         const SyncObject* other) {
  const std::wstring source = so.fullPath;
  const bool otherThere = other && !other->deletion;
  const std::wstring target = otherThere ? other->fullPath : pathFor(to, key, false);
  if (target.empty()) {
    copyProblem_ = L"no key for the file's name";
    return copyFailed(from, key, so);
  }
  platform::FileStamp loser;  // as it was kept
  const auto mayWrite = [&] {
    const platform::FileStamp now = stampUnderName(target);
    const bool kept = loser.kind == platform::Kind::missing || now.kind == platform::Kind::missing;
    return (kept || now.sameContent(loser)) && targetIsAsKnown(from, to, source, target, other);
  };
  if (waitsForKey(from, to, source, target)) {
    PAIR_INFO("an archive that cannot be opened here is newer: %s", utf8(source).c_str());
    return;
  }
  if (busy_.count(target) > 0) return forgetBoth(key, false);  // the host was told
  if (!mayWrite()) {
    PAIR_INFO("target changed meanwhile, left for the next cycle: %s", utf8(source).c_str());
    return copyFailed(from, key, so);
  }
  const bool two = to.inside && spares_.count(key) > 0;  // devices may have written both without knowing of each other
  if ((otherThere || two) && stampUnderName(target).kind == platform::Kind::file) {
    loser = stampUnderName(target);
    const Kept kept = to.inside ? keepInsideLoser(source, target) : keepOutsideLoser(source, target);
    if (kept == Kept::unreadable) return noteGivenUp(key, source, so.timestamp);
    if (kept == Kept::no) return copyFailed(from, key, so);
  }
  const Archives before = to.inside ? Archives() : archivesThere(key);
  if (!to.inside && !keepUnseen(key, source, target, before)) return copyFailed(from, key, so);
  std::int64_t time = 0;
  std::wstring written;
  if (!copyUnchanged(source, joinPath(to.root, key), time, written, mayWrite)) return copyFailed(from, key, so);
  if (written.empty()) return noteGivenUp(key, source, time);
  keptLosers_.erase(target);
  recordCopy(from, to, key, source, time, written);
  if (!to.inside) dropOtherArchives(key, written, before);
  ++successfulEvents_;
  refreshParent(key);
  report(to.inside ? L"decrypt" : L"encrypt", written);
}

void SyncPair::carryDeletion(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                             const SyncObject* other) {
  const platform::FileStamp source = stampUnderName(so.fullPath);
  const bool there = isThere(so.fullPath) && !liesBelowOtherName(from, so.fullPath);
  if (source.kind == platform::Kind::unknown || there) {
    const bool sameKind = (source.kind == platform::Kind::folder) == so.isFolder;
    if (sameKind || source.kind == platform::Kind::unknown) return;
  }
  requireIntactRoot(from);
  requireIntactRoot(to);
  const std::wstring target = pathFor(to, key, so.isFolder);
  if (target.empty()) return;  // found again when there is a key
  // The archive goes on under another name: that is no deletion, or a newer one has come that nobody has seen.
  const Archives archives = so.isFolder ? Archives() : archivesThere(key);
  if (archives.size() > (from.inside ? 1U : 0U)) return carryArchiveBack(from, to, key, archives);
  const platform::FileStamp stamp = stampUnderName(target);
  const auto record = to.state.find(target);
  const bool asRecorded = record != to.state.end() && stamp.seconds() == recordedTime(record->second);
  if (!so.isFolder && stamp.kind == platform::Kind::file && !asRecorded) {
    PAIR_INFO("changed on the other side, not deleted: %s", utf8(target).c_str());
    if (other && !other->deletion) return carryCopy(to, from, key, *other, nullptr);
    forgetBoth(key, false);  // comes back as an addition
    ++successfulEvents_;
    return;
  }
  const auto gone = handler_->doDelete(so.isFolder ? so.fullPath + L'/' : so.fullPath);
  const bool deleted = gone.first && gone.second;
  handler_->deleteStatus(deleted, target);
  PAIR_INFO("deleted successfully? %s %s", log::truth(gone.first), log::truth(gone.second));
  if (!deleted && so.isFolder) return finishFolderDeletion(from, to, key, so);
  if (!deleted) {
    // The records stay: the next scan finds the deletion again.
    notify(L"ERROR", L"Could not delete " + jsonEscaped(nameOf(target)));
    return report(L"failed", target);
  }
  const std::wstring& src = from.inside ? so.fullPath : target;
  const std::wstring& dest = from.inside ? target : so.fullPath;
  delState(gone, src, dest);
  ++successfulEvents_;
  refreshParent(key);
  if (stamp.kind == platform::Kind::missing) return;
  notify(L"SYNC", L"Deleted " + jsonEscaped(nameOf(target)) + L" successfully.");
  report(L"delete", target);
}

// The folder could not go. While known entries are left in it their own deletion is still to come; otherwise something
// alive keeps it, and without its records it comes back on the side that deleted it.
void SyncPair::finishFolderDeletion(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so) {
  const auto below = recordsBelow(to.state, pathFor(to, key, true));
  if (below.first != below.second) {
    report(L"failed", pathFor(to, key, true));
    return;
  }
  PAIR_INFO("not empty, comes back: %s", utf8(so.fullPath).c_str());
  from.state.erase(so.fullPath);
  to.state.erase(pathFor(to, key, true));
  ++successfulEvents_;
}

}  // namespace Kelta
