// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "SyncPair0/RenameMatch.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"

namespace Kelta {

/// A rename that was found on side `one` and is to be carried out on side `two`. Full paths.
struct SyncPair::RenameJob {
  const Side& one;
  const Side& two;
  const RenameMatch& match;
  std::wstring ownFrom;
  std::wstring ownTo;
  std::wstring from;
  std::wstring to;
  std::int64_t time;  ///< of the renamed entry, as scanned
};

}  // namespace Kelta
