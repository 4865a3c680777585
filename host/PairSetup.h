// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Engine.h"
#include "Key.h"
#include "Options.h"
#include "PairFolders.h"
#include "WorkFolder.h"

namespace Kelta {
namespace host {

/// The options that say which pair is meant and how it is synchronised.
std::vector<OptionRule> pairRules();

/// Those of "sync", and `more`: a command takes those as well that it does not need, so that a line may be repeated
/// with another verb.
std::vector<OptionRule> rulesWith(const std::vector<OptionRule>& more);

/// The pair that the options name.
struct NamedPair {
  /// Touches nothing. Throws Failure (usage).
  explicit NamedPair(const Options& options);
  /// Opens the work folder. Throws Failure: folderMissing, or what WorkFolder::open() throws.
  void open();
  /// The same for a command that changes nothing.
  void openForReading();
  /// Those of an engine.
  EngineSettings settings() const;

  PairFolders folders;
  WorkFolder work;

private:
  std::wstring log_;
};

/// One pair as the user wants it synchronised.
class PairSetup {
public:
  /// Touches nothing. Throws Failure (usage).
  explicit PairSetup(const Options& options);

  /// From now to the end of the object no other run works with the pair. Throws what NamedPair::open() throws.
  void open() { pair_.open(); }
  const PairFolders& folders() const { return pair_.folders; }
  const WorkFolder& work() const { return pair_.work; }
  /// Finds the key, asking the user for it if need be, and gets the work folder ready. Throws Failure.
  void prepare();
  /// What --pace says, or `otherwise`.
  int pace(int otherwise) const { return pace_ < 0 ? otherwise : pace_; }
  const std::wstring& keySource() const { return key_.source; }
  /// What to do when archives are under another key.
  std::wstring keyHint() const;
  /// A new engine of the pair with its key, tied to `listener`, that has read its state. `log` takes the log.
  /// Throws Failure (noKey) when the key does not fit.
  std::unique_ptr<Engine> engine(EntryListener& listener, const std::wstring& log) const;

private:
  void turnNamesOver(Engine& engine) const;

  Options options_;
  NamedPair pair_;
  int pace_;  ///< percent; negative: not given
  FoundKey key_;
};

}  // namespace host
}  // namespace Kelta
