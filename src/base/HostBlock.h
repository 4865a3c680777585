// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// Text for the host: a zeroed block of calloc() that holds the text and a terminator, for freeme() to release.
/// Null when memory ran out.
char* hostBlock(const std::string& text);
wchar_t* hostBlock(const std::wstring& text);

}  // namespace Kelta
