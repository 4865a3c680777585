// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstddef>
#include <string>

namespace Kelta {

/// Longest path, in wide characters, that is synchronised.
constexpr std::size_t kMaxPathCharacters = 260;

/// The verdict on names that are never synchronised: links, over-long paths, lock and owner files,
/// our own markers and keys, the desktop's and the cloud client's own files. A path that does not
/// exist is not ignored, so that deletions are still seen.
bool isNeverSynchronised(const boost::filesystem::path& path);

/// Whether a system makes a file of that name by itself, in any folder that somebody looks at. Not all of them are
/// reserved, but none keeps a folder alive.
bool isSystemMade(const std::wstring& name);

/// The part of that verdict which the name alone decides (a last component).
bool isReservedName(const std::wstring& name, bool isFolder);

}  // namespace Kelta
