// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "Failure.h"

namespace Kelta {
namespace host {

/// The arguments that follow the name of the command.
using Arguments = std::vector<std::wstring>;

/// The commands. Each may throw Failure.
Exit syncCommand(const Arguments& arguments);
Exit statusCommand(const Arguments& arguments);
Exit quarantineCommand(const Arguments& arguments);
Exit keyCommand(const Arguments& arguments);
Exit packCommand(const Arguments& arguments);
Exit unpackCommand(const Arguments& arguments);
Exit metaCommand(const Arguments& arguments);
Exit setMetaCommand(const Arguments& arguments);

}  // namespace host
}  // namespace Kelta
