// SPDX-License-Identifier: Apache-2.0
#include "PairWatch.h"

#include <algorithm>
#include <utility>

#include "Failure.h"
#include "Stop.h"
#include "Terminal.h"
#include "platform/Files.h"
#include "platform/Folders.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

using Clock = std::chrono::steady_clock;
using State = StatusBoard::State;

constexpr std::chrono::seconds kShortestPause{10};
constexpr std::chrono::seconds kLongestRetryPause{600};
// A full cycle takes at most a tenth of the time, however large the pair is.
constexpr int kPauseFactor = 10;
constexpr int kFullPace = 100;
// So often a change may end a long full scan; then one is done to the end.
constexpr int kMostInterruptions = 10;
constexpr std::chrono::seconds kMissingPause{5};
// A file that waits for no moment that is known, but for a program to close it.
constexpr std::chrono::seconds kShortestWait{1};
constexpr std::chrono::seconds kLongestWait{60};

std::wstring parentOf(const std::wstring& path) { return genericOf(platform::pathOf(path).parent_path()); }

}  // namespace

PairWatch::PairWatch(const PairSetup& setup, StatusBoard& board, std::size_t number, std::wstring log)
    : setup_(setup), board_(board), number_(number), log_(std::move(log)), failures_(setup.folders()) {}

void PairWatch::run() {
  std::chrono::seconds pause = kMissingPause;
  while (!Stop::asked()) {
    const Moment start = Clock::now();
    runUntilMissing();
    if (Stop::asked()) break;
    board_.setState(number_, State::missing);
    board_.complainAbout(number_, setup_.folders().whatIsMissing());
    missing_ = true;
    // A folder that stands but is not the one that it was is looked at less and less often.
    pause = Clock::now() - start > std::chrono::minutes(1) ? kMissingPause : std::min(pause * 2, kLongestRetryPause);
    do {
      Stop::pause(pause);
    } while (!Stop::asked() && !setup_.folders().present());
  }
  board_.setState(number_, State::ended);
}

void PairWatch::runUntilMissing() {
  board_.setState(number_, State::starting);
  const std::unique_ptr<Engine> engine = setup_.engine(*this, log_);
  engine_ = engine.get();
  folders_.clear();
  retried_.clear();
  waits_.clear();
  needFull(true);
  Changes changes(setup_.folders(), [this](const std::wstring& path) { noticed(path); });
  while (!Stop::asked() && engine->ok()) {
    tellIncomplete(changes);
    takeDue();
    if (Clock::now() >= fullDue_) {
      fullCycle(changes);
    } else if (!folders_.empty()) {
      subCycle();
    } else {
      board_.setState(number_, State::idle);
      changes.wait(nextDue());
    }
    changes.wait(Clock::now());  // for the end of a burst
    takeChanges(changes);
  }
}

void PairWatch::tellIncomplete(const Changes& changes) {
  if (toldIncomplete_ || !changes.incomplete()) return;
  toldIncomplete_ = true;
  board_.complainAbout(
      number_,
      L"the system allows no more watches on folders; changes in some are found by scans, within about "
      L"half a minute or later (on Linux: fs.inotify.max_user_watches, max_user_instances)");
}

/// What failed or waited, and whose time has come.
void PairWatch::takeDue() {
  const Moment now = Clock::now();
  if (now >= retryDue_) {
    folders_.insert(retried_.begin(), retried_.end());
    retryDue_ = Moment::max();
  }
  for (const auto& wait : waits_) {
    if (now < wait.second.due) continue;
    folders_.insert(parentOf(wait.first));
    // What it waits for may stand on the other side.
    folders_.insert(parentOf(setup_.folders().counterpart(wait.first)));
  }
}

PairWatch::Moment PairWatch::nextDue() const {
  Moment next = std::min(fullDue_, retryDue_);
  for (const auto& wait : waits_) next = std::min(next, wait.second.due);
  return next;
}

// What the system does not tell for want of watches is looked for all the time, which is no reason to hurry.
void PairWatch::needFull(bool hurried) {
  interruptions_ = 0;
  hurried_ = hurried_ || hurried;
  fullDue_ = Clock::now();
}

void PairWatch::takeChanges(Changes& changes) {
  bool anything = false;
  const std::size_t former = folders_.size();
  for (const std::wstring& path : changes.take(anything)) {
    if (!own_.isAsLeft(path) && !waitsStill(path)) folders_.insert(parentOf(path));
  }
  if (folders_.size() != former) retryPause_ = std::chrono::seconds(0);
  if (anything) needFull(!changes.incomplete());
  board_.setPending(number_, folders_.size());
}

