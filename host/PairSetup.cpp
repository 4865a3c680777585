// SPDX-License-Identifier: Apache-2.0
#include "PairSetup.h"

#include <boost/filesystem/operations.hpp>

#include "Failure.h"
#include "PairKey.h"
#include "Terminal.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

const Options& checked(const Options& options) {
  options.refuseOperands();
  assetOf(options);
  return options;
}

PairFolders foldersOf(const Options& options) {
  const std::wstring inside = options.required(L"--inside");
  return PairFolders(inside, options.required(L"--outside"));
}

bool hasEncryptedNames(Engine& engine, const std::wstring& outside) {
  boost::system::error_code error;
  fs::recursive_directory_iterator entry(platform::pathOf(outside), fs::directory_options::skip_permission_denied,
                                         error);
  for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    std::wstring path;
    if (entry->path().extension() != ".kelta" || !platform::wideOf(entry->path().generic_path(), path)) continue;
    const std::wstring plain = engine.plainName(path);
    if (!plain.empty() && plain + L".kelta" != path.substr(path.rfind(L'/') + 1)) return true;
  }
  return false;
}

}  // namespace

std::vector<OptionRule> pairRules() {
  return {{L"--inside", L"", true}, {L"--outside", L"", true},   {L"--work", L"", true},   {L"--key-file", L"", true},
          {L"--asset", L"", true},  {L"--make-key", L"", false}, {L"--names", L"", false}, {L"--compress", L"", false}};
}

PairSetup::PairSetup(const Options& options)
    : options_(checked(options)),
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
  openWithKey(*engine, options_, key_, work_);
  turnNamesOver(*engine);
  return engine;
}

// Encrypted names, asked for now or earlier. Archives that are there already are turned over whenever it is asked for,
// since an earlier time may have been ended before it was done.
void PairSetup::turnNamesOver(Engine& engine) const {
  const bool asked = options_.has(L"--names");
  const bool on = asked || work_.namesRemembered();
  engine.setNames(on);
  if (!on && hasEncryptedNames(engine, folders_.outside))
    complain(L"other devices encrypt names on the Outside, this one writes plain ones; --names encrypts them here too");
  if (!asked) return;
  work_.rememberNames(true);
  engine.resetNames();
}

}  // namespace host
}  // namespace Kelta
