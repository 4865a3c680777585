// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

// Conversions between the three forms of text: wide strings (UTF-16 on
// Windows, UTF-32 elsewhere), UTF-8, and the platform's paths. A path is only
// ever built from, or read as, wide text through these functions: Boost's own
// conversion depends on the process's locale.
namespace Kelta {
namespace platform {

/// UTF-8 of a wide string; a lone surrogate or a value beyond U+10FFFF becomes U+FFFD.
std::string utf8(const std::wstring& wide);

/// UTF-8 of a path; bytes that are no UTF-8 (possible outside Windows) become U+FFFD.
std::string utf8(const boost::filesystem::path& path);

/// Decodes UTF-8. False, with `wide` cleared, when it is not valid.
bool wideFromUtf8(const std::string& text, std::wstring& wide);

/// The path of a wide string.
boost::filesystem::path pathOf(const std::wstring& wide);

/// The text of a path. False, with `wide` set to a readable form, when the name has no exact wide form.
bool wideOf(const boost::filesystem::path& path, std::wstring& wide);

/// The same where the path is known to have come from a wide string.
std::wstring wideOf(const boost::filesystem::path& path);

/// A path given in narrow form by the host: active code page on Windows, UTF-8 elsewhere. False when not valid.
bool wideFromNarrow(const char* narrow, std::wstring& wide);

/// The arguments of the process, the program's name left out, decoded exactly; false when one is not valid text.
bool commandLine(int argc, char** argv, std::vector<std::wstring>& args);

/// An environment variable; false when it is not set.
bool environment(const char* name, std::wstring& value);

}  // namespace platform
}  // namespace Kelta
