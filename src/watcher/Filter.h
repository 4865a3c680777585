// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// Whether a filter lets a changed path through, by the platform's case rule; either separator will do in both. A
/// filter with "*" (any characters, separators too) or "?" (any one) is a pattern over the whole path; any other names
/// an entry and everything below it. An empty filter matches nothing.
bool filterMatches(const std::wstring& filter, const std::wstring& path);

/// Whether the filter names an entry, so that it may be a folder to watch.
bool namesEntry(const std::wstring& filter);

}  // namespace Kelta
