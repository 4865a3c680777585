// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "SyncPair0/SyncTypes.h"

namespace Kelta {

/// What is to be done about one key. "One" is the side whose list is being resolved.
enum class Resolution {
  copyToTwo,
  deleteInTwo,
  copyToOne,
  deleteInOne,
  forgetBoth,  ///< gone on both sides
  compare,     ///< both changed at what may be the same time: the contents decide
  clash,       ///< a file on one side, a folder on the other
  later,       ///< the other side's object is dealt with on its own; this one is found again by the next scan
};

/// `two` is the other side's change of the same key, or null.
Resolution decideResolution(const SyncObject& one, const SyncObject* two);

}  // namespace Kelta
