// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <set>
#include <string>

namespace Kelta {

/// Changed paths, gathered until somebody asks for them. Each is kept once. A folder of which it is not known what
/// changed below it stands for all of that. So does one whose changes are too many to be kept.
class ChangeSet {
public:
  explicit ChangeSet(std::size_t most = 100000) : most_(most) {}

  /// `watched`: the folder whose watch saw it.
  void add(const std::wstring& watched, const std::wstring& path);
  /// Anything below the folder may have changed.
  void addWhole(const std::wstring& watched);
  void merge(const ChangeSet& other);

  bool empty() const { return paths_.empty() && wholes_.empty(); }
  /// The changed paths, the folders of addWhole() among them.
  std::set<std::wstring> paths() const;
  /// The folders that hold the changed paths.
  std::set<std::wstring> folders() const;
  const std::set<std::wstring>& wholes() const { return wholes_; }

private:
  std::size_t most_;
  std::set<std::wstring> paths_;
  std::set<std::wstring> wholes_;
};

}  // namespace Kelta
