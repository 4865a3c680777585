// SPDX-License-Identifier: Apache-2.0
// The order and the pace of a cycle.
#include "SyncPair0/SyncPair.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr int kRunning = 9;
constexpr int kIdle = 7;
constexpr std::int64_t kMicroseconds = 1000000;

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
