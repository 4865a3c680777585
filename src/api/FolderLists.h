// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kelsyncpair/kelsyncpair.h"

namespace Kelta {
namespace api {

using FolderList = std::vector<std::wstring>;

inline FolderList* folderList(kelsync_folder_list* list) { return reinterpret_cast<FolderList*>(list); }

/// A host's list during one command; freed afterwards when the command consumes it.
class ConsumedList {
public:
  ConsumedList(kelsync_folder_list* list, bool consumed) : list_(folderList(list)) {
    if (consumed) owned_.reset(list_);
  }
  FolderList copy() const { return list_ ? *list_ : FolderList(); }

private:
  FolderList* list_;
  std::unique_ptr<FolderList> owned_;
};

}  // namespace api
}  // namespace Kelta
