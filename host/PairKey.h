// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "Engine.h"
#include "Key.h"
#include "Options.h"
#include "PairFolders.h"
#include "WorkFolder.h"

namespace Kelta {
namespace host {

/// The options that pairKey() and assetOf() look at.
extern const std::vector<OptionRule> kKeyRules;

/// The asset under which files are encrypted. Throws Failure (usage) when the engine would not take it.
std::wstring assetOf(const Options& options);

/// The key of the pair, by --key-file and what findKey() looks at otherwise; a doubtful one is complained about.
/// `make`: a new one may be made. Throws as findKey().
FoundKey pairKey(const Options& options, const WorkFolder& work, const PairFolders& pair, bool make);

/// What to do when the key may have been changed on another device.
std::wstring otherKeyHint(const FoundKey& key, const WorkFolder& work);

/// Installs the key, reads the state, and throws Failure (noKey) when the key opens none of the archives.
void openWithKey(Engine& engine, const Options& options, const FoundKey& key, const WorkFolder& work);

}  // namespace host
}  // namespace Kelta
