// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace Kelta {
namespace platform {

/// The inotify watches of a folder and of every folder below it, kept in line with the tree as it changes. Paths are
/// the system's own bytes.
class WatchTree {
public:
  explicit WatchTree(int inotify) : inotify_(inotify) {}

  /// Watches the folder that the others lie below; a link to a folder will do.
  bool addRoot(const std::string& folder);
  /// Watches a folder and all below it. The entries of those that were not watched before are appended to `found`:
  /// they may have come before their folder was watched. A folder that is gone is left out.
  void add(const std::string& folder, std::vector<std::string>& found);
  /// A folder was renamed within the tree.
  void move(const std::string& from, const std::string& to);
  /// A folder was moved out of the tree.
  void remove(const std::string& folder);
  /// The system has dropped a watch.
  void forget(int watch);
  /// Null for a watch that is not ours any more.
  const std::string* folderOf(int watch) const;
  int root() const { return root_; }
  /// Whether a folder could not be watched because the system allows no more watches.
  bool isIncomplete() const { return incomplete_; }

private:
  using Watches = std::map<std::string, int>;
  bool watch(const std::string& folder, bool& fresh);
  Watches takeBelow(const std::string& folder);

  int inotify_;
  int root_ = -1;
  bool incomplete_ = false;
  Watches watches_;
  std::unordered_map<int, std::string> folders_;
};

}  // namespace platform
}  // namespace Kelta
