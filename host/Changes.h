// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <kelsyncpair/kelsyncpair.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>

#include "PairFolders.h"
#include "Stop.h"

namespace Kelta {
namespace host {

/// What changes below the folders of one pair, seen by the library's watcher, for the thread that serves the pair.
/// Temporary files and the markers of the engine are left out.
class Changes {
public:
  using Moment = std::chrono::steady_clock::time_point;

  /// Watches from now on. `noticed` is called for each change on a thread of the watcher's; it must be short.
  /// Throws Failure when memory ran out.
  Changes(const PairFolders& pair, std::function<void(const std::wstring& path)> noticed);
  ~Changes();
  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  /// Watches a folder of the pair again whose watch has ended, since another folder was put in its place.
  void watchAgain();
  /// Whether the system refuses to watch all of the folders.
  bool incomplete() const;
  /// Waits until a burst of changes is over, or `end` comes, or the user wants to stop.
  void wait(Moment end);
  /// Changed paths in generic form since the last call. `anything`: more than these may have changed.
  std::set<std::wstring> take(bool& anything);

private:
  static void KELSYNC_CALL changed(const wchar_t* path);
  void add(const std::wstring& path);

  const PairFolders& pair_;
  const std::function<void(const std::wstring&)> noticed_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  bool stopping_ = false;
  std::set<std::wstring> paths_;
  bool anything_ = false;
  Moment first_;
  Moment latest_;
  kelsync_watcher* watcher_ = nullptr;
  const Stop::Waker waker_;
};

}  // namespace host
}  // namespace Kelta
