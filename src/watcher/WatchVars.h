// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <set>
#include <string>

#include "kelsyncpair/kelsyncpair.h"
#include "watcher/ChangeSet.h"

namespace Kelta {

/// What the watch threads of one watcher share. Every method takes the mutex; offer() and offerWhole() call the host's
/// callback while they hold it.
class WatchVars {
public:
  void addFilter(const std::wstring& filter);
  std::set<std::wstring> filters() const;
  /// Null: changes are gathered again.
  void registerCallback(kelsync_fw_cb callback);

  /// A change that a watch saw: once for each filter that matches it, it is gathered or handed to the callback.
  void offer(const std::wstring& watched, const std::wstring& path);
  /// The watch of `watched` does not know what changed. That matters to every filter there is.
  void offerWhole(const std::wstring& watched);

  bool changeOccurred() const;
  /// Hands out what was gathered, and clears the flag.
  ChangeSet takeChanges();
  /// Puts back what could not be handed on.
  void putBack(const ChangeSet& changes);

private:
  mutable std::mutex mutex_;
  std::set<std::wstring> filters_;
  bool changed_ = false;
  ChangeSet changes_;
  bool callbackRegistered_ = false;
  kelsync_fw_cb callback_ = nullptr;
};

}  // namespace Kelta
