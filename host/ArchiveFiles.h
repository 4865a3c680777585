// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {
namespace host {

/// Throws Failure, naming the file, unless an archive function returned KELSYNC_ARCHIVE_OK.
void requireSuccess(int result, const std::wstring& file);
/// The same for a call that reads `input` and writes `output`: names the one at fault.
void requireSuccess(int result, const std::wstring& input, const std::wstring& output);

/// The absolute form that the library takes.
std::wstring pathArgument(const std::wstring& text);
bool exists(const std::wstring& path);
/// The absolute path of a file that is to be read. Throws Failure when there is none.
std::wstring inputFile(const std::wstring& text);

}  // namespace host
}  // namespace Kelta
