// SPDX-License-Identifier: Apache-2.0
#include "PairKey.h"

#include <algorithm>

#include "Failure.h"
#include "Terminal.h"

namespace Kelta {
namespace host {
namespace {

const wchar_t* const kDefaultAsset = L"main";
constexpr std::size_t kLongestAssetId = 255;

}  // namespace

std::wstring assetOf(const Options& options) {
  if (!options.has(L"--asset")) return kDefaultAsset;
  const std::wstring id = options.value(L"--asset");
  const bool usable = std::all_of(id.begin(), id.end(), [](wchar_t character) {
    return character != L'"' && character != L'\\' && character >= 0x20 && character != 0x7F;
  });
  if (!usable || id.size() > kLongestAssetId) {
    throw Failure{Exit::usage, L"--asset takes 1 to 255 characters without quotes, backslashes and controls"};
  }
  return id;
}

FoundKey pairKey(const Options& options, const WorkFolder& work, const PairFolders& pair, bool make) {
  KeyWishes wishes;
  wishes.keyFile = options.value(L"--key-file");
  wishes.ownFile = work.keyFile();
  wishes.outside = pair.outside;
  wishes.make = make;
  wishes.archivesExist = pair.outsideHoldsArchives();
  FoundKey found = findKey(wishes);
  const std::wstring doubt = doubtAbout(found.text.text());
  if (!doubt.empty()) complain(doubt);
  return found;
}

}  // namespace host
}  // namespace Kelta
