// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/Printable.h"

namespace Kelta {
namespace host {

using platform::printable;

/// Writes one line to standard output, at once.
void say(const std::wstring& line);

/// Writes one line to standard error: "kelsync: " and the text.
void complain(const std::wstring& line);

}  // namespace host
}  // namespace Kelta
