// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

#include "platform/Files.h"

namespace Kelta {
namespace host {

/// What the cycles of this process wrote and deleted themselves. The watcher tells of it like of any change; an entry
/// that is still as the cycle left it needs no other cycle.
class OwnWrites {
public:
  /// What was noted before the latest cycle is forgotten.
  void beginCycle();
  /// A path in generic form, as it is now.
  void note(const std::wstring& path);
  bool isAsLeft(const std::wstring& path) const;

private:
  using Stamps = std::map<std::wstring, platform::FileStamp>;
  Stamps former_;
  Stamps current_;
};

}  // namespace host
}  // namespace Kelta
