// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "platform/FolderNotifications.h"
#include "watcher/WatchVars.h"

namespace Kelta {

/// The thread that watches one folder. It ends by itself when the folder cannot be opened, or is gone.
class WatchThread {
public:
  /// Returns when the folder is watched, or cannot be.
  WatchThread(std::wstring folder, std::shared_ptr<WatchVars> vars,
              std::unique_ptr<platform::FolderNotifications> notifications);
  ~WatchThread();  ///< asks it to stop and waits for it
  WatchThread(const WatchThread&) = delete;
  WatchThread& operator=(const WatchThread&) = delete;

  const std::wstring& folder() const { return folder_; }
  /// Asks it to stop: nothing that is not being handed on already will be.
  void stop();
  /// Waits until it has ended.
  void join();
  bool hasEnded() const { return ended_; }
  /// Whether the system refused to watch the folder, or folders below it.
  bool isIncomplete() const { return incomplete_; }

private:
  void run(std::promise<void>& watching);
  void watch();

  const std::wstring folder_;
  const std::shared_ptr<WatchVars> vars_;
  const std::unique_ptr<platform::FolderNotifications> notifications_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> ended_{false};
  std::atomic<bool> incomplete_{false};
  std::thread thread_;
};

}  // namespace Kelta
