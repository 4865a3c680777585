// SPDX-License-Identifier: Apache-2.0
#include "PairSetup.h"

#include "Failure.h"
#include "PairKey.h"
#include "Terminal.h"

namespace Kelta {
namespace host {
namespace {

std::wstring checkedAsset(const Options& options) {
  options.refuseOperands();
  if (options.has(L"--names")) throw Failure{Exit::usage, L"encrypted names are not available in this version"};
  return assetOf(options);
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
    : options_(options),
      asset_(checkedAsset(options)),
      folders_(foldersOf(options)),
      work_(options.value(L"--work"), folders_),
      compress_(options.has(L"--compress")) {
  folders_.requirePresent();
  work_.open();
}

void PairSetup::prepare() {
  work_.requireNoKeyChange();
  key_ = pairKey(options_, work_, folders_, options_.has(L"--make-key"));
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
