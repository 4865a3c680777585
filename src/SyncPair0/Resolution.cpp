// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/Resolution.h"

#include "SyncPair0/TimeSteps.h"

namespace Kelta {
namespace {

Resolution decideKindClash(const SyncObject& one, const SyncObject& two) {
  if (one.deletion == two.deletion) return one.deletion ? Resolution::forgetBoth : Resolution::clash;
  return one.deletion ? Resolution::deleteInTwo : Resolution::later;
}

bool mayBeOfOneTime(const SyncObject& one, const SyncObject& two) {
  if (one.timestamp == two.timestamp) return true;
  const bool seen = one.stamp.kind == platform::Kind::file && two.stamp.kind == platform::Kind::file;
  return seen && mayBeOneTime(one.stamp, two.stamp);
}

Resolution decideTie(const SyncObject& one, const SyncObject& two) {
  if (one.deletion && two.deletion) return Resolution::forgetBoth;
  if (one.deletion) return Resolution::copyToOne;
  if (two.deletion) return Resolution::copyToTwo;
  return Resolution::compare;
}

}  // namespace

Resolution decideResolution(const SyncObject& one, const SyncObject* two) {
  if (!two) return one.deletion ? Resolution::deleteInTwo : Resolution::copyToTwo;
  if (one.isFolder != two->isFolder) return decideKindClash(one, *two);
  if (mayBeOfOneTime(one, *two)) return decideTie(one, *two);
  if (one.timestamp > two->timestamp) return one.deletion ? Resolution::deleteInTwo : Resolution::copyToTwo;
  return two->deletion ? Resolution::deleteInOne : Resolution::copyToOne;
}

}  // namespace Kelta
