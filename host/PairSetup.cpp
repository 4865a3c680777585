// SPDX-License-Identifier: Apache-2.0
#include "PairSetup.h"

#include <algorithm>

#include "Failure.h"
#include "Terminal.h"

namespace Kelta {
namespace host {
namespace {

const wchar_t* const kDefaultAsset = L"main";
constexpr std::size_t kLongestAssetId = 255;

/// The asset under which files are encrypted. Throws Failure (usage) when the engine would not take it.
std::wstring assetOf(const Options& options) {
  options.refuseOperands();
  if (options.has(L"--names")) throw Failure{Exit::usage, L"encrypted names are not available in this version"};
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

PairFolders foldersOf(const Options& options) {
  const std::wstring inside = options.required(L"--inside");
  return PairFolders(inside, options.required(L"--outside"));
}

}  // namespace

std::vector<OptionRule> pairRules() {
  return {{L"--inside", L"", true}, {L"--outside", L"", true},   {L"--work", L"", true},   {L"--key-file", L"", true},
          {L"--asset", L"", true},  {L"--make-key", L"", false}, {L"--names", L"", false}, {L"--compress", L"", false}};
}

PairSetup::PairSetup(const Options& options)
    : asset_(assetOf(options)),
      folders_(foldersOf(options)),
      work_(options.value(L"--work"), folders_),
      keyFile_(options.value(L"--key-file")),
      makeKey_(options.has(L"--make-key")),
      compress_(options.has(L"--compress")) {
  folders_.requirePresent();
  work_.open();
}

void PairSetup::prepare() {
  KeyWishes wishes;
  wishes.keyFile = keyFile_;
  wishes.ownFile = work_.keyFile();
  wishes.outside = folders_.outside;
  wishes.make = makeKey_;
  wishes.archivesExist = folders_.outsideHoldsArchives();
  key_ = findKey(wishes);
  const std::wstring doubt = doubtAbout(key_.text.text());
  if (!doubt.empty()) complain(doubt);
  work_.claim();
  work_.prepareLog();
}

std::unique_ptr<Engine> PairSetup::engine(EntryListener& listener, const std::wstring& log) const {
  auto engine = std::make_unique<Engine>(
      EngineSettings{folders_.inside, folders_.outside, work_.state(), work_.temp(), log, compress_});
  engine->setListener(listener);
  engine->setKey(asset_, key_.text.c_str());
  engine->initState();
  if (!engine->keyFits(asset_) && !engine->stopAsked()) refuseKey();
  return engine;
}

void PairSetup::refuseKey() const {
  std::wstring message = L"the key opens none of the archives on the Outside; nothing was changed. It came from: ";
  message += key_.source;
  if (key_.overrides) {
    message += L"\nThat one was used in place of the pair's own, " + printable(genericOf(work_.keyFile()));
  }
  throw Failure{Exit::noKey, message};
}

}  // namespace host
}  // namespace Kelta
