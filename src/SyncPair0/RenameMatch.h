// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Kelta {

/// An entry that a scan found added, or gone.
struct RenameCandidate {
  std::wstring key;   ///< of the sync list
  std::wstring hash;  ///< what it is recognised by; not empty
  std::int64_t time = 0;
  bool isFolder = false;
};

/// Two keys that stand for one entry, before and after.
struct RenameMatch {
  std::wstring from;
  std::wstring to;
  bool isFolder = false;
};

/// Joins additions and deletions of the same kind and hash, each used once: folders first, outermost first, then files.
/// Of several candidates those of the same name and time belong together, then those of the same name, then those of
/// the same time; the rest goes by the order of the keys.
std::vector<RenameMatch> matchRenames(std::vector<RenameCandidate> added, std::vector<RenameCandidate> deleted);

}  // namespace Kelta
