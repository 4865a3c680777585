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

int paceOf(const Options& options) {
  if (!options.has(L"--pace")) return -1;
  const std::wstring text = options.value(L"--pace");
  const bool number = text.size() <= 3 && text.find_first_not_of(L"0123456789") == std::wstring::npos;
  const int percent = number ? std::stoi(text) : 101;
  if (percent > 100) throw Failure{Exit::usage, L"--pace takes a number from 0 to 100"};
  return percent;
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
  std::vector<OptionRule> rules = kKeyRules;
  for (const wchar_t* const folder : {L"--inside", L"--outside", L"--work"}) rules.push_back({folder, L"", true});
  for (const wchar_t* const flag : {L"--make-key", L"--names", L"--compress"}) rules.push_back({flag, L"", false});
  rules.push_back({L"--pace", L"", true});
  return rules;
}

std::vector<OptionRule> rulesWith(const std::vector<OptionRule>& more) {
  std::vector<OptionRule> rules = pairRules();
  rules.push_back({L"--quiet", L"-q", false});
  rules.insert(rules.end(), more.begin(), more.end());
  return rules;
}

NamedPair::NamedPair(const Options& options)
    : folders(foldersOf(options)), work(options.value(L"--work"), folders), log_(work.log()) {}

void NamedPair::open() {
  folders.requirePresent();
  work.open();
}

void NamedPair::openForReading() {
  folders.requirePresent();
  work.openForReading();
  log_ = work.readingLog();
}

EngineSettings NamedPair::settings() const {
  return {folders.inside, folders.outside, work.state(), work.temp(), log_, false};
}

std::wstring PairSetup::keyHint() const { return otherKeyHint(key_, pair_.work); }

PairSetup::PairSetup(const Options& options) : options_(checked(options)), pair_(options), pace_(paceOf(options)) {}

void PairSetup::prepare() {
  pair_.work.requireNoKeyChange();
  key_ = pairKey(options_, pair_.work, pair_.folders, options_.has(L"--make-key"));
  pair_.work.claim();
  pair_.work.prepareLog();
}

std::unique_ptr<Engine> PairSetup::engine(EntryListener& listener, const std::wstring& log) const {
  EngineSettings settings = pair_.settings();
  settings.log = log;
  settings.compress = options_.has(L"--compress");
  auto engine = std::make_unique<Engine>(settings);
  engine->setListener(listener);
  openWithKey(*engine, options_, key_, pair_.work);
  turnNamesOver(*engine);
  return engine;
}

// Encrypted names, asked for now or earlier. Archives that are there already are turned over whenever it is asked for,
// since an earlier time may have been ended before it was done.
void PairSetup::turnNamesOver(Engine& engine) const {
  const bool asked = options_.has(L"--names");
  const bool on = asked || pair_.work.namesRemembered();
  engine.setNames(on);
  if (!on && hasEncryptedNames(engine, pair_.folders.outside))
    complain(L"other devices encrypt names on the Outside, this one writes plain ones; --names encrypts them here too");
  if (!asked) return;
  pair_.work.rememberNames(true);
  engine.resetNames();
}

}  // namespace host
}  // namespace Kelta
