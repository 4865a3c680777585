// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Kelta {
namespace host {

/// The general help.
std::string generalHelp();

/// The help of one command, "sync" or "key rotate"; empty when there is no such command.
std::string helpOf(const std::wstring& command);

/// "kelsync 0.1.0".
std::string versionText();

}  // namespace host
}  // namespace Kelta
