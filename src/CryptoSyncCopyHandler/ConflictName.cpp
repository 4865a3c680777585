// SPDX-License-Identifier: Apache-2.0
#include "CryptoSyncCopyHandler/ConflictName.h"

#include <algorithm>

#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "base/Clock.h"
#include "base/Md5.h"
#include "platform/Random.h"
#include "platform/Text.h"

namespace Kelta {
namespace {

const std::wstring kEnding = L".kelta_conflict";

std::wstring suffixOf(std::int64_t seconds, const std::string& digits) {
  std::string time = isoTime(seconds);  // YYYY-MM-DDTHH:MM:SSZ
  time.erase(std::remove_if(time.begin(), time.end(), [](char c) { return c == '-' || c == ':' || c == 'Z'; }),
             time.end());
  std::replace(time.begin(), time.end(), 'T', '-');
  const std::string text = "." + time + "-" + digits;
  return std::wstring(text.begin(), text.end()) + kEnding;
}

}  // namespace

bool isConflictName(const std::wstring& name) {
  return name.size() > kEnding.size() && name.compare(name.size() - kEnding.size(), kEnding.size(), kEnding) == 0;
}

std::wstring conflictNameOf(const std::wstring& path, std::int64_t seconds) {
  return conflictNameOf(path, newConflictSuffix(seconds));
}

std::wstring conflictNameOf(const std::wstring& path, const std::wstring& suffix) {
  // Of a short name that the user gave this ending, the suffix's length would reach into the folder's name.
  const std::size_t start = path.rfind(L'/') + 1;
  const bool roomy = path.size() - start > suffix.size();
  const bool again = isConflictName(path) && roomy && path[path.size() - suffix.size()] == L'.';
  return path.substr(0, path.size() - (again ? suffix.size() : 0)) + suffix;
}

std::wstring newConflictSuffix(std::int64_t seconds) {
  std::uint32_t word = 0;
  platform::stirringWord(word);
  const unsigned char bytes[] = {static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8)};
  return suffixOf(seconds, hexOf(bytes, sizeof bytes));
}

std::wstring sharedConflictSuffix(const std::wstring& text, std::int64_t seconds) {
  const std::string seed = platform::utf8(text) + '@' + std::to_string(seconds);
  return suffixOf(seconds, md5Hex(seed.data(), seed.size()).substr(0, 4));
}

}  // namespace Kelta
