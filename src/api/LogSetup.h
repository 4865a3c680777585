// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// The process-wide set-up of the log. Not to be called by two threads at once.
class Log {
public:
  /// Until a log folder is known: INFO and above to standard output, unless the host gave the root logger an appender.
  static void useConsole();
  /// Sends the log to files in `folder`; it goes where it went before when the folder does not exist or cannot be
  /// written.
  static void setFolder(const std::wstring& folder);

private:
  static void init(const std::wstring& folder);
};

}  // namespace Kelta
