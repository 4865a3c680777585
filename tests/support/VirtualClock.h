// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

#include "base/Clock.h"

namespace Kelta {
namespace test {

/// A clock that starts at the real time and only moves by pauses, which cost nothing, and by advance().
class VirtualClock : public Clock {
public:
  VirtualClock() : now_(Clock::nowMicroseconds()) {}

  std::int64_t nowMicroseconds() const override { return now_; }
  void wait(std::int64_t milliseconds, Interruption& interruption) override {
    interruption.check();
    advance(milliseconds);
    interruption.check();
  }
  void advance(std::int64_t milliseconds) { now_ += milliseconds * 1000; }

private:
  std::atomic<std::int64_t> now_;
};

}  // namespace test
}  // namespace Kelta
