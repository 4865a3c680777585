// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include "platform/Files.h"

namespace Kelta {
namespace platform {

FileStamp stampOfStatus(const struct stat& status);

}  // namespace platform
}  // namespace Kelta
