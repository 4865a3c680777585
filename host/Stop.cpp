// SPDX-License-Identifier: Apache-2.0
#include "Stop.h"

#include <condition_variable>
#include <mutex>
#include <set>

#include "platform/Console.h"

namespace Kelta {
namespace host {
namespace {

struct Requests {
  std::mutex mutex;
  std::condition_variable changed;
  bool asked = false;
  std::set<kelsync_pair*> running;  ///< never one that is being deleted
  std::set<Stop::Waker*> wakers;
};

// Outlives the thread that the platform handles requests on.
Requests& requests() {
  static auto* const all = new Requests;
  return *all;
}

using UniqueLock = std::unique_lock<std::mutex>;

}  // namespace

// A request that falls between two commands has no effect: it is repeated until they have stopped.
void Stop::request() {
  UniqueLock lock(requests().mutex);
  requests().asked = true;
  requests().changed.notify_all();
  for (Waker* const waker : requests().wakers) waker->wake_();
  while (!requests().running.empty()) {
    for (kelsync_pair* const handle : requests().running) kelsync_interrupt(handle);
    requests().changed.wait_for(lock, std::chrono::milliseconds(100));
  }
}

void Stop::listen() { platform::onTerminate(&Stop::request); }

bool Stop::asked() {
  const UniqueLock lock(requests().mutex);
  return requests().asked;
}

void Stop::pause(std::chrono::milliseconds duration) {
  UniqueLock lock(requests().mutex);
  requests().changed.wait_for(lock, duration, [] { return requests().asked; });
}

Stop::Command::Command(kelsync_pair* handle) : handle_(handle) {
  const UniqueLock lock(requests().mutex);
  requests().running.insert(handle);
}

Stop::Command::~Command() {
  const UniqueLock lock(requests().mutex);
  requests().running.erase(handle_);
}

Stop::Waker::Waker(std::function<void()> wake) : wake_(std::move(wake)) {
  const UniqueLock lock(requests().mutex);
  requests().wakers.insert(this);
}

Stop::Waker::~Waker() {
  const UniqueLock lock(requests().mutex);
  requests().wakers.erase(this);
}

}  // namespace host
}  // namespace Kelta
