// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>

namespace Kelta {

/// The host's request to stop a running command. Also honours an interruption of the calling
/// boost::thread. Both show as boost::thread_interrupted.
class Interruption {
public:
  /// Brackets a command. A request made outside of any command has no effect.
  void begin();
  void end();
  /// Any thread.
  void request();
  /// An interruption point: throws boost::thread_interrupted when one was asked for.
  void check();
  /// Waits that long; an interruption point all the while.
  void wait(std::int64_t milliseconds);

private:
  void throwIfRequested();

  boost::mutex mutex_;
  boost::condition_variable changed_;
  int running_ = 0;
  bool requested_ = false;
};

/// Time as the engine sees it: "now" and pauses. Tests put a virtual clock in its place.
class Clock {
public:
  virtual ~Clock() = default;
  /// Microseconds since the epoch, UTC.
  virtual std::int64_t nowMicroseconds() const;
  /// Waits, with `interruption` checked all the while.
  virtual void wait(std::int64_t milliseconds, Interruption& interruption);

  std::int64_t nowSeconds() const { return nowMicroseconds() / 1000000; }
};

/// Seconds since the epoch as UTC text, ISO 8601: "2024-05-01T12:30:00Z".
std::string isoTime(std::int64_t seconds);

}  // namespace Kelta
