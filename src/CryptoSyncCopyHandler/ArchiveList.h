// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <set>
#include <vector>

namespace Kelta {

/// The archives of the Outside, those with a cloud client's name included.
struct ArchiveList {
  std::vector<boost::filesystem::path> archives;
  /// Of these, what no scan takes: the path is too long, cannot be stored, or leads through a folder that is left out.
  /// It is dealt with where that can be done, but must not keep an operation from being complete: no device reads it.
  std::set<boost::filesystem::path> beyond;
  bool whole = false;  ///< every folder that scans take could be listed
};

}  // namespace Kelta
