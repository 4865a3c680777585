// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <array>

#include "platform/Files.h"

namespace Kelta {
namespace platform {

FileStamp stampOfStatus(const struct stat& status);

/// What utimensat() takes to set the last-write time alone.
std::array<struct timespec, 2> lastWriteOnly(std::int64_t nanoseconds);

}  // namespace platform
}  // namespace Kelta
