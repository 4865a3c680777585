// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Engine.h"
#include "Failures.h"
#include "PairFolders.h"

namespace Kelta {
namespace host {

/// Counts what the cycles do, shows it as it goes, and tells when there is nothing left to do.
class Report : public EntryListener {
public:
  /// `quiet`: only the summary is shown. `lasting`: what failed in the last run.
  Report(const PairFolders& pair, bool quiet, std::vector<Failed> lasting)
      : pair_(pair), quiet_(quiet), failures_(pair, std::move(lasting)) {}

  /// What knows the names of archives.
  void setEngine(Engine& engine) { engine_ = &engine; }
  void beginCycle();
  /// `whole`: it came to its end.
  void endCycle(bool whole);
  void entry(const std::wstring& operation, const std::wstring& path, std::uint64_t done, std::uint64_t total) override;
  /// Whether the last cycle carried anything over that did not come back several times already.
  bool progressed() const { return progressed_; }
  /// Whether everything the last cycle dealt with, if anything, was carried over for good.
  bool settled() const { return failures_.ofCycle().empty() && dealtWith_ == 0; }
  /// What the engine told of the last cycle; errors go to standard error.
  void notified(const Notification& told);
  /// What is not synchronised, as far as it is known; what is quarantined may be among it.
  const std::vector<Failed>& lasting() const { return failures_.lasting(); }
  /// At the end: an entry that is quarantined does not count as failed as well.
  void setQuarantined(std::vector<Quarantined> entries);
  /// At the end: what is left for later although nothing is wrong with it.
  void setWaiting(const std::vector<Waiting>& entries);
  /// Whether the latest version of anything waits for its turn.
  bool waits() const;
  /// One entry a file.
  const std::vector<Waiting>& waiting() const { return waiting_; }
  /// Whether anything could not be synchronised.
  bool failures() const { return failed() != 0 || !quarantined_.empty() || startErrors_ + errors_ != 0; }
  /// Whether archives may be under another key than the one that was given.
  bool mayNeedOtherKey() const;
  void summary(const std::wstring& keySource, const std::wstring& logFolder) const;

private:
  std::wstring shown(const std::wstring& path) const;
  std::uint64_t bytesOf(const std::wstring& path) const;
  void showEntry(const std::wstring& operation, const std::wstring& name, std::uint64_t done, std::uint64_t total);
  std::size_t failed() const;
  void listFailures() const;

  const PairFolders& pair_;
  const bool quiet_;
  Engine* engine_ = nullptr;
  std::vector<std::wstring> losers_;  ///< what the engine told of versions that lost to newer ones
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::map<std::wstring, std::uint64_t> totals_;  ///< by operation, but for "failed"
  std::map<std::wstring, int> carried_;           ///< how often each entry was carried over
  Failures failures_;
  std::vector<std::wstring> conflictCopies_;
  std::vector<Quarantined> quarantined_;
  std::set<std::wstring> quarantinedNames_;
  std::vector<Waiting> waiting_;
  std::uint64_t bytes_ = 0;
  std::uint64_t dealtWith_ = 0;
  std::uint64_t largestTotal_ = 0;  ///< of the last cycle: what is left out again does not count it down
  std::uint64_t startErrors_ = 0;
  std::uint64_t errors_ = 0;  ///< in the last cycle: what it found again has not healed
  std::uint64_t cycles_ = 0;
  bool progressed_ = false;
};

}  // namespace host
}  // namespace Kelta
