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

bool AssetKeys::remove(const std::string& id) {
  const auto found = keys_.find(id);
  if (found == keys_.end()) return false;
  wipe(found->second);
  keys_.erase(found);
  return true;
}

void AssetKeys::clear() {
  for (auto& entry : keys_) wipe(entry.second);
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

void CryptoSyncCopyHandler::setAssetKey(const std::wstring& assetId, const std::wstring& key) {
  const Secret text(utf8(key));
  const std::string id = utf8(assetId);
  if (keys_.install(id, text.text)) {
    HANDLER_INFO("key installed for asset %s", id.c_str());
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

std::string CryptoSyncCopyHandler::getAssetForPath(const boost::filesystem::path& path) {
  HANDLER_DEBUG("%s", utf8(path).c_str());
  return keys_.defaultId();
}

void CryptoSyncCopyHandler::registerKeyNotFound(KeyNotFoundCallback callback) { keyNotFound_ = std::move(callback); }

bool CryptoSyncCopyHandler::askForKey(const std::string& assetId) {
  const KeyNotFoundCallback ask = keyNotFound_;  // the callback may register another one
  if (!ask) return false;
  HANDLER_INFO("key not found, going to callback");
  std::wstring id;
  if (!platform::wideFromUtf8(assetId, id)) return false;
  std::wstring key = ask(id);
  if (!key.empty()) {
    HANDLER_INFO("found key %s", assetId.c_str());
    setAssetKey(id, key);
    wipe(key);
  }
  return keys_.find(assetId) != nullptr;
}

}  // namespace Kelta
