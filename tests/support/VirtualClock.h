// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <utility>

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

/// Something happens at a pause, or at a look at the clock: the moment between the stamps taken before a copy and the
/// copy itself.
class HookClock : public VirtualClock {
public:
  std::function<void(std::int64_t)> onPause;
  std::function<void()> onLook;

  std::int64_t nowMicroseconds() const override {
    const auto once = std::exchange(once_, nullptr);
    if (once) once();
    if (onLook) onLook();
    return VirtualClock::nowMicroseconds();
  }
  void wait(std::int64_t milliseconds, Interruption& interruption) override {
    VirtualClock::wait(milliseconds, interruption);
    if (onPause) onPause(milliseconds);
  }
  void atNextLook(std::function<void()> hook) { once_ = std::move(hook); }

private:
  mutable std::function<void()> once_;
};

}  // namespace test
}  // namespace Kelta
