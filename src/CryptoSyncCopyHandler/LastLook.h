// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/OpenFolder.h"

namespace Kelta {

/// Between a look at a file and what is done about it somebody may save it. These take what stands there out of its
/// place first, in one step, and look at that: what is not as `judged`, or is held by a program that writes to it, goes
/// back. They return false then, with everything where it was.

/// Puts `fresh` in the place of `target`. Where the system cannot exchange two files the last look comes right before.
/// Throws filesystem_error (across volumes: errc::cross_device_link), with everything where it was.
bool replaceJudged(const platform::Spot& fresh, const platform::EntryId& id, const platform::Spot& target,
                   const platform::FileStamp& judged);

/// Moves a file to a name that is free, else it stays. Throws filesystem_error when the system refuses.
bool moveJudged(const platform::Spot& from, const platform::Spot& to, const platform::FileStamp& judged);

/// Removes a file for good. Throws filesystem_error when the system refuses.
bool removeJudged(const platform::Spot& file, const platform::FileStamp& judged);

/// What one of these had taken out of its place when its process ended goes back, or beside it under a conflict name,
/// unless it is what was judged, or what was to replace that. Anything else under the name is left alone.
void settleDisplaced(const platform::Spot& file);

}  // namespace Kelta
