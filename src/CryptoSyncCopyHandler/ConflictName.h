// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace Kelta {

/// Whether a name (a last component, or a whole path) is that of one of our own conflict copies.
bool isConflictName(const std::wstring& name);

/// What a conflict copy's name has behind the file's: "." + UTC time as YYYYMMDD-HHMMSS + "-" + 4 random hex digits +
/// ".kelta_conflict".
std::wstring newConflictSuffix(std::int64_t seconds);

/// The same with digits that follow from `text` and the time, so that every device comes to one name.
std::wstring sharedConflictSuffix(const std::wstring& text, std::int64_t seconds);

/// `path` as a conflict copy; of a conflict copy not a second one, but another.
std::wstring conflictNameOf(const std::wstring& path, std::int64_t seconds);
std::wstring conflictNameOf(const std::wstring& path, const std::wstring& suffix);

}  // namespace Kelta
