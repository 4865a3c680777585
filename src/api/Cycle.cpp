// SPDX-License-Identifier: Apache-2.0
#include "api/FolderLists.h"
#include "api/Guard.h"

using namespace Kelta;
using namespace Kelta::api;

extern "C" {

void kelsync_init_state(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) {
    CryptoSyncCopyHandler* const handler = handlerOf(pair);
    if (!handler) return;
    // Before the first scan, which may have something to quarantine.
    handler->setQuarFolder(quarFolderOf(pair));
    handler->sweepTempFolder();
    pair.initState();
  });
}

void kelsync_set_pace(kelsync_pair* h, int percent) {
  configure(h, __func__, true, [&](SyncPair& pair, CryptoSyncCopyHandler&) { pair.setPace(percent); });
}

void kelsync_sync_cycle(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) { pair.syncCycle(); });
}

void kelsync_scan_src_changes(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) { pair.scanSrcChanges(); });
}

void kelsync_scan_dest_changes(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) { pair.scanDestChanges(); });
}

void kelsync_sync_changes(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) { pair.syncChanges(); });
}

void kelsync_write_state(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) { pair.writeState(); });
}

void kelsync_sync_end(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) { pair.endCycle(); });
}

void kelsync_default_sleep(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) {
    int seconds = 0;
    pair.defaultSleep(seconds);
    pair.sleepWithCheck(seconds, 1000);
  });
}

int kelsync_default_sleep_tell(kelsync_pair* h) {
  int seconds = 0;
  command(h, __func__, [&](SyncPair& pair) { pair.defaultSleep(seconds); });
  return seconds;
}

void kelsync_sub_scan(kelsync_pair* h, kelsync_folder_list* list) {
  const ConsumedList folders(list, true);
  command(h, __func__, [&](SyncPair& pair) { pair.subScanForChanges(folders.copy()); });
}

void kelsync_sub_scan_updates(kelsync_pair* h, kelsync_folder_list* list, int freeList) {
  const ConsumedList folders(list, freeList == 1);
  command(h, __func__, [&](SyncPair& pair) { pair.subScanForUpdates(folders.copy()); });
}

void kelsync_sub_scan_deletes(kelsync_pair* h, kelsync_folder_list* list, int freeList) {
  const ConsumedList folders(list, freeList == 1);
  command(h, __func__, [&](SyncPair& pair) { pair.subScanForDeletes(folders.copy()); });
}

void kelsync_sub_scan_resolve(kelsync_pair* h, kelsync_folder_list* list) {
  const ConsumedList folders(list, true);
  command(h, __func__, [&](SyncPair& pair) {
    pair.subScanForChanges(folders.copy());
    pair.subScanAgain(folders.copy());
    pair.subResolve();
  });
}

void kelsync_sub_resolve(kelsync_pair* h) {
  command(h, __func__, [](SyncPair& pair) { pair.subResolve(); });
}

int kelsync_state_insert_record(kelsync_pair* h, const wchar_t* path) {
  bool done = false;
  if (path) command(h, __func__, [&](SyncPair& pair) { done = pair.stateInsertRecord(path); });
  return done ? 1 : 0;
}

int kelsync_state_remove_record(kelsync_pair* h, const wchar_t* path) {
  bool done = false;
  if (path) command(h, __func__, [&](SyncPair& pair) { done = pair.stateRemoveRecord(path); });
  return done ? 1 : 0;
}

}  // extern "C"
