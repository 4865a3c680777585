// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "Key.h"
#include "Options.h"
#include "PairFolders.h"
#include "WorkFolder.h"

namespace Kelta {
namespace host {

/// The asset under which files are encrypted. Throws Failure (usage) when the engine would not take it.
std::wstring assetOf(const Options& options);

/// The key of the pair, by --key-file and what findKey() looks at otherwise; a doubtful one is complained about.
/// `make`: a new one may be made. Throws as findKey().
FoundKey pairKey(const Options& options, const WorkFolder& work, const PairFolders& pair, bool make);

}  // namespace host
}  // namespace Kelta
