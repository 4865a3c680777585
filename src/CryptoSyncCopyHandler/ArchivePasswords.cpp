// SPDX-License-Identifier: Apache-2.0
// The archive's own password and how it travels: encrypted with the asset key, as hexadecimal text, in the archive's
// metadata. Whoever can write to the Outside can change what is unwrapped here, and watches what becomes of it.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <set>

#include "CryptoHelper/CryptoHelper.h"
#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "base/Log.h"

namespace Kelta {
namespace {

using boost::property_tree::ptree;

constexpr std::size_t kMaxHexDigits = 4096;
// An archive has few wrapped passwords, unless somebody wants to fill the log.
constexpr int kMostTold = 8;

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

// Whether a writer of this format can have made the text. Whoever can change a wrapped password would otherwise make
// short ones of it, and guess them one byte at a time.
bool isPassword(const std::string& text, PasswordForm form) {
  if (form == PasswordForm::any) return !text.empty();
  const bool hex = std::all_of(text.begin(), text.end(), [](char digit) { return digitValue(digit) >= 0; });
  return text.size() == kPasswordBytes || (text.size() == 2 * kPasswordBytes && hex);
}

}  // namespace

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

bool CryptoSyncCopyHandler::passwordUnder(const std::string& assetKey, const std::string& hexPass, PasswordForm form,
                                          std::string& password, bool told) {
  std::string cipher;
  if (!bytesOf(hexPass, cipher)) return false;
  if (told) HANDLER_DEBUG_OF("getPasswordFromMeta", "cipherbuf len=%d", static_cast<int>(cipher.size()));
  Secret key(assetKey);
  const auto trace = told ? CryptoHelper::Trace::steps : CryptoHelper::Trace::nothing;
  const bool right = CryptoHelper().decrypted(cipher, key.text, password, trace);
  if (told) HANDLER_DEBUG_OF("getPasswordFromMeta", "clearbuf len=%i", static_cast<int>(password.size()));
  if (right && isPassword(password, form)) return true;
  wipe(password);
  return false;
}

std::vector<std::string> CryptoSyncCopyHandler::getPasswordFromMeta(ptree& meta, PasswordForm form) {
  std::vector<std::string> passwords;
  int tried = 0;
  for (const auto& member : wrappedPasswords(meta)) {
    const std::string& assetId = member.first;
    const std::string& hexPass = member.second;
    if (!AssetKeys::isValidId(assetId)) continue;
    const bool told = ++tried <= kMostTold;
    if (told)
      HANDLER_DEBUG("got\n\t'asset'=%s\n\tarchivePass=%s", assetId.c_str(),
                    ("(" + std::to_string(hexPass.size()) + " digits)").c_str());
    for (const std::string* const key : keys_.readers(assetId)) {
      Secret password;
      if (passwordUnder(*key, hexPass, form, password.text, told)) passwords.push_back(password.text);
    }
  }
  return passwords;
}

// The password that opens the archive, from the installed keys. There is one answer for all that does not: no key, a
// wrong one, and a wrapped password that somebody tampered with, whatever comes out of it.
bool CryptoSyncCopyHandler::passwordOf(SealedArchive& archive, std::string& password) {
  Secrets candidates;
  candidates.reset(getPasswordFromMeta(archive.meta, archive.form));
  for (const std::string& candidate : candidates.texts) {
    if (!archive.head->opens(candidate)) continue;
    password = candidate;
    return true;
  }
  return false;
}

// The same, with the host asked when no installed key will do.
bool CryptoSyncCopyHandler::unseal(SealedArchive& archive, std::string& password) {
  return passwordOf(archive, password) || (askForKeys(archive.meta) && passwordOf(archive, password));
}

KeyFit CryptoSyncCopyHandler::keyFits(const std::string& assetId, const SealedArchive& archive) {
  KeyFit fit = KeyFit::otherAsset;
  for (const auto& member : wrappedPasswords(archive.meta)) {
    if (member.first != assetId) continue;
    const bool told = fit == KeyFit::otherAsset;  // once for an archive
    fit = KeyFit::doesNot;
    for (const std::string* const key : keys_.readers(assetId)) {
      Secret password;
      if (passwordUnder(*key, member.second, archive.form, password.text, told) && archive.head->opens(password.text))
        return KeyFit::fits;
    }
  }
  return fit;
}

// Whether the asset's own key gives the very password that opened the archive: what the metadata names proves nothing.
bool CryptoSyncCopyHandler::wraps(const SealedArchive& archive, const std::string& assetId,
                                  const std::string& password) {
  for (const auto& member : wrappedPasswords(archive.meta)) {
    if (member.first != assetId) continue;
    for (const std::string* const key : keys_.readers(assetId)) {
      Secret found;
      if (passwordUnder(*key, member.second, archive.form, found.text) && found.text == password) return true;
    }
  }
  return false;
}

// Asks the host for the key of every asset that the metadata names, each once. True when any was given.
bool CryptoSyncCopyHandler::askForKeys(const ptree& meta) {
  std::set<std::string> ids;
  for (const auto& member : wrappedPasswords(meta)) {
    if (AssetKeys::isValidId(member.first)) ids.insert(member.first);
  }
  bool given = false;
  for (const std::string& id : ids) given = askForKey(id) || given;
  return given;
}

}  // namespace Kelta
