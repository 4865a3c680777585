// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Lists.h"
#include "PairFolders.h"

namespace Kelta {
namespace host {

/// Whether it may have failed for want of the right key.
bool isAboutKey(const Failed& entry);

/// What could not be carried over: in the latest cycle, and what lasts of earlier ones.
class Failures {
public:
  /// `lasting`: of an earlier run.
  explicit Failures(const PairFolders& pair, std::vector<Failed> lasting = {})
      : pair_(pair), lasting_(std::move(lasting)), named_(namesOf(lasting_)) {}

  void beginCycle();
  /// What the engine tells of an entry, by the name under which it is shown.
  void failed(const std::wstring& path, const std::wstring& name);
  void carried(const std::wstring& name) { carried_.insert(name); }
  /// What the engine told in the cycle: the reason for which an entry failed. False when it is about something else.
  bool explain(const Notification& told);
  /// `scanned`: the folders that the cycle looked at; null: all. Returns what failed and did not last from before.
  std::vector<Failed> endCycle(const std::set<std::wstring>* scanned);

  const std::vector<Failed>& ofCycle() const { return ofCycle_; }
  const std::vector<Failed>& lasting() const { return lasting_; }
  /// Those that last and those of the cycle that is running.
  std::size_t count() const { return named_.size(); }

private:
  static std::set<std::wstring> namesOf(const std::vector<Failed>& entries);
  void unreadableFolder(const std::wstring& folder);
  void giveReason(const std::wstring& file, const std::wstring& reason);
  std::wstring likelyReason(const Failed& entry) const;

  const PairFolders& pair_;
  std::vector<Failed> ofCycle_;
  std::vector<Failed> lasting_;
  std::set<std::wstring> carried_;  ///< names, in the cycle
  std::set<std::wstring> named_;    ///< those that count() counts
};

}  // namespace host
}  // namespace Kelta
