// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// What the Outside's marker ".kelta" says, two lines of text:
///
///     This folder holds encrypted files. Deleting this file does no harm.
///     the pair's mark (32 hexadecimal digits), or random numbers, each with "-" behind it, of an earlier version
struct OutsideMarker {
  std::string mark;       ///< empty when there is none
  bool isRandom = false;  ///< of an earlier version
};

/// Of a text that is no marker of the Outside: neither.
OutsideMarker outsideMarkerOf(const std::string& text);

std::string outsideMarkerText(const std::string& mark);

/// The content of a marker file; empty when it cannot be read, or is larger than any.
std::string readMarker(const std::wstring& path);

/// Whether a cloud client may have named a copy of ".kelta" so. What is in the file decides.
bool mayBeMarkerCopy(const std::wstring& name);

}  // namespace Kelta
