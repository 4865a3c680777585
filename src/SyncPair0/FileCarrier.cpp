// SPDX-License-Identifier: Apache-2.0
// One file on its way to the other side:
//
//     look at the source    it rests, or it is left for later
//     judge the target      known: replaced; a version that was not carried over: kept, then replaced; else left
//     copy                  under the guard of what was judged: what is saved meanwhile is not replaced
//     record                both ends as they were copied; an end that is something else by now as unseen
//
// What was placed here is never taken for somebody else's, and a copy that failed takes no record away: with the
// records the next scan finds an update as an update and a deletion as a deletion.
#include <boost/filesystem/exception.hpp>
#include <cstdlib>
#include <iterator>

#include "CryptoSyncCopyHandler/TempArea.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "SyncPair0/TimeSteps.h"
#include "archive/Archive.h"
#include "archive/zip/ArchiveError.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr int kAttempts = 5;
constexpr int kSecondsBetweenAttempts = 4;
// A file that a program has open for writing is copied when it was left alone for so long.
constexpr std::int64_t kRestSeconds = 60;
// A draft that takes a file's place within the second in which that was saved does so soon, if ever.
constexpr std::int64_t kRememberedSeconds = 600;
// Milliseconds by which a time lies ahead of the clock.
constexpr std::int64_t kMomentAhead = 4000;
constexpr std::int64_t kFarAhead = 60000;

bool isAs(const platform::FileStamp& now, const platform::FileStamp& seen) {
  return now.kind == seen.kind && now.size == seen.size && isTimeOrItsStep(now.nanoseconds, seen.nanoseconds);
}

// Whether the file could be written to again without its time telling so: the clock of its server may run ahead, and
// some file systems keep even seconds only.
bool mayChangeUnseen(const platform::FileStamp& stamp, std::int64_t age) {
  return age == 0 || (age < 0 && age > -5) || (isWholeSecond(stamp) && age > 0 && age <= 2);
}

}  // namespace

struct SyncPair::FileJob {
  const Side& from;
  const Side& to;
  const std::wstring& key;
  const SyncObject& so;
  const SyncObject* other;  ///< the other side's change of the same key, or null
  const std::wstring& source;
  std::wstring target;
  Archives archives = {};  ///< on the Outside: all that are there for the key
  CopyGuard guard = {};
  bool rests = true;  ///< nothing tells that the source is being written to
};

// A file that was written to within the running second could be written to again without its time, in whole
// seconds, telling so.
void SyncPair::waitOutRunningSecond(const platform::FileStamp& stamp) {
  const std::int64_t now = clock_->nowMicroseconds();
  if (stamp.seconds() != now / 1000000) return;
  clock_->wait((1000000 - now % 1000000) / 1000 + 10, *interruption_);
}

// What was seen to change is an update whatever time it has in the end: programs that copy and unpack set an old one.
void SyncPair::recordAsUnseen(const std::wstring& source) {
  const Side own = sideOf(source);
  const auto record = own.state.find(source);
  if (record == own.state.end()) return;
  const std::wstring unseen = std::to_wstring(unseenTime(stampUnderName(source)));
  if (record->second[0] == unseen) return;
  record->second[0] = unseen;
  stateChanged_ = true;
  ++successfulEvents_;
}

void SyncPair::noteChanging(const std::wstring& source) {
  PAIR_INFO("is being written to, left for later: %s", utf8(source).c_str());
  recordAsUnseen(source);
  if (waiting_.noteChanging(source)) report(L"changing", source);
}

bool SyncPair::recordAs(StateList& list, const std::wstring& path, const platform::FileStamp& seen, bool trusted) {
  stateChanged_ = true;
  StateRecord record{std::to_wstring(seen.seconds()), std::wstring()};
  const bool there = stampUnderName(path).kind == platform::Kind::file;
  if (there) record = makeRecord(path, seen.seconds());
  if (there && record[1].empty() && seen.size > 0)
    PAIR_ERROR_OF("resolveSync", "Error attempting to update state: %s", utf8(path).c_str());
  const platform::FileStamp now = stampUnderName(path);
  const bool asSeen = there && trusted && isAs(now, seen);
  if (there && now.kind == platform::Kind::file) record[0] = std::to_wstring(asSeen ? now.seconds() : unseenTime(now));
  list[path] = record;
  const bool recent = clock_->nowSeconds() - now.seconds() <= kRememberedSeconds;
  if (&list == &srcStateList && asSeen && recent) saved_[path] = now;
  return asSeen;
}

