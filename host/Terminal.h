// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {
namespace host {

/// `text` as it may stand on a terminal: control characters, and those that turn the direction of the text
/// round, are shown as \n, \t or \u{1b}, so that a file name can neither steer the terminal nor fake a line.
std::wstring printable(const std::wstring& text);

/// Writes one line to standard output, at once.
void say(const std::wstring& line);

/// Writes one line to standard error: "kelsync: " and the text.
void complain(const std::wstring& line);

}  // namespace host
}  // namespace Kelta
