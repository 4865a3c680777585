// SPDX-License-Identifier: Apache-2.0
// The metadata of an archive, {"assets":[{"ASSETID":"HEXPASS"}]}. It comes from the Outside and is not to be trusted.
#include "CryptoSyncCopyHandler/ArchiveMeta.h"

#include <boost/property_tree/json_parser.hpp>
#include <sstream>

#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "archive/zip/ArchiveError.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {
namespace {

using boost::property_tree::ptree;

constexpr std::size_t kMaxAssets = 64;
constexpr int kMaxNesting = 16;  // the parser recurses

// Where the first object of a text ends: what a tool has put behind it is no metadata. Throws when it nests too deep.
std::size_t endOfObject(const std::string& text) {
  int depth = 0;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    if (character == '"') quoted = !quoted;
    if (quoted && character == '\\') ++i;
    if (quoted) continue;
    if ((character == '{' || character == '[') && ++depth > kMaxNesting)
      throw boost::property_tree::ptree_error("nested too deep");
    if ((character == '}' || character == ']') && --depth <= 0) return i + 1;
  }
  return text.size();
}

ptree parsed(const std::string& text) {
  ptree tree;
  std::istringstream stream(text.substr(0, endOfObject(text)));
  boost::property_tree::read_json(stream, tree);
  return tree;
}

// What every one of the texts lists. Throws ptree_error when none of them can be read.
ptree merged(const std::vector<std::string>& texts) {
  ptree all;
  bool any = false;
  for (const std::string& text : texts) {
    try {
      const ptree one = parsed(text);
      any = true;
      if (one.find("assets") == one.not_found()) continue;
      ptree& assets =
          all.find("assets") == all.not_found() ? all.add_child("assets", ptree()) : all.get_child("assets");
      for (const auto& element : one.get_child("assets")) assets.push_back(element);
    } catch (const boost::property_tree::ptree_error&) {
      if (!any && &text == &texts.back()) throw;
    }
  }
  return all;
}

}  // namespace

const char* const kMetadataEntry = "__KELASSET_.json";

std::string hexOf(const void* bytes, std::size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  const auto* data = static_cast<const unsigned char*>(bytes);
  std::string hex;
  hex.reserve(size * 2);
  for (std::size_t i = 0; i < size; ++i) {
    hex += kDigits[data[i] >> 4];
    hex += kDigits[data[i] & 15];
  }
  return hex;
}

std::string metadataText(const std::string& assetId, const std::string& hexPass) {
  return metadataText(WrappedPasswords{{assetId, hexPass}});
}

std::string metadataText(const WrappedPasswords& wrapped) {
  std::string members;
  for (const auto& member : wrapped) {
    std::wstring id;
    std::wstring hexPass;
    platform::wideFromUtf8(member.first, id);
    platform::wideFromUtf8(member.second, hexPass);
    members +=
        (members.empty() ? "{\"" : ",{\"") + utf8(jsonEscaped(id)) + "\":\"" + utf8(jsonEscaped(hexPass)) + "\"}";
  }
  return "{\"assets\":[" + members + "]}";
}

WrappedPasswords wrappedPasswords(const ptree& meta) {
  WrappedPasswords wrapped;
  const auto assets = meta.find("assets");
  if (assets == meta.not_found()) return wrapped;
  for (const auto& element : assets->second) {
    for (const auto& member : element.second) wrapped.emplace_back(member.first, member.second.data());
  }
  return wrapped;
}

// Everything that is read of an archive before a key is used, in one go: what is done with keys afterwards touches no
// file, and so cannot be seen by those who see the Outside.
bool CryptoSyncCopyHandler::readSealed(const boost::filesystem::path& path, SealedArchive& archive) {
  const bool ofPair = isBelow(genericForm(platform::wideOf(path)), outsideFolder_);
  archive.form = ofPair ? PasswordForm::ofPair : PasswordForm::any;
  archive.failure = zip::ArchiveFailure::damaged;
  try {
    archive.head = std::make_unique<archive::ArchiveHead>(path, kMetadataEntry);
    archive.meta = merged(archive.head->metadata());
    if (wrappedPasswords(archive.meta).size() > kMaxAssets)
      throw zip::ArchiveError(zip::ArchiveFailure::foreign, "too many assets");
    return true;
  } catch (const zip::ArchiveError& error) {
    archive.failure = error.failure();
    HANDLER_ERROR("get_zip_meta_w error %d", error.code());
    return archiveFailed(error, path);
  } catch (const boost::property_tree::ptree_error& error) {
    archive.failure = zip::ArchiveFailure::noEntry;
    HANDLER_ERROR("error with get_zip_meta_w %s", error.what());
    sourceIsDamaged_ = true;
    return false;
  }
}

bool CryptoSyncCopyHandler::getZipMetaJSON(const boost::filesystem::path& archive, ptree& meta) {
  SealedArchive sealed;
  const bool read = readSealed(archive, sealed);
  meta.swap(sealed.meta);
  return read;
}

}  // namespace Kelta
