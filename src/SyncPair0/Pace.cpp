// SPDX-License-Identifier: Apache-2.0
// The order and the pace of a cycle.
#include <algorithm>
#include <set>

#include "SyncPair0/SyncPair.h"
#include "SyncPair0/TimeSteps.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr int kRunning = 9;
constexpr int kIdle = 7;
constexpr std::int64_t kMicroseconds = 1000000;
constexpr int kFullPace = 100;
// What was left alone for so long (milliseconds) has settled, for those who are in a hurry.
constexpr std::int64_t kSettled = 500;
constexpr long kSubScanPause = 250;
// Milliseconds by which the clock of a server may run ahead, and the coarsest steps in which file systems keep times.
constexpr std::int64_t kClocksApart = 5000;
constexpr std::int64_t kCoarsest = 2000;

int pauseByAge(std::int64_t seconds) {
  if (seconds > 600) return 50;
  if (seconds > 300) return 35;
  return seconds > 120 ? 25 : 0;
}

}  // namespace

void SyncPair::defaultSleep(int& seconds) {
  PAIR_DEBUG("phase = %d", cycleMarker_);
  seconds = 0;
  if (cycleMarker_ != kIdle) return;
  const std::int64_t now = clock_->nowMicroseconds();
  const std::int64_t sinceWrite = (now - lastStateWriteTime_) / kMicroseconds;
  PAIR_DEBUG("total seconds since last state write: %d", static_cast<int>(sinceWrite));
  if (sinceWrite < 300) {
    seconds = 10;
    return;
  }
  const std::int64_t sinceStartup = (now - startupTime_) / kMicroseconds;
  PAIR_DEBUG("total seconds since startup %d", static_cast<int>(sinceStartup));
  seconds = pauseByAge(sinceStartup);
}

void SyncPair::sleepWithCheck(int interval, long ms) {
  PAIR_DEBUG("sleepWithCheck() interval=%d, ms=%ld", interval, ms);
  for (int i = 0; i < interval; ++i) {
    interruption_->check();
    clock_->wait(ms, *interruption_);
  }
}

void SyncPair::setPace(int percent) { pace_ = std::max(0, std::min(percent, kFullPace)); }

void SyncPair::spareDisk(std::int64_t ms) {
  ms = ms * pace_ / kFullPace;
  if (ms > 0) sleepWithCheck(1, static_cast<long>(ms));
}

// In a hurry only as long as something may still be going on. When an entry went, its folder tells.
long SyncPair::settlingPause(const SyncList& list, long ms) {
  const std::int64_t now = clock_->nowMicroseconds() / 1000;
  std::int64_t pause = std::int64_t(ms) * pace_ / kFullPace;
  std::set<std::wstring> looked;
  for (const auto& entry : list) {
    const SyncObject& so = entry.second;
    const std::wstring folder = so.deletion ? parentOf(so.fullPath) : std::wstring();
    if (so.deletion && !looked.insert(folder).second) continue;
    const platform::FileStamp stamp = so.deletion ? platform::stampOf(platform::pathOf(folder)) : so.stamp;
    std::int64_t age = now - stamp.nanoseconds / 1000000;
    if (age < -kClocksApart) continue;
    if (isWholeSecond(stamp)) age -= kCoarsest;
    if (age < kSettled) pause = std::max(pause, std::min<std::int64_t>(ms, kSettled - age));
  }
  return static_cast<long>(pause);
}

void SyncPair::subScanAgain(const std::vector<std::wstring>& folderList) {
  if (pace_ == kFullPace || !srcSyncList.empty() || !destSyncList.empty()) sleepWithCheck(1, kSubScanPause);
  subScanForChanges(folderList);
}

void SyncPair::endCycle() {
  cycleMarker_ = kIdle;
  srcSyncList.clear();
  destSyncList.clear();
  clearRenameHashes(side(true));
  clearRenameHashes(side(false));
  unreadable_.clear();
  busy_.clear();
  spares_.clear();
  entriesDone_ = 0;
  futureTold_ = 0;
  forgetOldSaves();
}

void SyncPair::syncCycle() {
  int seconds = 0;
  const auto pause = [&] {
    defaultSleep(seconds);
    sleepWithCheck(seconds, 1000);
  };
  cycleMarker_ = kRunning;
  busy_.clear();  // of a cycle that did not come to its end
  scanSrcChanges();
  pause();
  scanDestChanges();
  // The host sees kelsync_ok() = 0; the tail of the cycle is left out on purpose.
  if (!ok_) return;
  pause();
  syncChanges();
  pause();
  writeState();
  pause();
  endCycle();
}

void SyncPair::subResolve() {
  try {
    resolveRename(sourceFolder_);
    resolveRename(destFolder_);
  } catch (const RootMissing& error) {
    PAIR_ERROR("%s", error.what());
  }
  syncChanges();
  endCycle();
}

}  // namespace Kelta
