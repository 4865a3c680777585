// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <functional>
#include <string>

namespace Kelta {
namespace host {

/// `text`, a path as the user typed it, as an absolute path with links resolved as far as it exists and without
/// a separator at its end.
boost::filesystem::path absoluteOf(const std::wstring& text);

/// The path as text in generic form.
std::wstring genericOf(const boost::filesystem::path& path);

/// What the name of an archive ends with, and whether a name does and has more.
extern const std::wstring kArchiveSuffix;
bool isArchiveName(const std::wstring& name);

/// Whether a folder stands there, or a link to one.
bool isFolder(const std::wstring& path);

/// Whether `path` is `folder` or lies below it; both in generic form.
bool isWithin(const std::wstring& path, const std::wstring& folder);

/// The two folders of a pair, in generic form.
struct PairFolders {
  std::wstring inside;
  std::wstring outside;

  /// Throws Failure (usage) when they are the same or one lies in the other.
  PairFolders(const std::wstring& insideText, const std::wstring& outsideText);
  /// Throws Failure (folderMissing) when one is missing or no folder.
  void requirePresent() const;
  /// Whether both stand.
  bool present() const;
  /// Why the engine gave up on the pair, for the user.
  std::wstring whatIsMissing() const;
  /// `path` as it is shown to the user: relative to the folder that holds it, an archive under its plain name.
  std::wstring shown(const std::wstring& path, bool isFolder) const;
  /// The same for a file whose archive may have an encrypted name: `plainName` tells the plain one, or empty.
  std::wstring shown(const std::wstring& path,
                     const std::function<std::wstring(const std::wstring& archive)>& plainName) const;
  /// The same place below the other folder, the last component as it is.
  std::wstring counterpart(const std::wstring& path) const;
  /// Whether the Outside holds any archive; true as well when it cannot be listed to the end.
  bool outsideHoldsArchives() const;
};

}  // namespace host
}  // namespace Kelta
