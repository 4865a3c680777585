// SPDX-License-Identifier: Apache-2.0
#include "watcher/ChangeSet.h"

#include "base/GenericPath.h"
#include "platform/Files.h"

namespace Kelta {

void ChangeSet::add(const std::wstring& watched, const std::wstring& path) {
  if (wholes_.count(watched) > 0) return;
  paths_.insert(path);
  if (paths_.size() > most_) addWhole(watched);
}

void ChangeSet::addWhole(const std::wstring& watched) {
  const std::wstring folder = folderForm(watched);
  for (auto path = paths_.begin(); path != paths_.end();) {
    path = platform::liesBelow(genericForm(*path), folder) ? paths_.erase(path) : std::next(path);
  }
  wholes_.insert(watched);
}

void ChangeSet::merge(const ChangeSet& other) {
  paths_.insert(other.paths_.begin(), other.paths_.end());
  for (const std::wstring& folder : other.wholes_) addWhole(folder);
}

std::set<std::wstring> ChangeSet::paths() const {
  std::set<std::wstring> all = paths_;
  all.insert(wholes_.begin(), wholes_.end());
  return all;
}

std::set<std::wstring> ChangeSet::folders() const {
  std::set<std::wstring> all = wholes_;
  for (const std::wstring& path : paths_) all.insert(path.substr(0, parentOf(genericForm(path)).size()));
  return all;
}

}  // namespace Kelta
