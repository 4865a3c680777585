// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "CryptoSyncCopyHandler/ISyncCopyHandler.h"
#include "platform/Files.h"

namespace Kelta {

/// What the host is told of a copy that lacks the key of its content.
constexpr wchar_t kNoContentKey[] = L"no key for the file's content";

/// One copy on its way: what stood on either side when it was judged. Both must still be so when the result is put in
/// place, or the copy would overwrite, or claim to hold, content that nobody has seen.
struct CopyJob {
  boost::filesystem::path source;
  platform::FileStamp sourceStamp;
  std::wstring target;  ///< generic form
  std::wstring targetRoot;
  platform::FileStamp targetStamp;
  const CopyGuard* guard = nullptr;  ///< null: what stands there when the copy begins
  CopyOutcome outcome;

  std::int64_t time() const { return guard && guard->time != 0 ? guard->time : sourceStamp.nanoseconds; }
};

}  // namespace Kelta
