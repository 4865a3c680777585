// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/AssetKeys.h"

#include <openssl/crypto.h>

#include <algorithm>

#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "base/Log.h"

namespace Kelta {
namespace {

constexpr std::size_t kMaxIdCharacters = 255;

bool mayStandInId(wchar_t character) {
  return character != L'"' && character != L'\\' && character >= 0x20 && character != 0x7F;
}

}  // namespace

void wipe(std::string& secret) {
  if (!secret.empty()) OPENSSL_cleanse(&secret[0], secret.size());
  secret.clear();
}

void wipe(std::wstring& secret) {
  if (!secret.empty()) OPENSSL_cleanse(&secret[0], secret.size() * sizeof(wchar_t));
  secret.clear();
}

AssetKeys::~AssetKeys() { clear(); }

bool AssetKeys::isValidId(const std::string& id) {
  std::wstring wide;
  if (id.empty() || !platform::wideFromUtf8(id, wide) || wide.size() > kMaxIdCharacters) return false;
  return std::all_of(wide.begin(), wide.end(), mayStandInId);
}

bool AssetKeys::install(const std::string& id, const std::string& key) {
  if (!isValidId(id) || key.empty()) return false;
  std::string& stored = keys_[id];
  const Secret kept(key);  // `key` may be the stored text itself
  wipe(stored);
  stored = kept.text;
  if (defaultId_.empty()) defaultId_ = id;
  return true;
}

bool AssetKeys::change(const std::string& id, const std::string& key) {
  if (!isValidId(id) || key.empty()) return false;
  const auto installed = keys_.find(id);
  if (installed != keys_.end() && installed->second != key) addFormer(id, installed->second);
  return install(id, key);
}

void AssetKeys::addFormer(const std::string& id, const std::string& key) {
  std::list<std::string>& former = former_[id];
  if (std::find(former.begin(), former.end(), key) == former.end()) former.push_back(key);
}

void AssetKeys::forgetFormer(const std::string& id) {
  for (std::string& key : former_[id]) wipe(key);
  former_.erase(id);
}

bool AssetKeys::remove(const std::string& id) {
  forgetFormer(id);
  const auto found = keys_.find(id);
  if (found == keys_.end()) return false;
  wipe(found->second);
  keys_.erase(found);
  return true;
}

void AssetKeys::clear() {
  for (auto& entry : keys_) wipe(entry.second);
  while (!former_.empty()) forgetFormer(std::string(former_.begin()->first));
  keys_.clear();
  defaultId_.clear();
}

const std::string* AssetKeys::find(const std::string& id) const {
  const auto found = keys_.find(id);
  return found == keys_.end() ? nullptr : &found->second;
}

std::vector<std::string> AssetKeys::ids() const {
  std::vector<std::string> list;
  for (const auto& entry : keys_) list.push_back(entry.first);
  return list;
}

std::vector<const std::string*> AssetKeys::readers(const std::string& id) const {
  std::vector<const std::string*> keys;
  if (const std::string* const installed = find(id)) keys.push_back(installed);
  const auto former = former_.find(id);
  if (former == former_.end()) return keys;
  for (const std::string& key : former->second) keys.push_back(&key);
  return keys;
}

void CryptoSyncCopyHandler::setAssetKey(const std::wstring& assetId, const std::wstring& key) {
  const Secret text(utf8(key));
  const std::string id = utf8(assetId);
  if (keys_.install(id, text.text)) {
    HANDLER_INFO("key installed for asset %s", id.c_str());
    tryAgainWith(id);
  } else {
    HANDLER_ERROR("key not installed: empty, or the asset id cannot be used");
  }
}

void CryptoSyncCopyHandler::removeAssetKey(const std::wstring& assetId) {
  const std::string id = utf8(assetId);
  const bool removed = keys_.remove(id);
  HANDLER_INFO("asset %s removed? %s", id.c_str(), log::truth(removed));
}

void CryptoSyncCopyHandler::clearAssets() {
  keys_.clear();
  HANDLER_INFO("all asset keys removed");
}

void CryptoSyncCopyHandler::registerKeyNotFound(KeyNotFoundCallback callback) { keyNotFound_ = std::move(callback); }

// What could not be opened for want of this key is not given up any more: its record goes, and its time starts anew.
void CryptoSyncCopyHandler::tryAgainWith(const std::string& assetId) {
  std::vector<std::wstring> archives;
  for (auto failure = decryptFailures_.begin(); failure != decryptFailures_.end();) {
    const bool wanted = failure->second.assets.count(assetId) > 0;
    if (wanted) archives.push_back(failure->first);
    failure = wanted ? decryptFailures_.erase(failure) : std::next(failure);
  }
  for (const std::wstring& archive : archives) ifQuarantinedClear(platform::pathOf(archive));
  if (!archives.empty() && services_.keyArrived) services_.keyArrived(archives);
}

// The host's answer, once per asset and operation; empty when there is none.
std::wstring CryptoSyncCopyHandler::answerOf(const std::string& assetId) {
  const KeyNotFoundCallback ask = keyNotFound_;  // the callback may register another one
  std::wstring id;
  if (!ask || !platform::wideFromUtf8(assetId, id) || !asked_.insert(assetId).second) return std::wstring();
  const char* const step = encrypting_ ? "copyEncrypt" : "copyDecrypt";
  HANDLER_INFO_OF(step, "key not found, going to callback");
  std::wstring key = ask(id);
  if (!key.empty()) HANDLER_INFO_OF(step, "found key %s", assetId.c_str());
  return key;
}

bool CryptoSyncCopyHandler::askForKey(const std::string& assetId) {
  const bool asked = asked_.count(assetId) > 0;
  std::wstring key = answerOf(assetId);
  std::wstring id;
  if (!key.empty() && platform::wideFromUtf8(assetId, id)) setAssetKey(id, key);
  wipe(key);
  return !asked && keys_.find(assetId) != nullptr;
}

}  // namespace Kelta
