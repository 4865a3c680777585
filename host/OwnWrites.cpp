// SPDX-License-Identifier: Apache-2.0
#include "OwnWrites.h"

#include <utility>

#include "platform/Text.h"

namespace Kelta {
namespace host {

void OwnWrites::beginCycle() { former_ = std::exchange(current_, {}); }

void OwnWrites::note(const std::wstring& path) { current_[path] = platform::stampOf(platform::pathOf(path)); }

bool OwnWrites::isAsLeft(const std::wstring& path) const {
  for (const Stamps* const stamps : {&current_, &former_}) {
    const auto noted = stamps->find(path);
    if (noted == stamps->end()) continue;
    const platform::FileStamp now = platform::stampOf(platform::pathOf(path));
    // The time of a folder changes with what is in it.
    const bool folders = now.kind == platform::Kind::folder && noted->second.kind == platform::Kind::folder;
    return folders || now.sameContent(noted->second);
  }
  return false;
}

}  // namespace host
}  // namespace Kelta
