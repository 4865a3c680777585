// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace Kelta {

extern const char* const kMetadataEntry;  ///< "__KELASSET_.json"

/// Two lower-case hexadecimal digits a byte.
std::string hexOf(const void* bytes, std::size_t size);

/// The metadata of an archive, byte for byte: {"assets":[{"ASSETID":"HEXPASS"}]}.
std::string metadataText(const std::string& assetId, const std::string& hexPass);

}  // namespace Kelta
