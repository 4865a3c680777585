// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {

/// `text` as it stands between the quotes of a JSON string: quotes, backslashes and control characters escaped.
std::wstring jsonEscaped(const std::wstring& text);

/// The text that the escapes in `text` stand for.
std::wstring jsonUnescaped(const std::wstring& text);

/// Whether `text` may stand between the quotes of a JSON string as it is.
bool isJsonStringBody(const std::wstring& text);

}  // namespace Kelta
