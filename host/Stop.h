// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <kelsyncpair/kelsyncpair.h>

#include <chrono>
#include <functional>

namespace Kelta {
namespace host {

/// The user's request to stop (Ctrl-C or a request to terminate), for all that the process is doing.
class Stop {
public:
  /// From now on such a request counts.
  static void listen();
  static bool asked();
  /// Waits that long; returns at once when the user asks, or has asked.
  static void pause(std::chrono::milliseconds duration);

  /// While an object lives, a request interrupts the commands of the engine.
  class Command {
  public:
    explicit Command(kelsync_pair* handle);
    ~Command();
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

  private:
    kelsync_pair* handle_;
  };

  /// While an object lives, a request calls `wake`, on a thread of its own.
  class Waker {
  public:
    explicit Waker(std::function<void()> wake);
    ~Waker();
    Waker(const Waker&) = delete;
    Waker& operator=(const Waker&) = delete;

  private:
    friend class Stop;
    std::function<void()> wake_;
  };

private:
  static void request();
};

}  // namespace host
}  // namespace Kelta
