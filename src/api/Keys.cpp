// SPDX-License-Identifier: Apache-2.0
#include "api/Guard.h"

using namespace Kelta;
using namespace Kelta::api;

extern "C" {

void kelsync_set_assetkey(kelsync_pair* h, const wchar_t* assetId, const wchar_t* key) {
  configure(h, __func__, assetId && key, [&](SyncPair&, CryptoSyncCopyHandler& handler) {
    const WideSecret text(key);
    handler.setAssetKey(assetId, text.text);
  });
}

int kelsync_change_assetkey(kelsync_pair* h, const wchar_t* assetId, const wchar_t* newKey) {
  if (!assetId || !newKey) {
    logFailure(h, __func__, "null argument");
    return 0;
  }
  bool changed = false;
  command(h, __func__, [&](SyncPair& pair) {
    const WideSecret key(newKey);
    changed = pair.rewrapArchives([&](const SyncPair::Progress& progress, const SyncPair::Renamed& renamed) {
      return handlerOf(pair)->changeAssetKey(assetId, key.text, progress, renamed);
    });
  });
  return changed ? 1 : 0;
}

int kelsync_verify_archives(kelsync_pair* h) {
  bool right = false;
  command(h, __func__, [&](SyncPair& pair) {
    pair.requireIntactRoot(false);
    right =
        handlerOf(pair)->verifyArchives([&](const std::wstring& outcome, const std::wstring& path, std::uint64_t done,
                                            std::uint64_t total) { pair.tell(outcome, path, done, total); });
  });
  return right ? 1 : 0;
}

void kelsync_remove_assetkey(kelsync_pair* h, const wchar_t* assetId) {
  configure(h, __func__, assetId != nullptr,
            [&](SyncPair&, CryptoSyncCopyHandler& handler) { handler.removeAssetKey(assetId); });
}

void kelsync_clear_assets(kelsync_pair* h) {
  configure(h, __func__, true, [](SyncPair&, CryptoSyncCopyHandler& handler) { handler.clearAssets(); });
}

int kelsync_verify_assetkey(kelsync_pair* h, const wchar_t* assetId) {
  bool right = false;
  if (assetId) command(h, __func__, [&](SyncPair& pair) { right = handlerOf(pair)->verifyAssetKey(assetId); });
  return right ? 1 : 0;
}

void kelsync_set_share_policy(kelsync_pair* h, int policy) {
  configure(h, __func__, true,
            [&](SyncPair&, CryptoSyncCopyHandler& handler) { handler.setChangedSharesWait(policy == 1); });
}

int kelsync_share_confirm(kelsync_pair* h, const wchar_t* folder, const wchar_t* assetId) {
  bool confirmed = false;
  configure(h, __func__, folder && assetId,
            [&](SyncPair&, CryptoSyncCopyHandler& handler) { confirmed = handler.confirmShare(folder, assetId); });
  return confirmed ? 1 : 0;
}

int kelsync_FNE_reset(kelsync_pair* h) {
  bool done = false;
  command(h, __func__, [&](SyncPair& pair) {
    CryptoSyncCopyHandler* const handler = handlerOf(pair);
    if (!handler) return;
    done = pair.renameArchives([&](const SyncPair::Renamed& renamed) { return handler->resetStateFNE(renamed); });
  });
  return done ? 1 : 0;
}

void kelsync_cb_register_keynotfound(kelsync_pair* h, kelsync_keynotfound_cb cb) {
  configure(h, __func__, true, [&](SyncPair&, CryptoSyncCopyHandler& handler) {
    if (!cb) return handler.registerKeyNotFound(nullptr);
    handler.registerKeyNotFound([cb](const std::wstring& assetId) {
      const wchar_t* const key = cb(assetId.c_str());
      return key ? std::wstring(key) : std::wstring();
    });
  });
}

void kelsync_cb_register_progress(kelsync_pair* h, kelsync_progress_cb cb, void* context) {
  configure(h, __func__, true, [&](SyncPair& pair, CryptoSyncCopyHandler&) {
    if (!cb) return pair.setProgress(nullptr);
    pair.setProgress([cb, context, &pair](const std::wstring& operation, const std::wstring& path, std::uint64_t done,
                                          std::uint64_t total) {
      cb(context, operation.c_str(), pair.userPath(path).c_str(), done, total);
    });
  });
}

}  // extern "C"
