// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// An archive to whose name a cloud client has added a text of its own, since it got two versions of it.
struct CloudCopy {
  std::wstring original;  ///< the archive it is a copy of: "x.txt.kelta"
  std::wstring stem;      ///< what it is to be called on the Inside, without the extension: "x (conflicted copy)"
  std::wstring extension;
  bool certain = false;  ///< false: the user may have given the name as well, unless the original is there

  std::wstring plainName() const { return stem + extension; }
};

/// Takes the name of a file of the Outside apart. False when no cloud client added anything, when the added text
/// stands before the file's own extension already, or when the Inside could not have the name.
bool readCloudCopy(const std::wstring& name, CloudCopy& copy);

}  // namespace Kelta
