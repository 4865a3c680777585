// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

namespace Kelta {

/// What the name of an archive ends with.
inline constexpr wchar_t kArchiveExtension[] = L".kelta";

/// The generic form: every backslash replaced by a forward slash.
std::wstring genericForm(std::wstring path);

/// The generic form of a folder, without a trailing separator (a volume's root, "/" or "C:/", keeps its own).
std::wstring folderForm(std::wstring folder);

/// The one spelling of a path that was given by a host, or read from a file: absolute, generic, without doubled
/// separators, ".", ".." and a trailing separator. False when there is none: an empty path, a ".." that leads above the
/// volume's root, or back from behind a link, where the system ends elsewhere than the text.
bool canonicalForm(const std::wstring& path, std::wstring& canonical);

/// The same for a folder that is configured; empty when there is none.
std::wstring configuredFolder(const std::wstring& path);

/// `path`, in its canonical form, with the start as the folder `root` is spelled where it lies below that one.
std::wstring spelledBelow(const std::wstring& root, const std::wstring& path);

/// The generic path of an entry that was listed. False for a name that has none: no exact text, or a backslash in it,
/// which would pass for a separator.
bool genericOfListed(const boost::filesystem::path& entry, std::wstring& path);

/// Whether the name is exactly one component of a path.
bool isComponent(const std::wstring& name);

std::wstring joinPath(const std::wstring& folder, const std::wstring& name);
std::wstring parentOf(const std::wstring& path);  ///< empty when there is no separator; of "C:/x": "C:/"
std::wstring nameOf(const std::wstring& path);    ///< the last component

}  // namespace Kelta
