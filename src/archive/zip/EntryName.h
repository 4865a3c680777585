// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {
namespace zip {

/// Throws "unsafeName" unless `name` (UTF-8) can be extracted below any folder, on any platform, without
/// leaving it: a relative path with "/" between its components, each of them not empty, not "." or "..",
/// free of backslashes, colons and control characters, not ending in a dot or a space, and no name of a
/// device. One "/" at the end marks a folder.
void checkEntryName(const std::string& name);

/// The name as a file system sees it that does not tell capitals from small letters (ASCII, Latin, Greek,
/// Cyrillic), without the mark of a folder.
std::string foldedName(const std::string& name);

/// Whether `text` is UTF-8: no overlong forms, no surrogates.
bool isUtf8(const std::string& text);

}  // namespace zip
}  // namespace Kelta