// A file that is being written to tells so all the time; it is looked at when its time has come, and when it goes.
bool PairWatch::waitsStill(const std::wstring& path) const {
  const auto wait = waits_.find(path);
  return wait != waits_.end() && Clock::now() < wait->second.due &&
         platform::stampOf(platform::pathOf(path)).kind == platform::Kind::file;
}

void PairWatch::beginCycle(State state) {
  board_.setState(number_, state);
  own_.beginCycle();
  carried_ = 0;
  failures_.beginCycle();
  engine_->forgetTaken();
}

// A scan for which nobody waits is slow, and gives way to a file that the user saves; false when it did. One that does
// not give way does not dawdle either.
bool PairWatch::scan() {
  const bool yields = !hurried_ && interruptions_ < kMostInterruptions;
  engine_->setPace(yields ? setup_.pace(kFullPace) : 0);
  setInterruptible(yields);
  engine_->scanInside();
  if (!interrupted()) engine_->scanOutside();
  setInterruptible(false);
  return !interrupted();
}

void PairWatch::fullCycle(Changes& changes) {
  beginCycle(State::scanning);
  changes.watchAgain();
  takeChanges(changes);  // those that come from now on may come too late for the scan
  const std::set<std::wstring> pending = std::exchange(folders_, {});
  const Moment start = Clock::now();
  const bool scanned = scan();
  if (scanned) {
    tellWhetherBack();
    engine_->carryOver();
  } else {
    engine_->dropScans();
  }
  const std::chrono::seconds pause = std::max(engine_->pauseBetweenCycles(), kShortestPause);
  const Moment now = Clock::now();
  if (!scanned) {
    ++interruptions_;
    folders_ = pending;
    fullDue_ = now + pause * interruptions_;
  } else {
    interruptions_ = 0;
    hurried_ = false;
    fullDue_ =
        now + (carried_ > 0 ? Clock::duration(pause) : std::max<Clock::duration>(pause, kPauseFactor * (now - start)));
  }
  const std::set<std::wstring> nothing;
  endCycle(scanned ? nullptr : &nothing);
}

// Once scans have found both folders to be the pair's, which an empty mount point is not.
void PairWatch::tellWhetherBack() {
  if (!missing_ || !engine_->ok() || Stop::asked()) return;
  missing_ = false;
  board_.complainAbout(number_, L"the pair's folders are there again; it goes on");
}

// What was carried over may have cleared the way for more (a folder in the place of a file): the same folders are
// looked at once more, until there is nothing.
void PairWatch::subCycle() {
  beginCycle(State::synchronising);
  const std::set<std::wstring> folders = std::exchange(folders_, {});
  engine_->setPace(0);
  engine_->subCycle(folders);
  if (carried_ > 0) folders_ = folders;
  endCycle(&folders);
}

void PairWatch::endCycle(const std::set<std::wstring>* scanned) {
  bool anyQuarantined = false;
  for (const Notification& told : engine_->takeNotifications()) {
    if (told.message.compare(0, 10, L"Quarantine") == 0) anyQuarantined = true;
    if (isAboutLoser(told) || (!failures_.explain(told) && told.type == L"ERROR"))
      board_.complainAbout(number_, printable(told.message));
  }
  const bool ended = engine_->ok() && !Stop::asked();
  const std::set<std::wstring> nothing;
  whole_ = whole_ || (ended && scanned == nullptr);
  tellFailures(failures_.endCycle(ended ? scanned : &nothing));
  // Records are files: they are read when the engine told of one, and now and then.
  if (anyQuarantined || scanned == nullptr) tellQuarantined();
  showErrors();
  planRetry();
  const std::vector<Waiting> entries = waitingOf(engine_->waitingText());
  planWaits(entries);
  keepLists(onePerFile(entries, [this](const std::wstring& path) { return shown(path); }));
}

void PairWatch::tellFailures(const std::vector<Failed>& fresh) {
  for (const Failed& failure : fresh) {
    board_.complainAbout(number_,
                         L"not synchronised yet: " + printable(failure.name) + L": " + printable(failure.reason));
  }
  if (toldOfKey_ || !std::any_of(fresh.begin(), fresh.end(), isAboutKey)) return;
  toldOfKey_ = true;
  board_.complainAbout(number_, setup_.keyHint());
}

// Those of the cycle that is running count already, which may take its time over them.
void PairWatch::showErrors() { board_.setErrors(number_, failures_.count() + quarantined_.size()); }

