// SPDX-License-Identifier: Apache-2.0
#include <boost/filesystem/operations.hpp>

#include "Commands.h"
#include "Engine.h"
#include "PairKey.h"
#include "RecoverCommand.h"
#include "Terminal.h"
#include "platform/Files.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

const std::vector<OptionRule> kVerifyRules = {{L"--inside", L"", true},
                                              {L"--outside", L"", true},
                                              {L"--work", L"", true},
                                              {L"--key-file", L"", true},
                                              {L"--asset", L"", true}};

/// Counts what an operation over all archives tells, and names the archives that are not as they should be.
class Counter : public EntryListener {
public:
  explicit Counter(const PairFolders& pair) : pair_(pair) {}
  void entry(const std::wstring& operation, const std::wstring& path, std::uint64_t, std::uint64_t) override {
    ++counts_[operation];
    if (operation == L"failed") complain(L"not brought under the new key: " + nameOf(path));
    if (operation == L"no-key") complain(L"the key does not open it: " + nameOf(path));
    if (operation == L"damaged") complain(L"damaged, or no archive of a pair: " + nameOf(path));
  }
  std::uint64_t of(const wchar_t* operation) const {
    const auto count = counts_.find(operation);
    return count == counts_.end() ? 0 : count->second;
  }
  std::wstring text(const wchar_t* operation) const { return std::to_wstring(of(operation)); }

private:
  std::wstring nameOf(const std::wstring& path) const { return printable(pair_.shown(path, false)); }

  const PairFolders& pair_;
  std::map<std::wstring, std::uint64_t> counts_;
};

EngineSettings settingsOf(const PairFolders& pair, const WorkFolder& work) {
  return {pair.inside, pair.outside, work.state(), work.temp(), work.log(), false};
}

/// The key that is to take over. While a change is not finished it is the one that was begun with.
FoundKey newKey(const Options& options, const WorkFolder& work, const PairFolders& pair) {
  KeyWishes wishes;
  wishes.successor = true;
  wishes.ownFile = work.newKeyFile();
  wishes.outside = pair.outside;
  if (work.keyChangePending()) {
    wishes.keyFile = genericOf(work.newKeyFile());
  } else {
    wishes.keyFile = options.value(L"--new-key-file");
    wishes.make = options.has(L"--make-key");
  }
  FoundKey found = findKey(wishes);
  const std::wstring doubt = doubtAbout(found.text.text());
  if (!doubt.empty()) complain(doubt);
  return found;
}

/// The new key becomes the pair's own where the old one was, or where nobody else has it.
void takeOver(const FoundKey& old, const FoundKey& fresh, const WorkFolder& work) {
  const bool wasOwn = old.source == printable(genericOf(work.keyFile()));
  if (wasOwn || fresh.source == printable(genericOf(work.newKeyFile()))) {
    if (fs::exists(work.keyFile())) {
      fs::copy_file(work.keyFile(), work.oldKeyFile(), fs::copy_options::overwrite_existing);
      platform::restrictToOwner(work.oldKeyFile());
    }
    keepKey(work.keyFile(), fresh.text);
    say(L"The pair's own key is the new one now: " + printable(genericOf(work.keyFile())));
  }
  fs::remove(work.newKeyFile());
  say(L"Give the new key to every other device of this pair, and keep a copy of it in another place.");
}

Exit rotate(const Arguments& arguments) {
  std::vector<OptionRule> rules = kVerifyRules;
  rules.push_back({L"--new-key-file", L"", true});
  rules.push_back({L"--make-key", L"", false});
  const Options options(arguments, rules);
  options.refuseOperands();
  const std::wstring asset = assetOf(options);
  const std::wstring inside = options.required(L"--inside");
  const PairFolders pair(inside, options.required(L"--outside"));
  WorkFolder work(options.value(L"--work"), pair);
  pair.requirePresent();
  work.open();
  const FoundKey old = pairKey(options, work, pair, false);
  work.claim();
  work.prepareLog();
  Counter counter(pair);
  Engine engine(settingsOf(pair, work));
  engine.setListener(counter);
  engine.setKey(asset, old.text.c_str());
  engine.loadState();
  // A change that was begun may have left no archive under the old key.
  if (!work.keyChangePending() && !engine.keyFits(asset))
    throw Failure{Exit::noKey,
                  L"the old key opens none of the archives; nothing was changed. It came from: " + old.source};
  const FoundKey fresh = newKey(options, work, pair);
  // From here on a run that is killed can be finished: both keys are at hand.
  keepKey(work.newKeyFile(), fresh.text);
  const bool changed = engine.changeKey(asset, fresh.text.c_str());
  say(L"under the new key " + counter.text(L"rewrap") + L", failed " + counter.text(L"failed"));
  if (changed) {
    takeOver(old, fresh, work);
    return Exit::done;
  }
  complain(L"not finished: keep both keys and run it again");
  if (engine.stopAsked()) return Exit::interrupted;
  if (!engine.ok()) throw Failure{Exit::folderMissing, pair.whatIsMissing()};
  return Exit::failed;
}

Exit verify(const Arguments& arguments) {
  const Options options(arguments, kVerifyRules);
  options.refuseOperands();
  const std::wstring inside = options.required(L"--inside");
  const PairFolders pair(inside, options.required(L"--outside"));
  WorkFolder work(options.value(L"--work"), pair);
  pair.requirePresent();
  work.open();
  const FoundKey key = pairKey(options, work, pair, false);
  work.prepareLog();
  Counter counter(pair);
  Engine engine(settingsOf(pair, work));
  engine.setListener(counter);
  engine.setKey(assetOf(options), key.text.c_str());
  const bool right = engine.verifyArchives();
  say(L"opened " + counter.text(L"verify") + L", not opened " + counter.text(L"no-key") + L", damaged " +
      counter.text(L"damaged"));
  if (right) return Exit::done;
  if (engine.stopAsked()) return Exit::interrupted;
  return counter.of(L"no-key") > 0 ? Exit::noKey : Exit::failed;
}

}  // namespace

Exit keyCommand(const Arguments& arguments) {
  if (arguments.empty()) throw Failure{Exit::usage, L"what to do is missing: rotate, verify or recover"};
  const Arguments rest(arguments.begin() + 1, arguments.end());
  if (arguments.front() == L"rotate") return rotate(rest);
  if (arguments.front() == L"verify") return verify(rest);
  if (arguments.front() == L"recover") return recoverCommand(rest);
  throw Failure{Exit::usage, L"what to do is missing: rotate, verify or recover"};
}

}  // namespace host
}  // namespace Kelta
