// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/ConflictName.h"

#include <algorithm>

#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "base/Clock.h"
#include "platform/Random.h"

namespace Kelta {
namespace {

const std::wstring kEnding = L".kelta_conflict";

}  // namespace

bool isConflictName(const std::wstring& name) {
  return name.size() > kEnding.size() && name.compare(name.size() - kEnding.size(), kEnding.size(), kEnding) == 0;
}

std::wstring conflictNameOf(const std::wstring& path, std::int64_t seconds) {
  const std::wstring suffix = newConflictSuffix(seconds);
  // Of a short name that the user gave this ending, the suffix's length would reach into the folder's name.
  const std::size_t start = path.rfind(L'/') + 1;
  const bool roomy = path.size() - start > suffix.size();
  const bool again = isConflictName(path) && roomy && path[path.size() - suffix.size()] == L'.';
  return path.substr(0, path.size() - (again ? suffix.size() : 0)) + suffix;
}

std::wstring newConflictSuffix(std::int64_t seconds) {
  std::string time = isoTime(seconds);  // YYYY-MM-DDTHH:MM:SSZ
  time.erase(std::remove_if(time.begin(), time.end(), [](char c) { return c == '-' || c == ':' || c == 'Z'; }),
             time.end());
  std::replace(time.begin(), time.end(), 'T', '-');
  std::uint32_t word = 0;
  platform::stirringWord(word);
  const unsigned char bytes[] = {static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8)};
  const std::string text = "." + time + "-" + hexOf(bytes, sizeof bytes);
  return std::wstring(text.begin(), text.end()) + kEnding;
}

}  // namespace Kelta
