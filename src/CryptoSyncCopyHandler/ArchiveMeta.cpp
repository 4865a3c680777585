// SPDX-License-Identifier: Apache-2.0
// The archive's own password and how it travels: encrypted with the asset key, as hexadecimal text, in the archive's
// metadata {"assets":[{"ASSETID":"HEXPASS"}]}. Metadata comes from the Outside and is not to be trusted.
#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>

#include "CryptoHelper/CryptoHelper.h"
#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "archive/Archive.h"
#include "archive/zip/ArchiveError.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {
namespace {

using boost::property_tree::ptree;

constexpr std::size_t kMaxMetadataBytes = 1024 * 1024;
constexpr int kMaxNesting = 16;  // the parser recurses
constexpr std::size_t kMaxHexDigits = 4096;

struct Free {
  void operator()(unsigned char* block) const { std::free(block); }
};

int digitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

bool bytesOf(const std::string& hex, std::string& bytes) {
  bytes.clear();
  if (hex.empty() || hex.size() % 2 != 0 || hex.size() > kMaxHexDigits) return false;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    const int high = digitValue(hex[i]);
    const int low = digitValue(hex[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes += static_cast<char>(high * 16 + low);
  }
  return true;
}

bool nestsTooDeep(const std::string& text) {
  int depth = 0;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    if (character == '"') quoted = !quoted;
    if (quoted && character == '\\') ++i;
    if (!quoted && (character == '{' || character == '[') && ++depth > kMaxNesting) return true;
    if (!quoted && (character == '}' || character == ']')) --depth;
  }
  return false;
}

template <typename Visit>
void forEachAsset(const ptree& meta, Visit visit) {
  const auto assets = meta.find("assets");
  if (assets == meta.not_found()) return;
  for (const auto& element : assets->second) {
    for (const auto& member : element.second) visit(member.first, member.second.data());
  }
}

bool isUtf8(const std::string& text) {
  std::wstring wide;
  const bool valid = platform::wideFromUtf8(text, wide);
  wipe(wide);
  return valid;
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
  forEachAsset(meta, [&](const std::string& id, const std::string& hexPass) { wrapped.emplace_back(id, hexPass); });
  return wrapped;
}

std::string CryptoSyncCopyHandler::encryptArchivePassword(std::string& archivePassword, std::string& assetKey) {
  HANDLER_DEBUG("archPass.size() %d", static_cast<int>(archivePassword.size()));
  CryptoHelper crypto;
  int length = static_cast<int>(archivePassword.size());
  auto* clear = reinterpret_cast<unsigned char*>(&archivePassword[0]);
  const std::unique_ptr<unsigned char, Free> cipher(crypto.encryptBufferAES(clear, &length, assetKey));
  std::string bytes;
  if (cipher) bytes.assign(reinterpret_cast<const char*>(cipher.get()), static_cast<std::size_t>(length));
  Secret again;
  // A password that cannot be had back would make the archive unreadable for ever.
  if (!cipher || !crypto.decrypted(bytes, assetKey, again.text) || again.text != archivePassword) {
    HANDLER_ERROR("couldn't encrypt password");
    return std::string();
  }
  HANDLER_DEBUG("l=%d", length);
  const std::string hexPass = hexOf(bytes.data(), bytes.size());
  HANDLER_DEBUG("returning hexPass %d", static_cast<int>(hexPass.size()));
  return hexPass;
}

bool CryptoSyncCopyHandler::passwordFrom(const std::string& assetId, const std::string& hexPass,
                                         std::string& password) {
  const std::vector<const std::string*> keys = keys_.readers(assetId);
  return std::any_of(keys.begin(), keys.end(),
                     [&](const std::string* key) { return passwordUnder(*key, hexPass, password); });
}

bool CryptoSyncCopyHandler::passwordUnder(const std::string& assetKey, const std::string& hexPass,
                                          std::string& password) {
  std::string cipher;
  if (!bytesOf(hexPass, cipher)) return false;
  HANDLER_DEBUG("cipherbuf len=%d", static_cast<int>(cipher.size()));
  Secret key(assetKey);
  const bool right = CryptoHelper().decrypted(cipher, key.text, password);
  HANDLER_DEBUG("clearbuf len=%i", static_cast<int>(password.size()));
  // A wrong key that happens to give right padding still does not give a text.
  if (right && !password.empty() && isUtf8(password)) return true;
  wipe(password);
  return false;
}

KeyFit CryptoSyncCopyHandler::keyFits(const std::string& assetId, const ptree& meta) {
  KeyFit fit = KeyFit::otherAsset;
  forEachAsset(meta, [&](const std::string& id, const std::string& hexPass) {
    if (id != assetId || fit == KeyFit::fits) return;
    Secret password;
    fit = passwordFrom(id, hexPass, password.text) ? KeyFit::fits : KeyFit::doesNot;
  });
  return fit;
}

std::vector<std::string> CryptoSyncCopyHandler::getPasswordFromMeta(ptree& meta) {
  std::vector<std::string> passwords;
  forEachAsset(meta, [&](const std::string& assetId, const std::string& hexPass) {
    if (!AssetKeys::isValidId(assetId)) return;
    HANDLER_DEBUG("got\n\t'asset'=%s\n\tarchivePass=%s", assetId.c_str(),
                  ("(" + std::to_string(hexPass.size()) + " digits)").c_str());
    Secret password;
    if (passwordFrom(assetId, hexPass, password.text)) passwords.push_back(password.text);
  });
  return passwords;
}

// Asks the host for the key of every asset that the metadata names, each once. True when any was given.
bool CryptoSyncCopyHandler::askForKeys(const ptree& meta) {
  std::set<std::string> ids;
  forEachAsset(meta, [&](const std::string& assetId, const std::string&) {
    if (AssetKeys::isValidId(assetId)) ids.insert(assetId);
  });
  bool given = false;
  for (const std::string& id : ids) given = askForKey(id) || given;
  return given;
}

bool CryptoSyncCopyHandler::getZipMetaJSON(const boost::filesystem::path& archive, ptree& meta) {
  meta.clear();
  try {
    const std::string text = archive::readEntry(archive, kMetadataEntry, std::string());
    if (text.size() > kMaxMetadataBytes || nestsTooDeep(text)) {
      HANDLER_ERROR("error with get_zip_meta_w %s", "metadata out of bounds");
      return false;
    }
    std::istringstream stream(text);
    boost::property_tree::read_json(stream, meta);
    return true;
  } catch (const zip::ArchiveError& error) {
    HANDLER_ERROR("get_zip_meta_w error %d", error.code());
    return archiveFailed(error, archive);
  } catch (const boost::property_tree::ptree_error& error) {
    HANDLER_ERROR("error with get_zip_meta_w %s", error.what());
    sourceIsDamaged_ = true;
    return false;
  }
}

}  // namespace Kelta
