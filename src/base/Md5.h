// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace Kelta {

/// The MD5 digest as 32 lower-case hex digits. A fingerprint for renames, not a protection.
std::string md5Hex(const void* data, std::size_t size);

}  // namespace Kelta
