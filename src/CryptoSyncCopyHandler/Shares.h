// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

namespace Kelta {

/// The share that a folder belongs to, by the nearest marker ".sid" at or above it.
struct Share {
  enum class State {
    none,      ///< there is no marker: the default asset
    named,     ///< `assetId` is what the marker names
    unusable,  ///< the marker cannot be read or holds no id: nothing may be encrypted there under any key
  };
  State state = State::none;
  std::string assetId;
  std::wstring root;  ///< the folder with the marker, relative to the roots of the pair; empty: the roots themselves
};

/// The share roots of a pair. A folder that holds the file ".sid", on either side, is one; its first line is the asset
/// id, and where both sides have a marker the Outside one wins. Every folder is looked at once until forget().
class Shares {
public:
  /// Generic form, without a trailing separator.
  void setInside(const std::wstring& folder);
  void setOutside(const std::wstring& folder);

  /// A path of either side relative to its root; false when it lies in neither, or is no plain path.
  bool relative(const std::wstring& path, std::wstring& rest) const;
  /// The share of a folder, given relative to the roots.
  const Share& at(const std::wstring& folder);
  /// The share that this very folder is the root of, from disk.
  Share ownOf(const std::wstring& folder) const;
  /// The same by the marker of the Inside alone.
  Share insideMarkerOf(const std::wstring& folder) const;
  void forget() { known_.clear(); }
  /// Forgets the folder and those above it.
  void forgetUpwards(std::wstring folder);

private:
  Share readMarker(const std::wstring& root, const std::wstring& folder) const;

  std::wstring inside_;
  std::wstring outside_;
  std::map<std::wstring, Share> known_;
};

}  // namespace Kelta