// Whether a file of the Inside has given way to another version that is no newer by the clock: one of the same second,
// or of the seconds by which its time was put off (laterTime).
bool SyncPair::isReplacedUnseen(const std::wstring& path, const platform::FileStamp& stamp) const {
  const auto saved = saved_.find(path);
  if (saved == saved_.end()) return false;
  const std::int64_t older = saved->second.nanoseconds - stamp.nanoseconds;
  if (saved->second.seconds() < stamp.seconds() || older > kTimeStep) return false;
  return stamp.size != saved->second.size || !isTimeOrItsStep(stamp.nanoseconds, saved->second.nanoseconds);
}

void SyncPair::forgetOldSaves() {
  const std::int64_t now = clock_->nowSeconds();
  for (auto saved = saved_.begin(); saved != saved_.end();)
    saved = now - saved->second.seconds() > kRememberedSeconds ? saved_.erase(saved) : std::next(saved);
}

// By time alone two versions of one second could not be told apart. A time that was rounded since counts where the hash
// covers all of the content; an archive's covers what no other has.
SyncPair::Known SyncPair::isAsRecorded(const Side& side, const std::wstring& path, const platform::FileStamp& stamp) {
  const auto record = side.state.find(path);
  if (record == side.state.end() || stamp.kind != platform::Kind::file) return Known::no;
  const std::int64_t time = recordedTime(record->second);
  const std::wstring& hash = record->second[1];
  const bool told = !hash.empty() && (!side.inside || stamp.size < kHashedBytes);
  if (stamp.seconds() != time && !(told && mayBeTimeOf(stamp, time))) return Known::no;
  if (hash.empty() && stamp.size > 0) return Known::yes;  // it could not be read when it was recorded
  try {
    const bool same = generateFileHash(path) == hash;
    return same && stampUnderName(path).sameContent(stamp) ? Known::yes : Known::no;
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
    lookProblem_ = reasonOf(error.code());
    return Known::unclear;
  }
}

// Whether an archive that is not the recorded one holds the content that was last in sync: another device has wrapped
// its password anew.
SyncPair::Known SyncPair::holdsRecorded(const std::wstring& key, const std::wstring& archive) {
  const auto plain = srcStateList.find(joinPath(sourceFolder_, key));
  const auto record = destStateList.find(archive);
  const platform::FileStamp stamp = stampUnderName(archive);
  if (plain == srcStateList.end() || record == destStateList.end()) return Known::no;
  const std::int64_t time = recordedTime(record->second);
  const bool exact = stamp.seconds() == time;
  if (!exact && !mayBeTimeOf(stamp, time)) return Known::no;
  std::unique_ptr<TempArea> area;
  std::wstring content;
  const Opened opened = openArchive(archive, area, content);
  if (opened != Opened::yes) return opened == Opened::damaged ? Known::no : Known::unclear;
  if (!exact && stampUnderName(content).size >= kHashedBytes) return Known::no;
  return generateFileHash(content) == plain->second[1] ? Known::yes : Known::no;
}

SyncPair::Known SyncPair::isKnown(const Side& side, const std::wstring& key, const std::wstring& path,
                                  const platform::FileStamp& stamp) {
  const Known known = isAsRecorded(side, path, stamp);
  return known == Known::no && !side.inside && stamp.kind == platform::Kind::file ? holdsRecorded(key, path) : known;
}

// Whether both ends are what is recorded.
bool SyncPair::isInSync(const std::wstring& key, const std::wstring& inside, const std::wstring& archive) {
  return isKnown(side(true), key, inside, stampUnderName(inside)) == Known::yes &&
         isKnown(side(false), key, archive, stampUnderName(archive)) == Known::yes;
}

void SyncPair::carryFile(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                         const SyncObject* other) {
  if (clashesWithFolder(key, so)) {
    putFileAside(key);
    return;
  }
  const bool otherThere = other && !other->deletion;
  FileJob job{from, to, key, so, other, so.fullPath, otherThere ? other->fullPath : pathFor(to, key, false)};
  if (job.target.empty()) {
    copyProblem_ = L"no key for the file's name";
    return copyFailed(from, key, so);
  }
  try {
    carryFileJob(job);
  } catch (const RootMissing&) {
    throw;
  } catch (const std::exception& error) {
    PAIR_ERROR_OF("resolveSync", "exception: %s", error.what());
    copyFailed(from, key, so);
  }
}

