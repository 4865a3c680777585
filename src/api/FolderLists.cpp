// SPDX-License-Identifier: Apache-2.0
#include "api/FolderLists.h"

#include "api/Guard.h"

using namespace Kelta::api;

extern "C" {

void kelsync_vw_new(kelsync_folder_list** out) {
  if (!out) return;
  *out = nullptr;
  guarded(nullptr, __func__, 0, [&] {
    *out = reinterpret_cast<kelsync_folder_list*>(new FolderList());
    return 0;
  });
}

void kelsync_vw_add(kelsync_folder_list* list, const wchar_t* path) {
  if (!list || !path) return;
  guarded(list, __func__, 0, [&] {
    folderList(list)->push_back(path);
    return 0;
  });
}

uint32_t kelsync_vw_count(kelsync_folder_list* list) {
  return list ? static_cast<uint32_t>(folderList(list)->size()) : 0;
}

const wchar_t* kelsync_vw_get(kelsync_folder_list* list, uint32_t index) {
  return index < kelsync_vw_count(list) ? (*folderList(list))[index].c_str() : nullptr;
}

void kelsync_vw_delete(kelsync_folder_list* list) { delete folderList(list); }

}  // extern "C"
