// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <memory>

#include "api/Guard.h"
#include "api/LogSetup.h"
#include "base/Log.h"

using namespace Kelta;
using namespace Kelta::api;

extern "C" {

kelsync_pair** kelsync_init(kelsync_pair** out) {
  if (!out) return out;
  *out = nullptr;
  return guarded(nullptr, __func__, out, [&] {
    Log::useConsole();
    auto pair = std::make_unique<SyncPair>();
    SyncPair* const queue = pair.get();
    EngineServices services;
    services.clock = pair->clock();
    services.interruption = pair->interruption();
    services.notify = [queue](const std::wstring& type, const std::wstring& message, const std::wstring& more) {
      queue->notify(type, message, more);
    };
    services.keyArrived = [queue](const std::vector<std::wstring>& archives) { queue->keyArrived(archives); };
    services.notifyDone = [queue](const std::wstring& message) { queue->notifyDone(message); };
    services.shareWaits = [queue](const std::wstring& path, bool waits) { queue->noteShareWaits(path, waits); };
    pair->setSyncCopyHandler(new CryptoSyncCopyHandler(std::move(services)));
    *out = reinterpret_cast<kelsync_pair*>(pair.release());
    return out;
  });
}

void kelsync_delete(kelsync_pair* h) {
  guarded(h, __func__, 0, [&] {
    delete pairOf(h);
    return 0;
  });
}

int kelsync_ok(kelsync_pair* h) { return h && pairOf(h)->ok() ? 1 : 0; }

void kelsync_interrupt(kelsync_pair* h) {
  guarded(h, __func__, 0, [&] {
    if (h) pairOf(h)->interruption()->request();
    return 0;
  });
}

void freeme(void* p) { std::free(p); }

void kelsync_set_source_folder(kelsync_pair* h, const wchar_t* path) {
  configure(h, __func__, path != nullptr, [&](SyncPair& pair, CryptoSyncCopyHandler& handler) {
    pair.setSourceFolder(path);
    handler.setInsideFolder(path);
  });
}

void kelsync_set_dest_folder(kelsync_pair* h, const wchar_t* path) {
  configure(h, __func__, path != nullptr, [&](SyncPair& pair, CryptoSyncCopyHandler& handler) {
    pair.setDestFolder(path);
    handler.setOutsideFolder(path);
  });
}

void kelsync_set_temp_folder(kelsync_pair* h, const wchar_t* path) {
  configure(h, __func__, path != nullptr, [&](SyncPair& pair, CryptoSyncCopyHandler& handler) {
    pair.setTempFolder(path);
    handler.setTempFolder(path);
  });
}

void kelsync_set_state_path(kelsync_pair* h, const wchar_t* folder) {
  configure(h, __func__, folder != nullptr, [&](SyncPair& pair, CryptoSyncCopyHandler& handler) {
    pair.setStatePath(folder);
    handler.setQuarFolder(quarFolderOf(pair));
    handler.setStateFolder(pair.stateFolder());
  });
}

void kelsync_set_log_folder(kelsync_pair* h, const wchar_t* folder) {
  guarded(h, __func__, 0, [&] {
    if (folder) Log::setFolder(folder);
    return 0;
  });
}

void kelsync_set_compression_flag(kelsync_pair* h, int flag) {
  configure(h, __func__, true, [&](SyncPair&, CryptoSyncCopyHandler& handler) { handler.setCompressionFlag(flag); });
}

void kelsync_set_FNE(kelsync_pair* h, int flag) {
  configure(h, __func__, true, [&](SyncPair&, CryptoSyncCopyHandler& handler) { handler.setFNE(flag != 0); });
}

}  // extern "C"
