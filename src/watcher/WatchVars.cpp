// SPDX-License-Identifier: Apache-2.0
#include "watcher/WatchVars.h"

#include <utility>

#include "watcher/Filter.h"

namespace Kelta {

using Lock = std::lock_guard<std::mutex>;

void WatchVars::addFilter(const std::wstring& filter) {
  const Lock lock(mutex_);
  filters_.insert(filter);
}

std::set<std::wstring> WatchVars::filters() const {
  const Lock lock(mutex_);
  return filters_;
}

void WatchVars::registerCallback(kelsync_fw_cb callback) {
  const Lock lock(mutex_);
  callback_ = callback;
  callbackRegistered_ = callback != nullptr;
}

void WatchVars::offer(const std::wstring& watched, const std::wstring& path) {
  const Lock lock(mutex_);
  for (const std::wstring& filter : filters_) {
    if (!filterMatches(filter, path)) continue;
    if (callbackRegistered_) {
      callback_(path.c_str());
      continue;
    }
    changed_ = true;
    changes_.add(watched, path);
  }
}

void WatchVars::offerWhole(const std::wstring& watched) {
  const Lock lock(mutex_);
  if (filters_.empty()) return;
  if (callbackRegistered_) return callback_(watched.c_str());
  changed_ = true;
  changes_.addWhole(watched);
}

bool WatchVars::changeOccurred() const {
  const Lock lock(mutex_);
  return changed_;
}

ChangeSet WatchVars::takeChanges() {
  const Lock lock(mutex_);
  changed_ = false;
  return std::exchange(changes_, ChangeSet());
}

void WatchVars::putBack(const ChangeSet& changes) {
  const Lock lock(mutex_);
  changes_.merge(changes);
  changed_ = changed_ || !changes_.empty();
}

}  // namespace Kelta
