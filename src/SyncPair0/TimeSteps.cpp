// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/TimeSteps.h"

#include <cstdlib>

namespace Kelta {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1000000000;

bool isStep(std::int64_t nanoseconds) { return nanoseconds % kTimeStep == 0; }

bool lieWithinStep(const platform::FileStamp& a, const platform::FileStamp& b) {
  return (isStep(a.nanoseconds) || isStep(b.nanoseconds)) && std::abs(a.nanoseconds - b.nanoseconds) < kTimeStep;
}

}  // namespace

bool isWholeSecond(const platform::FileStamp& stamp) { return stamp.nanoseconds % kNanosecondsPerSecond == 0; }

bool isTimeOrItsStep(std::int64_t now, std::int64_t seen) {
  return now == seen || (isStep(now) && std::abs(now - seen) < kTimeStep);
}

bool mayBeOneTime(const platform::FileStamp& a, const platform::FileStamp& b) {
  return a.seconds() == b.seconds() || lieWithinStep(a, b);
}

// What was recorded may have had any fraction: rounded up it lies less than two seconds behind its own.
bool mayBeTimeOf(const platform::FileStamp& stamp, std::int64_t recorded) {
  const std::int64_t later = stamp.seconds() - recorded;
  return later == 0 || (isStep(stamp.nanoseconds) && later >= -1 && later <= 2);
}

bool tellOrder(const platform::FileStamp& a, const platform::FileStamp& b) {
  const bool exact = !isWholeSecond(a) || !isWholeSecond(b);
  return a.seconds() != b.seconds() && !(exact && lieWithinStep(a, b));
}

}  // namespace Kelta
