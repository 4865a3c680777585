// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/property_tree/ptree_fwd.hpp>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Kelta {

extern const char* const kMetadataEntry;  ///< "__KELASSET_.json"

/// Two lower-case hexadecimal digits a byte.
std::string hexOf(const void* bytes, std::size_t size);

/// The passwords of an archive as its metadata holds them: asset id and hexadecimal text, in order.
using WrappedPasswords = std::vector<std::pair<std::string, std::string>>;

/// The metadata of an archive, byte for byte: {"assets":[{"ASSETID":"HEXPASS"}]}.
std::string metadataText(const std::string& assetId, const std::string& hexPass);
std::string metadataText(const WrappedPasswords& wrapped);
WrappedPasswords wrappedPasswords(const boost::property_tree::ptree& meta);

}  // namespace Kelta
