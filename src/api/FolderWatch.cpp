// SPDX-License-Identifier: Apache-2.0
#include "api/FolderLists.h"
#include "api/Guard.h"
#include "watcher/Watcher.h"

using namespace Kelta;
using namespace Kelta::api;

namespace {

Watcher* watcherOf(kelsync_watcher* handle) { return reinterpret_cast<Watcher*>(handle); }

/// Runs `body(watcher)`; a null handle gives `fallback`.
template <class Result, class Body>
Result watching(kelsync_watcher* handle, const char* function, Result fallback, Body body) {
  if (!handle) {
    logFailure(handle, function, "null handle");
    return fallback;
  }
  return guarded(handle, function, fallback, [&] { return body(*watcherOf(handle)); });
}

}  // namespace

extern "C" {

void kelsync_fw_init(kelsync_watcher** out) {
  if (!out) return;
  *out = nullptr;
  guarded(nullptr, __func__, 0, [&] {
    *out = reinterpret_cast<kelsync_watcher*>(new Watcher());
    return 0;
  });
}

void kelsync_fw_add_folder(kelsync_watcher* handle, const wchar_t* path) {
  if (!path) return logFailure(handle, __func__, "null argument");
  watching(handle, __func__, 0, [&](Watcher& watcher) {
    watcher.addFolder(path);
    return 0;
  });
}

void kelsync_fw_add_filter(kelsync_watcher* handle, const wchar_t* filter) {
  if (!filter) return logFailure(handle, __func__, "null argument");
  watching(handle, __func__, 0, [&](Watcher& watcher) {
    watcher.vars().addFilter(filter);
    return 0;
  });
}

void kelsync_fw_folders_only(kelsync_watcher* handle, int flag) {
  watching(handle, __func__, 0, [&](Watcher& watcher) {
    watcher.setFoldersOnly(flag != 0);
    return 0;
  });
}

void kelsync_fw_register_cb(kelsync_watcher* handle, kelsync_fw_cb cb) {
  watching(handle, __func__, 0, [&](Watcher& watcher) {
    watcher.vars().registerCallback(cb);
    return 0;
  });
}

void kelsync_fw_startwatch(kelsync_watcher* handle) {
  watching(handle, __func__, 0, [](Watcher& watcher) {
    watcher.start();
    return 0;
  });
}

int kelsync_fw_change_occurred(kelsync_watcher* handle) {
  return watching(handle, __func__, 0, [](Watcher& watcher) { return watcher.vars().changeOccurred() ? 1 : 0; });
}

int kelsync_fw_incomplete(kelsync_watcher* handle) {
  return watching(handle, __func__, 0, [](Watcher& watcher) { return watcher.isIncomplete() ? 1 : 0; });
}

void kelsync_fw_get_changes(kelsync_watcher* handle, kelsync_folder_list** out) {
  if (!out) return logFailure(handle, __func__, "null argument");
  *out = nullptr;
  watching(handle, __func__, 0, [&](Watcher& watcher) {
    auto list = std::make_unique<FolderList>();
    *list = watcher.takeChanges();
    *out = reinterpret_cast<kelsync_folder_list*>(list.release());
    return 0;
  });
}

void kelsync_fw_endwatch(kelsync_watcher* handle, int wait) {
  watching(handle, __func__, 0, [&](Watcher& watcher) {
    watcher.end(wait != 0);
    return 0;
  });
}

void kelsync_fw_delete(kelsync_watcher* handle) {
  if (!handle) return;
  guarded(handle, __func__, 0, [&] {
    delete watcherOf(handle);
    return 0;
  });
}

}  // extern "C"
