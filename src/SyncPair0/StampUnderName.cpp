// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/StampUnderName.h"

#include "platform/Folders.h"
#include "platform/Text.h"

namespace Kelta {

platform::FileStamp stampUnderName(const std::wstring& path) {
  platform::FileStamp stamp = platform::stampOf(platform::pathOf(path));
  if (platform::hasOtherName(platform::pathOf(path))) stamp.kind = platform::Kind::other;
  return stamp;
}

}  // namespace Kelta