// What cannot be kept (a full disk) is no reason to end: files may still be carried over.
void PairWatch::keepLists(const std::vector<Waiting>& entries) {
  board_.setWaiting(number_, leftForLater(entries));
  const std::wstring waiting = textOf(entries);
  const std::wstring failed = textOf(failures_.lasting());
  try {
    if (engine_->toldAnything()) setup_.work().keepNotifications(engine_->notificationsText());
    if (keptWaiting_ != waiting) setup_.work().keepWaiting(waiting);
    keptWaiting_ = waiting;
    // Until everything was looked at, the list of the last run tells more.
    if (whole_ && keptFailed_ != failed) {
      setup_.work().keepFailed(failed);
      keptFailed_ = failed;
    }
    keepingFails_ = false;
  } catch (const Failure& failure) {
    if (!std::exchange(keepingFails_, true)) board_.complainAbout(number_, failure.message);
  }
}

void PairWatch::tellQuarantined() {
  std::set<std::wstring> records;
  for (const Quarantined& entry : engine_->quarantined()) {
    records.insert(entry.record);
    if (quarantined_.count(entry.record) > 0) continue;
    board_.complainAbout(number_, L"quarantined: " + printable(setup_.folders().shown(entry.path, false)) + L": " +
                                      printable(entry.message));
  }
  quarantined_.swap(records);
}

// Failures are tried again after a pause that grows as long as nothing else happens.
void PairWatch::planRetry() {
  if (failures_.ofCycle().empty()) {
    if (retryDue_ == Moment::max()) retried_.clear();
    return;
  }
  for (const Failed& failure : failures_.ofCycle()) {
    retried_.insert(failure.folder());
    retried_.insert(setup_.folders().counterpart(failure.folder()));
  }
  retryPause_ = std::min(std::max(retryPause_ * 2, kShortestPause), kLongestRetryPause);
  retryDue_ = std::min(retryDue_, Clock::now() + retryPause_);
}

void PairWatch::planWaits(const std::vector<Waiting>& entries) {
  const Moment now = Clock::now();
  std::map<std::wstring, Wait> waits;
  for (const Waiting& entry : entries) {
    if (!entry.isUnsynchronised()) continue;  // whole cycles are soon enough
    const auto former = waits_.find(entry.path);
    if (entry.untilNext > std::chrono::seconds(0)) {
      waits[entry.path] = {now + entry.untilNext, entry.untilNext};
    } else if (former != waits_.end() && now < former->second.due) {
      waits[entry.path] = former->second;
    } else {
      const std::chrono::seconds twice = former == waits_.end() ? kShortestWait : former->second.pause * 2;
      const std::chrono::seconds pause = std::min(twice, kLongestWait);
      waits[entry.path] = {now + pause, pause};
    }
  }
  waits_.swap(waits);
}

std::wstring PairWatch::shown(const std::wstring& path) {
  return setup_.folders().shown(path, [this](const std::wstring& archive) { return engine_->plainName(archive); });
}

void PairWatch::entry(const std::wstring& operation, const std::wstring& path, std::uint64_t done,
                      std::uint64_t total) {
  const std::wstring generic = genericOf(platform::pathOf(path));
  const std::wstring name = setup_.folders().shown(path, true);
  if (operation == L"changing") return board_.entry(number_, L"waiting", name);
  if (operation == L"failed") {
    failures_.failed(generic, name);
    board_.failing(number_, name);
    return showErrors();
  }
  failures_.carried(name);
  own_.note(generic);
  if (isWithin(generic, setup_.folders().outside))
    for (const std::wstring& archive : engine_->archivesOf(generic)) own_.note(archive);
  ++carried_;
  board_.setState(number_, State::synchronising);
  board_.setPending(number_, static_cast<std::size_t>(total - done));
  board_.entry(number_, operation, name);
}

void PairWatch::setInterruptible(bool interruptible) {
  const std::lock_guard<std::mutex> lock(interruptMutex_);
  interruptible_ = interruptible;
  if (interruptible) interrupted_ = false;
}

bool PairWatch::interrupted() {
  const std::lock_guard<std::mutex> lock(interruptMutex_);
  return interrupted_;
}

// While a scan may be interrupted the pair's own thread changes neither list.
void PairWatch::noticed(const std::wstring& path) {
  const std::lock_guard<std::mutex> lock(interruptMutex_);
  if (!interruptible_ || isFolder(path) || waitsStill(path) || own_.isAsLeft(path)) return;
  interruptible_ = false;
  interrupted_ = true;
  engine_->interrupt();
}

}  // namespace host
}  // namespace Kelta
