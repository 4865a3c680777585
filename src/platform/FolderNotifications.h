// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace Kelta {
namespace platform {

/// What the system tells of changes anywhere below one folder. One thread opens it and waits; any thread may stop it,
/// before that as well. Names and sizes, times, attributes and the coming and going of entries count, reading does not.
class FolderNotifications {
public:
  enum class Event {
    changes,  ///< the entries of the appended paths changed
    lost,     ///< the same, but there were more than the system kept: anything below the folder may have changed
    ended,    ///< the folder is gone, moved away, or its volume is; nothing more will come
    stopped,
  };
  virtual ~FolderNotifications() = default;
  /// False when it is no folder or cannot be watched. What changes from now on is told.
  virtual bool open() = 0;
  /// Waits without a limit for the next changes and appends their full paths: the folder as it was given, the system's
  /// separator, and the name relative to the folder. A path may be told more than once.
  virtual Event wait(std::vector<std::wstring>& paths) = 0;
  /// Whether there are folders that the system refuses to watch, so that `lost` comes now and then in place of their
  /// changes. On the thread that opens and waits.
  virtual bool isIncomplete() const { return false; }
  /// Makes wait() return `stopped`, now or when it is called.
  virtual void stop() = 0;
};

/// Throws std::exception when the system has no more of what it takes.
std::unique_ptr<FolderNotifications> folderNotifications(const std::wstring& folder);

}  // namespace platform
}  // namespace Kelta
