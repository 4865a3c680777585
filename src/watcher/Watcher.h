// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "watcher/WatchThread.h"
#include "watcher/WatchVars.h"

namespace Kelta {

/// What a watcher handle stands for. All methods may be called from any thread but from within the callback.
class Watcher {
public:
  using Source = std::function<std::unique_ptr<platform::FolderNotifications>(const std::wstring& folder)>;

  /// `source` gives the notifications of a folder; tests put their own in the system's place.
  explicit Watcher(Source source = platform::folderNotifications);

  WatchVars& vars() { return *vars_; }
  void addFolder(const std::wstring& folder);
  void setFoldersOnly(bool foldersOnly);

  /// Watches every folder that is not being watched yet.
  void start();
  /// Ends all watches; with `wait` no callback runs any more when it returns.
  void end(bool wait);
  /// Whether the system refuses to watch some folder, for having no more of what that takes.
  bool isIncomplete();
  /// What was gathered: the changed paths, or the folders that hold them. Where it is not known what changed below a
  /// folder, that folder stands among the paths, and among the folders with all the folders below it.
  std::vector<std::wstring> takeChanges();

private:
  std::vector<std::wstring> watchedFolders();
  bool isWatched(const std::wstring& folder) const;

  const Source source_;
  const std::shared_ptr<WatchVars> vars_ = std::make_shared<WatchVars>();
  std::mutex joining_;  ///< held while threads are waited for; taken before mutex_
  std::mutex mutex_;    ///< guards what follows; no watch thread takes it, and nobody waits with it
  bool foldersOnly_ = false;
  bool refused_ = false;  ///< a folder could not be watched at all
  std::vector<std::wstring> folders_;
  std::vector<std::unique_ptr<WatchThread>> threads_;
  std::vector<std::unique_ptr<WatchThread>> leaving_;  ///< asked to stop, not waited for
};

}  // namespace Kelta
