// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// The generic form: every backslash replaced by a forward slash.
std::wstring genericForm(std::wstring path);

/// The generic form of a folder, without a trailing separator (a volume's root, "/" or "C:/", keeps its own).
std::wstring folderForm(std::wstring folder);

std::wstring joinPath(const std::wstring& folder, const std::wstring& name);
std::wstring parentOf(const std::wstring& path);  ///< empty when there is no separator; of "C:/x": "C:/"
std::wstring nameOf(const std::wstring& path);    ///< the last component

}  // namespace Kelta
