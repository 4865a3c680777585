// SPDX-License-Identifier: Apache-2.0
#include "base/Clock.h"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/thread/thread.hpp>
#include <chrono>

namespace Kelta {

void Interruption::begin() {
  boost::unique_lock<boost::mutex> lock(mutex_);
  ++running_;
}

void Interruption::end() {
  boost::unique_lock<boost::mutex> lock(mutex_);
  if (--running_ == 0) requested_ = false;
}

void Interruption::request() {
  boost::unique_lock<boost::mutex> lock(mutex_);
  if (running_ == 0) return;
  requested_ = true;
  changed_.notify_all();
}

void Interruption::throwIfRequested() {
  if (requested_) throw boost::thread_interrupted();
}

void Interruption::check() {
  boost::this_thread::interruption_point();
  boost::unique_lock<boost::mutex> lock(mutex_);
  throwIfRequested();
}

void Interruption::wait(std::int64_t milliseconds) {
  boost::unique_lock<boost::mutex> lock(mutex_);
  const auto end = boost::chrono::steady_clock::now() + boost::chrono::milliseconds(milliseconds);
  do {
    throwIfRequested();
  } while (changed_.wait_until(lock, end) != boost::cv_status::timeout);
  throwIfRequested();
}

std::int64_t Clock::nowMicroseconds() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

void Clock::wait(std::int64_t milliseconds, Interruption& interruption) { interruption.wait(milliseconds); }

std::string isoTime(std::int64_t seconds) {
  using namespace boost::posix_time;
  return to_iso_extended_string(ptime(boost::gregorian::date(1970, 1, 1)) + boost::posix_time::seconds(seconds)) + "Z";
}

}  // namespace Kelta
