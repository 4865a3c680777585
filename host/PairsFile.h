// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace Kelta {
namespace host {

/// The pairs of a text file, UTF-8: one a line, with the options of "kelsync watch" for one pair. Spaces part the
/// arguments, double quotes hold together what has spaces in it, "~" at the start of a path is the home folder; lines
/// that begin with "#" and empty ones are left out. Throws Failure: usage for a line that cannot be read, failed for
/// the file.
std::vector<std::vector<std::wstring>> readPairs(const std::wstring& file);

}  // namespace host
}  // namespace Kelta
