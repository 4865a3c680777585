// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {
namespace platform {

/// `text` as it may stand on a terminal and in a log: control characters, line breaks of every kind, and what turns the
/// direction of the text round, are shown as \n, \t or \u{1b}, so that a file name can neither steer a terminal nor
/// fake a line.
std::wstring printable(const std::wstring& text);

/// The same for UTF-8. What is not valid becomes U+FFFD.
std::string printable(const std::string& text);

}  // namespace platform
}  // namespace Kelta
