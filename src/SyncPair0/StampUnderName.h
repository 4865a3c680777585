// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {

/// What stands at a path, by whatever name.
inline platform::FileStamp lookAt(const std::wstring& path) { return platform::stampOf(platform::pathOf(path)); }

/// What stands at a path. An entry that is only found there under another name (a short name, another case) is another
/// one: its kind is `other`.
platform::FileStamp stampUnderName(const std::wstring& path);

}  // namespace Kelta
