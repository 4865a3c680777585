// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "archive/ArchiveHead.h"
#include "archive/zip/ArchiveError.h"

namespace Kelta {

/// An archive's password: so many random bytes, travelling raw or as two hexadecimal digits each.
constexpr std::size_t kPasswordBytes = 32;

extern const char* const kMetadataEntry;  ///< "__KELASSET_.json"

/// Two lower-case hexadecimal digits a byte.
std::string hexOf(const void* bytes, std::size_t size);

/// The passwords of an archive as its metadata holds them: asset id and hexadecimal text, in order.
using WrappedPasswords = std::vector<std::pair<std::string, std::string>>;

/// The metadata of an archive, byte for byte: {"assets":[{"ASSETID":"HEXPASS"}]}.
std::string metadataText(const std::string& assetId, const std::string& hexPass);
std::string metadataText(const WrappedPasswords& wrapped);
WrappedPasswords wrappedPasswords(const boost::property_tree::ptree& meta);

/// What is taken for an archive's password once it is unwrapped.
enum class PasswordForm {
  ofPair,  ///< what the writers of a pair make: 64 hexadecimal digits, or 32 bytes
  any,     ///< any text: for an archive that lies outside of the pair, where only the caller learns what became of it
};

/// An archive before any key is used.
struct SealedArchive {
  boost::property_tree::ptree meta;
  std::unique_ptr<archive::ArchiveHead> head;
  PasswordForm form = PasswordForm::ofPair;
  zip::ArchiveFailure failure = zip::ArchiveFailure::damaged;  ///< why it could not be read
};

}  // namespace Kelta