void SyncPair::carryFileJob(FileJob& job) {
  if (waiting_.isPostponed(job.source)) {
    PAIR_DEBUG("not yet: %s", utf8(job.source).c_str());
    return;
  }
  if (waitsForKey(job.from, job.to, job.source, job.target)) {
    PAIR_INFO("an archive that cannot be opened here is newer: %s", utf8(job.source).c_str());
    return;
  }
  if (busy_.count(job.target) > 0) return;  // the host is told at the end
  if (lookAtSource(job) && !isCopiedAlready(job) && prepareTarget(job)) copyJob(job);
}

// False when there is nothing to be copied now.
bool SyncPair::lookAtSource(FileJob& job) {
  waitOutRunningSecond(stampUnderName(job.source));
  const platform::FileStamp stamp = stampUnderName(job.source);
  if (stamp.kind == platform::Kind::unknown) {
    copyProblem_ = L"it cannot be looked at";
    copyFailed(job.from, job.key, job.so);
    return false;
  }
  if (stamp.kind != platform::Kind::file) {
    PAIR_INFO("gone meanwhile: %s", utf8(job.source).c_str());
    return false;
  }
  const bool open = platform::isOpenForWriting(platform::pathOf(job.source));
  const std::int64_t age = clock_->nowSeconds() - stamp.seconds();
  if (open && age >= 0 && age < kRestSeconds && !waiting_.isAtLongest(job.source)) {
    noteChanging(job.source);
    return false;
  }
  job.rests = !open && !mayChangeUnseen(stamp, age);
  job.guard.source = stamp;
  return true;
}

bool SyncPair::holdsContent(const std::wstring& archive, const std::wstring& plain) try {
  const auto check = [this](std::uint64_t) { interruption_->check(); };
  return archive::holds(platform::pathOf(archive), platform::pathOf(plain), check);
} catch (const zip::ArchiveError& error) {
  PAIR_ERROR("%s", error.what());
  return false;
}

// A source that was recorded as unseen may have been left alone since it was copied.
bool SyncPair::isCopiedAlready(const FileJob& job) {
  const platform::FileStamp& stamp = job.guard.source;
  const auto own = job.from.state.find(job.source);
  if (job.other || own == job.from.state.end() || !isUnseen(own->second, stamp)) return false;
  const platform::FileStamp there = stampUnderName(job.target);
  const bool older = there.seconds() < stamp.seconds() && !mayBeOneTime(there, stamp);
  if (older || isAsRecorded(job.to, job.target, there) != Known::yes) return false;
  const std::wstring& archive = job.from.inside ? job.target : job.source;
  const std::wstring& plain = job.from.inside ? job.source : job.target;
  // While it cannot be settled, what stays as it was is not read again and again.
  const auto held = held_.find(job.source);
  const bool asHeld =
      held != held_.end() && held->second.first.sameContent(stamp) && held->second.second.sameContent(there);
  if ((job.rests || !asHeld) && !holdsContent(archive, plain)) return false;
  if (!recordAs(job.from.state, job.source, stamp, job.rests)) {
    held_[job.source] = {stamp, there};
    noteChanging(job.source);
    return true;
  }
  held_.erase(job.source);
  waiting_.forget(job.source);
  ++successfulEvents_;
  return true;
}

