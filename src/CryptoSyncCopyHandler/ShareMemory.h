// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <string>

namespace Kelta {

/// Which asset the files of each folder were last encrypted for, kept in a file, UTF-8, one line a folder:
///
///     folder relative to the roots TAB asset id LF
///
/// An empty folder is the roots themselves, an empty id the default asset.
class ShareMemory {
public:
  /// Reads the file, if it is there. One that cannot be read is left alone: nothing is written over it. False then.
  bool load(const std::wstring& file);
  /// What the nearest folder at or above `folder`, but not above `root`, was used with; null when there is none.
  const std::string* usedWith(std::wstring folder, const std::wstring& root) const;
  /// The highest folder at or above `folder` that was used with the same asset.
  std::wstring highestLike(const std::wstring& folder) const;
  void note(const std::wstring& folder, const std::string& assetId);
  /// Notes the asset for every known folder at or below `base` that `concerns` holds for.
  void noteAll(const std::wstring& base, const std::string& assetId,
               const std::function<bool(const std::wstring&)>& concerns);
  /// A file or a folder was renamed: what is noted of the folder, and the asset in any case, goes with it.
  void follow(const std::wstring& from, const std::wstring& to, bool isFolder);
  /// Writes what has changed. A failure is logged, and repaired by the next call that succeeds.
  void save();

private:
  bool readLine(const std::string& line);

  std::map<std::wstring, std::string> used_;
  std::wstring file_;
  bool changed_ = false;
};

}  // namespace Kelta
