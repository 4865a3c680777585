// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Engine.h"
#include "PairFolders.h"

namespace Kelta {
namespace host {

/// Counts what the cycles do, shows it as it goes, and tells when there is nothing left to do.
class Report : public EntryListener {
public:
  /// `quiet`: only the summary is shown.
  Report(const PairFolders& pair, bool quiet) : pair_(pair), quiet_(quiet) {}

  /// What gives an archive's plain name by its path.
  void setPlainNames(std::function<std::wstring(const std::wstring&)> plainName) { plainName_ = std::move(plainName); }
  void beginCycle();
  void entry(const std::wstring& operation, const std::wstring& path, std::uint64_t done, std::uint64_t total) override;
  /// Whether the last cycle carried anything over that did not come back several times already.
  bool progressed() const { return progressed_; }
  /// Whether everything the last cycle dealt with, if anything, was carried over for good.
  bool settled() const { return failed_.empty() && dealtWith_ == 0; }
  /// An "ERROR" notification of the engine: goes to standard error.
  void error(const std::wstring& message);
  /// A notification about one entry of the last cycle: gives a failed one its reason.
  void explain(const std::wstring& message, const std::wstring& reason);
  /// At the end: an entry that is quarantined no longer counts as failed.
  void setQuarantined(std::vector<Quarantined> entries);
  /// At the end: what is left for later although nothing is wrong with it.
  void setWaiting(const std::vector<Waiting>& entries);
  /// Whether the latest version of anything waits for its turn.
  bool waits() const;
  /// Whether anything could not be synchronised.
  bool failures() const { return !failed_.empty() || !quarantined_.empty() || errors_ != 0; }
  void summary(const std::wstring& keySource, const std::wstring& logFolder) const;

private:
  struct Failed {
    std::wstring name;
    std::wstring reason;
    bool explained = false;
  };

  void showEntry(const std::wstring& operation, const std::wstring& name, std::uint64_t done, std::uint64_t total);
  void listFailures() const;

  const PairFolders& pair_;
  const bool quiet_;
  std::function<std::wstring(const std::wstring&)> plainName_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::map<std::wstring, std::uint64_t> totals_;  ///< by operation, but for "failed"
  std::map<std::wstring, int> carried_;           ///< how often each entry was carried over
  std::vector<Failed> failed_;                    ///< in the last cycle
  std::vector<std::wstring> conflictCopies_;
  std::vector<Quarantined> quarantined_;
  std::vector<Waiting> waiting_;
  std::uint64_t bytes_ = 0;
  std::uint64_t dealtWith_ = 0;
  std::uint64_t largestTotal_ = 0;  ///< of the last cycle: what is left out again does not count it down
  std::uint64_t errors_ = 0;
  std::uint64_t cycles_ = 0;
  bool progressed_ = false;
};

}  // namespace host
}  // namespace Kelta
