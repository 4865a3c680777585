// SPDX-License-Identifier: Apache-2.0
// What last-write times tell a scan beside "newer than recorded".
#include "SyncPair0/SyncPair.h"
#include "SyncPair0/TimeSteps.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {
namespace {

// Clocks differ, and time zones are mistaken for one another.
constexpr std::int64_t kFutureSeconds = 24 * 60 * 60;
// A wrong clock would tell of every file.
constexpr int kFutureTold = 20;

}  // namespace

// As long as the last known time lies ahead, what is saved at the right one is no change to the scan. The host is told
// once, though the file has such a time on both sides.
void SyncPair::noteFutureTime(const Side& side, const std::wstring& key, const std::wstring& path, std::int64_t time) {
  if (time <= clock_->nowSeconds() + kFutureSeconds) return waiting_.forget(path, kFutureTime);
  if (!waiting_.note(path, kFutureTime)) return;
  PAIR_INFO("its time lies in the future: %s", utf8(path).c_str());
  const std::wstring counterpart = side.inside ? archiveFor(key) : joinPath(sourceFolder_, key);
  if (waiting_.isNoted(counterpart, kFutureTime)) return;
  if (++futureTold_ > kFutureTold) return notify(L"SYNC", L"More files have a last-write time that lies in the future");
  notify(L"SYNC", L"The last-write time of " + jsonEscaped(nameOf(key)) +
                      L" lies in the future, what is saved before that time is not synchronised");
}

// The time of an archive that was placed here may be rounded behind the scan's back. A version that is not newer by
// such a time, and not the recorded one either, may have been laid over it. True when nothing else is to be done.
bool SyncPair::examineRounded(Walk& walk, const std::wstring& key, const std::wstring& path,
                              const platform::FileStamp& stamp, const StateRecord& record) {
  const std::int64_t stored = recordedTime(record);
  if (walk.side.inside || stamp.seconds() == stored || !mayBeTimeOf(stamp, stored)) return false;
  const std::wstring hash = makeRecord(path, stored)[1];
  if (hash.empty()) return false;
  if (hash == record[1]) {
    walk.side.state[path][0] = std::to_wstring(stamp.seconds());
    stateChanged_ = true;
    ++successfulEvents_;
    return true;
  }
  if (stamp.seconds() > stored) return false;
  mergeAnew(key, stamp);
  examineNew(walk, key, path, stamp);
  return true;
}

}  // namespace Kelta
