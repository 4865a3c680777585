// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace Kelta {

/// An archive to whose name a cloud client has added a text of its own, since it got two versions of it.
struct CloudCopy {
  std::wstring original;  ///< the archive it is a copy of: "x.txt.kelta"
  std::wstring stem;      ///< what it is to be called on the Inside, without the extension: "x (conflicted copy)"
  std::wstring extension;
  bool encrypted = false;  ///< the original's name is
  bool certain = false;    ///< false: the user may have given the name as well, unless the original is there

  std::wstring plainName() const { return stem + extension; }
};

/// The plain name of an archive's, empty when it cannot be told.
using PlainName = std::function<std::wstring(const std::wstring& archive)>;

/// Takes the name of a file of the Outside apart. False when no cloud client added anything, when the added text
/// stands before the file's own extension already, or when the Inside could not have the name. An encrypted name to
/// which a text was added was not given by the user.
bool readCloudCopy(const std::wstring& name, const PlainName& plainName, CloudCopy& copy);

}  // namespace Kelta