SyncPair::Judgement SyncPair::judgeTarget(const FileJob& job, const platform::FileStamp& stamp) {
  lookProblem_.clear();
  if (stamp.kind == platform::Kind::missing) return Judgement::replace;
  if (stamp.kind == platform::Kind::symlink || stamp.kind == platform::Kind::other) {
    lookProblem_ = kNoFile;
    return Judgement::unclear;
  }
  const auto path = platform::pathOf(job.target);
  if (stamp.kind != platform::Kind::file || isFileLocked(job.target) || platform::isOpenForWriting(path)) {
    if (stamp.kind == platform::Kind::file) waiting_.note(job.target, L"in-use");
    return Judgement::leave;
  }
  if (job.other && !job.other->deletion) return isAsScanned(stamp, *job.other) ? Judgement::keep : Judgement::leave;
  const auto record = job.to.state.find(job.target);
  if (record == job.to.state.end()) return Judgement::leave;
  // Known on this side alone it is known to nobody: the next scan finds two additions.
  if (job.from.state.count(job.source) == 0) {
    forgetBoth(job.key, false);
    return Judgement::leave;
  }
  if (stamp.seconds() > recordedTime(record->second)) return Judgement::leave;
  const Known known = isKnown(job.to, job.key, job.target, stamp);
  if (known != Known::no) return known == Known::yes ? Judgement::replace : Judgement::unclear;
  // Of the same second, or older: no scan would ever find it.
  return stampUnderName(job.target).sameContent(stamp) ? Judgement::keep : Judgement::leave;
}

// Decides what the copy may replace. False when nothing is copied now.
bool SyncPair::prepareTarget(FileJob& job) {
  const platform::FileStamp stamp = stampUnderName(job.target);
  Judgement judgement = judgeTarget(job, stamp);
  // Devices may have written two archives without knowing of each other.
  const bool two = job.to.inside && spares_.count(job.key) > 0;
  if (two && judgement == Judgement::replace && stamp.kind == platform::Kind::file) judgement = Judgement::keep;
  if (judgement == Judgement::leave) {
    PAIR_INFO("target changed meanwhile, left for the next cycle: %s", utf8(job.target).c_str());
    noteChanging(job.source);
    return false;
  }
  if (judgement == Judgement::unclear) {
    copyProblem_ = !lookProblem_.empty() ? lookProblem_
                   : job.to.inside
                       ? L"the file that it would replace cannot be read"
                       : L"its archive cannot be opened (damaged, or under another key); where that was moved "
                         L"away, another one is written";
    copyFailed(job.from, job.key, job.so);
    return false;
  }
  if (judgement == Judgement::keep && !keepLoser(job, stamp)) return false;
  if (!job.to.inside) {
    job.archives = archivesThere(job.key);
    if (!keepUnseen(job.key, job.source, job.target, job.archives)) {
      copyFailed(job.from, job.key, job.so);
      return false;
    }
  }
  // What was kept is gone from its place, or is still what was judged.
  job.archives.erase(job.target);
  if (stampUnderName(job.target).kind != platform::Kind::missing) job.archives[job.target] = stamp;
  job.guard.targets = job.archives;
  job.guard.time = laterTime(job);
  return isTimeToCome(job);
}

// No archive gets a time that lies ahead of the clock: what is saved until then, here or elsewhere, would not count as
// newer. A moment is waited for; where another device's clock runs ahead the file is left for later. Times that lie far
// ahead stay what they are.
bool SyncPair::isTimeToCome(const FileJob& job) {
  const std::int64_t ahead = (job.guard.time - clock_->nowMicroseconds() * 1000) / 1000000;
  if (job.guard.time == 0 || ahead <= 0 || ahead > kFarAhead) return true;
  if (ahead > kMomentAhead) {
    noteChanging(job.source);
    return false;
  }
  clock_->wait(ahead + 1, *interruption_);
  return true;
}

// Devices that have the recorded archive take nothing for newer that is not: a source that got an older time since, as
// unpacked and downloaded files do, is given on with a later one, and so is what was saved right after that. 0: its own
// will do.
std::int64_t SyncPair::laterTime(const FileJob& job) {
  const auto record = job.to.state.find(job.target);
  if (job.to.inside || job.from.state.count(job.source) == 0 || record == job.to.state.end()) return 0;
  const std::int64_t recorded = recordedTime(record->second);
  return job.guard.source.seconds() > recorded ? 0 : recorded * 1000000000 + kTimeStep;
}

bool SyncPair::keepLoser(FileJob& job, const platform::FileStamp& stamp) {
  const Kept kept =
      job.to.inside ? keepInsideLoser(job.source, job.target, stamp) : keepOutsideLoser(job.source, job.target);
  if (kept == Kept::unreadable) noteGivenUp(job.key, job.source, job.so.timestamp);
  if (kept == Kept::no) copyFailed(job.from, job.key, job.so);
  const platform::FileStamp now = stampUnderName(job.target);
  if (kept == Kept::yes && (now.kind == platform::Kind::missing || now.sameContent(stamp))) return true;
  if (kept == Kept::yes || kept == Kept::changed) noteChanging(job.source);
  return false;
}

