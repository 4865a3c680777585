// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// How a folder below one of the pair's roots can be reached.
enum class Reach {
  there,    ///< it exists, and every step down to it is a real folder
  missing,  ///< the root is there, but some folder on the way is not
  refused,  ///< the root is missing, or the way leads through a link, a file, "." or ".."
};

/// Whether `path` lies below `root` (not the root itself). Both generic, `root` without a trailing separator;
/// the platform's case rule. Nothing lies below an empty root.
bool isBelow(const std::wstring& path, const std::wstring& root);

/// Walks from `root` down to `folder`, which is the root itself or below it. `reason` receives why it was refused.
Reach reachFolder(const std::wstring& root, const std::wstring& folder, std::string& reason);

/// The same, with missing folders below the root created: the result is `there` or `refused`. Never creates the root.
/// Throws filesystem_error when a folder cannot be created.
Reach makeFolders(const std::wstring& root, const std::wstring& folder, std::string& reason);

}  // namespace Kelta
