// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Commands.h"

namespace Kelta {
namespace host {

/// "key recover": decrypts one archive of a pair with nothing but its key. May throw Failure.
Exit recoverCommand(const Arguments& arguments);

}  // namespace host
}  // namespace Kelta
