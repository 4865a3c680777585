// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "base/Clock.h"

namespace Kelta {

inline const wchar_t* const kFutureTime = L"future-time";

/// The entries that are left for later although nothing is wrong with them, with the reason as data.
class Waiting {
public:
  explicit Waiting(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {}

  /// The file was written to while it was carried over, or is being written to: it is tried again at a growing
  /// distance, 1, 2, 4 … 60 seconds. True when that is new.
  bool noteChanging(const std::wstring& path);
  /// Whether such a file's time has not come yet.
  bool isPostponed(const std::wstring& path) const;
  /// Whether it has been tried until the distance could grow no more.
  bool isAtLongest(const std::wstring& path) const;
  /// An entry that waits for something else than its own rest: "future-time", "share-unconfirmed", "in-use". True when
  /// that is new.
  bool note(const std::wstring& path, const std::wstring& reason);
  bool isNoted(const std::wstring& path, const std::wstring& reason) const;
  /// The entry was carried over; a future time it may still have.
  void forget(const std::wstring& path);
  void forget(const std::wstring& path, const std::wstring& reason);
  /// Forgets the entries for which `gone` says so.
  void forgetIf(const std::function<bool(const std::wstring&)>& gone);
  /// {"waiting":[{"path":"…","reason":"changing","seconds":4},…]}: `seconds` until it is tried again, 0: in the next
  /// cycle.
  std::wstring asJSON() const;

private:
  struct Changing {
    std::int64_t distance = 0;  ///< microseconds
    std::int64_t next = 0;      ///< microseconds since the epoch
  };
  std::shared_ptr<Clock> clock_;
  std::map<std::wstring, Changing> changing_;
  std::map<std::wstring, std::set<std::wstring>> others_;  ///< path → reasons
};

}  // namespace Kelta
