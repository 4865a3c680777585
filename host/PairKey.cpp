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

[[noreturn]] void refuseKey(const FoundKey& key, const WorkFolder& work) {
  std::wstring message = L"the key opens none of the archives on the Outside; nothing was changed. It came from: ";
  message += key.source;
  if (key.overrides) {
    message += L"\nThat one was used in place of the pair's own, " + printable(genericOf(work.keyFile()));
  }
  message += L"\n" + otherKeyHint(key, work);
  throw Failure{Exit::noKey, message};
}

}  // namespace

const std::vector<OptionRule> kKeyRules = {{L"--key-file", L"", true}, {L"--asset", L"", true}};

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

std::wstring otherKeyHint(const FoundKey& key, const WorkFolder& work) {
  const std::wstring own = printable(genericOf(work.keyFile()));
  const std::wstring place = key.source == own ? L", or put it in the place of " + own : std::wstring();
  return L"If the key was changed on another device (kelsync key rotate), bring its new key file here: give it with "
         L"--key-file" +
         place +
         L". Keep the old one as well until every device has the new one. If it was changed here, another device "
         L"may still use the old one: see \"kelsync help key rotate\".";
}

void openWithKey(Engine& engine, const Options& options, const FoundKey& key, const WorkFolder& work) {
  engine.setKey(assetOf(options), key.text.c_str());
  engine.initState();
  if (!engine.keyFits(assetOf(options)) && !engine.stopAsked()) refuseKey(key, work);
}

}  // namespace host
}  // namespace Kelta
