// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "platform/OpenFolder.h"

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

/// What a walk down to a folder found. Keep it no longer than for one piece of work, as OpenFolder says.
struct Way {
  Reach reach = Reach::refused;
  std::optional<platform::OpenFolder> folder;  ///< when it is there: all that is done in it is done by this
  std::string reason;                          ///< why it was refused
};

/// Walks from `root` down to `folder`, which is the root itself or below it.
Way reachFolder(const std::wstring& root, const std::wstring& folder);

/// The same, with missing folders below the root created: the result is `there` or `refused`. Never creates the root.
/// Throws filesystem_error when a folder cannot be created.
Way makeFolders(const std::wstring& root, const std::wstring& folder);

/// The place of an entry below `root`. Throws filesystem_error when its folder is not there, or refused.
platform::Spot spotOf(const std::wstring& root, const std::wstring& path);

/// The same for an entry that was listed, under whatever name the system has for it.
platform::Spot spotOfListed(const std::wstring& root, const boost::filesystem::path& entry);

/// Renames a file or a folder below `root` and replaces nothing: false, with nothing done, when something stands under
/// `to` already. Throws filesystem_error.
bool moveBelow(const std::wstring& root, const std::wstring& from, const std::wstring& to);

}  // namespace Kelta