void SyncPair::copyJob(FileJob& job) {
  bool again = false;
  const CopyOutcome outcome = copyOnce(job.source, joinPath(job.to.root, job.key), &job.guard, again);
  const bool done = outcome.result == CopyOutcome::Result::done;
  PAIR_INFO_OF("resolveSync", "copied successfully? %s",
               log::truth(done || outcome.result == CopyOutcome::Result::settled));
  if (done) return finishJob(job, outcome);
  if (outcome.result == CopyOutcome::Result::settled)
    return noteGivenUp(job.key, job.source, job.guard.source.seconds());
  if (stampUnderName(job.source).kind == platform::Kind::missing) return;  // its deletion is still to be found
  if (outcome.result == CopyOutcome::Result::changed) return noteChanging(job.source);
  if (!again) return copyFailed(job.from, job.key, job.so);
  if (attempt_ < kAttempts) {
    auto other = job.other ? std::make_unique<SyncObject>(*job.other) : nullptr;
    retries_.push_back({job.from.inside, job.key, job.so, std::move(other)});
    return;
  }
  PAIR_ERROR_OF("doCopy", "Out of retries");
  copyFailed(job.from, job.key, job.so);
}

// Where times are kept in steps, a save of the last seconds may look like a step of the time that was set.
bool SyncPair::isPlaced(const FileJob& job, const CopyOutcome& outcome) {
  constexpr std::int64_t kLastSeconds = 5;
  const platform::FileStamp now = stampUnderName(outcome.written);
  if (!job.to.inside || now.nanoseconds == outcome.placed.nanoseconds) return true;
  if (std::abs(clock_->nowSeconds() - now.seconds()) > kLastSeconds) return true;
  return holdsContent(job.source, outcome.written);
}

// An archive over which somebody laid another one is a change of both sides: they are merged.
void SyncPair::finishJob(FileJob& job, const CopyOutcome& outcome) {
  keptLosers_.erase(job.target);
  held_.erase(job.source);
  const bool asPlaced = recordAs(job.to.state, outcome.written, outcome.placed, isPlaced(job, outcome));
  const bool gone = stampUnderName(outcome.written).kind == platform::Kind::missing;
  const bool settled = recordAs(job.from.state, job.source, job.guard.source, job.rests && (asPlaced || gone));
  if (!job.to.inside) dropOtherArchives(job.key, outcome.written, job.archives);
  busy_.erase(job.source);
  waiting_.forget(job.target);
  if (settled || stampUnderName(job.source).kind == platform::Kind::missing)
    waiting_.forget(job.source);
  else
    noteChanging(job.source);
  ++successfulEvents_;
  refreshParent(job.key);
  report(job.to.inside ? L"decrypt" : L"encrypt", outcome.written);
}

// All that failed for a reason that may pass is tried again together.
void SyncPair::retryCopies() {
  for (attempt_ = 2; attempt_ <= kAttempts && !retries_.empty(); ++attempt_) {
    sleepWithCheck(kSecondsBetweenAttempts, 1000);
    const std::vector<Retry> retries = std::move(retries_);
    retries_.clear();
    for (const Retry& retry : retries) {
      interruption_->check();
      carryCopy(side(retry.fromInside), side(!retry.fromInside), retry.key, retry.so, retry.other.get());
    }
  }
  retries_.clear();
  attempt_ = 1;
}

// What was in use in one pass of the scan may have been carried over since.
void SyncPair::tellBusy() {
  for (const std::wstring& path : busy_) {
    if (!isFileLocked(path)) continue;
    const std::wstring key = keyOf(sideOf(path), path, false);
    notify(L"SYNC", L"Could not copy " + jsonEscaped(nameOf(key.empty() ? path : key)),
           L"\"in use by another program\"");
    report(L"failed", path);
  }
  const auto isGone = [](const std::wstring& path) {
    const platform::Kind kind = stampUnderName(path).kind;
    return kind == platform::Kind::missing || kind == platform::Kind::folder;
  };
  waiting_.forgetIf(isGone);
  for (auto held = held_.begin(); held != held_.end();)
    held = isGone(held->first) ? held_.erase(held) : std::next(held);
}

}  // namespace Kelta
