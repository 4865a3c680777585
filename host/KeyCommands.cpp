// SPDX-License-Identifier: Apache-2.0
#include <boost/filesystem/operations.hpp>

#include "Commands.h"
#include "Engine.h"
#include "PairKey.h"
#include "PairSetup.h"
#include "RecoverCommand.h"
#include "Terminal.h"
#include "platform/Files.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

/// Counts what an operation over all archives tells, and names the archives that are not as they should be.
class Counter : public EntryListener {
public:
  explicit Counter(const PairFolders& pair) : pair_(pair) {}
  void entry(const std::wstring& operation, const std::wstring& path, std::uint64_t, std::uint64_t) override {
    ++counts_[operation];
    if (operation == L"failed") complain(L"not brought under the new key: " + nameOf(path));
    if (operation == L"no-key")
      complain(L"the key does not open it: " + nameOf(path) + L" (another key's, or damaged)");
    if (operation == L"damaged") complain(L"damaged, or no archive of a pair: " + nameOf(path));
  }
  std::uint64_t of(const wchar_t* operation) const {
    const auto count = counts_.find(operation);
    return count == counts_.end() ? 0 : count->second;
  }
  std::wstring text(const wchar_t* operation) const { return std::to_wstring(of(operation)); }

private:
  std::wstring nameOf(const std::wstring& path) const { return printable(pair_.shown(path, true)); }

  const PairFolders& pair_;
  std::map<std::wstring, std::uint64_t> counts_;
};

/// The key that is to take over. While a change is not finished it is the one that was begun with; throws Failure
/// (usage) when another is asked for.
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
  if (work.keyChangePending() && options.has(L"--new-key-file")) {
    wishes.keyFile = options.value(L"--new-key-file");
    if (findKey(wishes).text.text() != found.text.text())
      throw Failure{Exit::usage, L"a change to another key is not finished; run it again without --new-key-file"};
  }
  const std::wstring doubt = doubtAbout(found.text.text());
  if (!doubt.empty()) complain(doubt);
  return found;
}

/// The work folder's key that goes stays at hand for good: archives may still turn up that were made with it.
void keepOld(const FoundKey& fresh, const WorkFolder& work) {
  KeyWishes wishes;
  wishes.keyFile = genericOf(work.keyFile());
  if (!fs::exists(work.keyFile())) return;
  const FoundKey old = findKey(wishes);
  if (old.text.text() == fresh.text.text()) return;
  fs::path file = work.oldKeyFile();
  for (int number = 2; fs::exists(file); ++number)
    file = work.oldKeyFile().parent_path() / ("key.old." + std::to_string(number));
  keepKey(file, old.text);
}

/// Nothing was wrapped anew: a new key would only lock the user out. Throws Failure (noKey).
void requireArchives(const Counter& counter, const std::wstring& asset, const WorkFolder& work, bool wasPending) {
  if (counter.of(L"rewrap") > 0 || (wasPending && counter.of(L"kept") == 0)) return;
  if (!wasPending) fs::remove(work.newKeyFile());
  throw Failure{Exit::noKey, L"no archive on the Outside names the asset " + printable(asset) +
                                 L" (--asset) as its key's; the key stays as it is"};
}

/// Whether the old key may be in use. All but the archives of a device that was late may be under the new one already.
bool mayBeOld(Engine& engine, const std::wstring& asset, const FoundKey& old, const Options& options) {
  if (engine.keyFits(asset)) return true;
  if (!options.has(L"--new-key-file") || options.has(L"--make-key")) return false;
  KeyWishes wishes;
  wishes.keyFile = options.value(L"--new-key-file");
  engine.setKey(asset, findKey(wishes).text.c_str());
  const bool fits = engine.keyFits(asset);
  engine.setKey(asset, old.text.c_str());
  return fits;
}

/// The new key becomes the pair's own where the old one was, or where nobody else has it.
void takeOver(const FoundKey& old, const FoundKey& fresh, const WorkFolder& work) {
  const bool wasOwn = old.source == printable(genericOf(work.keyFile()));
  if (wasOwn || fresh.source == printable(genericOf(work.newKeyFile()))) {
    keepOld(fresh, work);
    keepKey(work.keyFile(), fresh.text);
    say(L"The pair's own key is the new one now: " + printable(genericOf(work.keyFile())));
  }
  fs::remove(work.newKeyFile());
  say(L"Give the new key to every other device of this pair, and keep a copy of it in another place.");
}

Exit rotate(const Arguments& arguments) {
  const Options options(arguments, rulesWith({{L"--new-key-file", L"", true}}));
  options.refuseOperands();
  const std::wstring asset = assetOf(options);
  NamedPair named(options);
  named.open();
  const PairFolders& pair = named.folders;
  WorkFolder& work = named.work;
  const FoundKey old = pairKey(options, work, pair, false);
  work.claim();
  work.prepareLog();
  Counter counter(pair);
  Engine engine(named.settings());
  engine.setListener(counter);
  engine.setKey(asset, old.text.c_str());
  engine.loadState();
  const bool wasPending = work.keyChangePending();
  // A change that was begun may have left no archive under the old key.
  if (!wasPending && !mayBeOld(engine, asset, old, options))
    throw Failure{Exit::noKey,
                  L"the old key opens none of the archives; nothing was changed. It came from: " + old.source};
  const FoundKey fresh = newKey(options, work, pair);
  // From here on a run that is killed can be finished: both keys are at hand.
  keepKey(work.newKeyFile(), fresh.text);
  const bool changed = engine.changeKey(asset, fresh.text.c_str());
  say(L"under the new key " + counter.text(L"rewrap") + L", failed " + counter.text(L"failed"));
  if (changed) {
    requireArchives(counter, asset, work, wasPending);
    takeOver(old, fresh, work);
    return Exit::done;
  }
  complain(L"not finished: keep both keys and run it again");
  if (counter.of(L"failed") > 0) complain(L"an archive that stays damaged holds it up: move it out of the Outside");
  if (engine.stopAsked()) return Exit::interrupted;
  if (!engine.ok()) throw Failure{Exit::folderMissing, pair.whatIsMissing()};
  return Exit::failed;
}

Exit verify(const Arguments& arguments) {
  const Options options(arguments, rulesWith({}));
  options.refuseOperands();
  NamedPair named(options);
  named.openForReading();
  const PairFolders& pair = named.folders;
  const FoundKey key = pairKey(options, named.work, pair, false);
  Counter counter(pair);
  Engine engine(named.settings());
  engine.setListener(counter);
  engine.setKey(assetOf(options), key.text.c_str());
  const bool right = engine.verifyArchives();
  say(L"opened " + counter.text(L"verify") + L", not opened " + counter.text(L"no-key") + L", damaged " +
      counter.text(L"damaged"));
  if (named.work.keyChangePending())
    complain(L"a change of key was begun and not finished; run \"kelsync key rotate\" again");
  else if (counter.of(L"no-key") > 0)
    complain(otherKeyHint(key, named.work));
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
