// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

namespace Kelta {

/// The installed key domains: asset id → key text, both UTF-8. Key texts are wiped when they go.
class AssetKeys {
public:
  AssetKeys() = default;
  ~AssetKeys();
  AssetKeys(const AssetKeys&) = delete;
  AssetKeys& operator=(const AssetKeys&) = delete;

  /// 1 to 255 characters without quotes, backslashes and control characters.
  static bool isValidId(const std::string& id);

  /// False for an id that is not valid and for an empty key.
  bool install(const std::string& id, const std::string& key);
  /// As install(), but the key that was installed still opens what it wrapped, until forgetFormer().
  bool change(const std::string& id, const std::string& key);
  /// One more key to read with; the installed one stays.
  void addFormer(const std::string& id, const std::string& key);
  void forgetFormer(const std::string& id);
  bool remove(const std::string& id);
  void clear();
  /// The key, or null. Valid until the id's key changes.
  const std::string* find(const std::string& id) const;
  /// All keys to read with, the installed one first, then those from before a change. Valid as long.
  std::vector<const std::string*> readers(const std::string& id) const;
  /// The asset installed first, empty when there was none. It stays the default one until clear(), even while its
  /// key is removed: files never slip under another asset's key by themselves.
  const std::string& defaultId() const { return defaultId_; }

private:
  std::map<std::string, std::string> keys_;
  std::map<std::string, std::list<std::string>> former_;  ///< lists, since they never move a text
  std::string defaultId_;
};

/// Overwrites a text's memory and empties it.
void wipe(std::string& secret);
void wipe(std::wstring& secret);

/// A secret text, wiped at the end of its scope.
struct Secret {
  std::string text;

  explicit Secret(std::string value = std::string()) : text(std::move(value)) {}
  ~Secret() { wipe(text); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
};

/// The same in wide characters, as the host gives it.
struct WideSecret {
  std::wstring text;

  explicit WideSecret(const wchar_t* value) : text(value) {}
  ~WideSecret() { wipe(text); }
  WideSecret(const WideSecret&) = delete;
  WideSecret& operator=(const WideSecret&) = delete;
};

/// Several secret texts, wiped at the end of their scope.
struct Secrets {
  std::vector<std::string> texts;

  Secrets() = default;
  ~Secrets() { reset({}); }
  Secrets(const Secrets&) = delete;
  Secrets& operator=(const Secrets&) = delete;
  void reset(std::vector<std::string> values) {
    for (std::string& text : texts) wipe(text);
    texts = std::move(values);
  }
};

}  // namespace Kelta
