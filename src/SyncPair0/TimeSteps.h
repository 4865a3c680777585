// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/Files.h"

namespace Kelta {

// File systems, and the clients of cloud folders, may keep times in steps of up to two seconds, rounded down or up, and
// make a step of a time long after it was set. What is not as exact as it was set shows a whole, even second.

constexpr std::int64_t kTimeStep = 2000000000;

/// Whether the time may have been kept in whole seconds, or in longer steps.
bool isWholeSecond(const platform::FileStamp& stamp);

/// Whether `now` is `seen`, or a step that may have been made of it.
bool isTimeOrItsStep(std::int64_t now, std::int64_t seen);

/// Whether two entries may have been given the same time: in whole seconds it is the same, or one of them is a step
/// that may have been made of the other's. Contents tell more.
bool mayBeOneTime(const platform::FileStamp& a, const platform::FileStamp& b);

/// The same for a recorded time, in whole seconds.
bool mayBeTimeOf(const platform::FileStamp& stamp, std::int64_t recorded);

/// Whether the times tell which of two versions is newer: not within one second, nor where a step stands beside a more
/// exact time. Times in whole seconds tell it, since a system that keeps those shows odd ones too.
bool tellOrder(const platform::FileStamp& a, const platform::FileStamp& b);

}  // namespace Kelta
