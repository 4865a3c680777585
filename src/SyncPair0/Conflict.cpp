// SPDX-License-Identifier: Apache-2.0
// Both sides changed. At equal times, or such as may be equal, the contents decide: identical ones are in sync. Where
// the times do not tell which version is newer, the Inside one becomes a conflict copy. Otherwise the newer one wins,
// and the loser goes to the recycle bin.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "SyncPair0/TimeSteps.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"

namespace Kelta {
void SyncPair::settleTie(const std::wstring& key, const SyncObject& so, const SyncObject& so2, const Side& one) {
  if (so.isFolder) {
    recordBoth(key, true);
    ++successfulEvents_;
    return;
  }
  const SyncObject& src = one.inside ? so : so2;
  const SyncObject& dest = one.inside ? so2 : so;
  const Comparison found = isFileConflictCopy(key, src, dest, one.inside);
  if (found == Comparison::same) return;
  if (src.timestamp != dest.timestamp && tellOrder(src.stamp, dest.stamp)) {
    const bool newerInside = src.timestamp > dest.timestamp;
    return carryCopy(side(newerInside), side(!newerInside), key, newerInside ? src : dest, newerInside ? &dest : &src);
  }
  if (found == Comparison::unknown) return tieFailed(src, dest);
  makeConflictCopy(key, src, dest);
}

// Both versions are left alone; both are found again by the next scan.
void SyncPair::tieFailed(const SyncObject& src, const SyncObject& dest) {
  for (const SyncObject* each : {&src, &dest}) {
    const platform::FileStamp now = stampUnderName(each->fullPath);
    if (isAsScanned(now, *each)) continue;
    PAIR_INFO_OF("resolveSync", "changed meanwhile, left for the next cycle: %s", utf8(each->fullPath).c_str());
    if (now.kind != platform::Kind::missing) noteChanging(each->fullPath);
    copyProblem_.clear();
    return;
  }
  PAIR_ERROR_OF("resolveSync", "%s changed on both sides at the same time, both are left alone",
                utf8(src.fullPath).c_str());
  if (copyProblem_.empty()) copyProblem_ = L"changed on both sides at the same time";
  notify(L"SYNC", L"Could not copy " + jsonEscaped(nameOf(src.fullPath)), L'"' + jsonEscaped(copyProblem_) + L'"');
  copyProblem_.clear();
  report(L"failed", src.fullPath);
}

void SyncPair::makeConflictCopy(const std::wstring& key, const SyncObject& src, const SyncObject& dest) {
  PAIR_DEBUG_OF("resolveSync", "%s so.deletion=%d, so2.deletion=%d", utf8(key).c_str(), src.deletion, dest.deletion);
  requireIntactRoot(side(true));
  requireIntactRoot(side(false));
  // A conflict copy never makes another one: its Inside version goes to the recycle bin.
  if (isConflictName(key)) return carryFile(side(false), side(true), key, dest, &src);
  if (handler_->ignore(platform::pathOf(src.fullPath))) return;
  PAIR_INFO_OF("resolveSync", "conflictCopy: %s", utf8(key).c_str());
  std::vector<std::wstring> names;
  try {
    std::wstring srcFile = src.fullPath;
    std::wstring destFile = dest.fullPath;
    names = handler_->conflictCopy(srcFile, destFile);
  } catch (const std::exception& error) {
    PAIR_ERROR_OF("resolveSync", "conflict copy exception %s", error.what());
  }
  if (names.size() < 2) return tieFailed(src, dest);
  recordPlaced(key, dest.fullPath, dest.stamp);
  const std::wstring copy = keyOf(side(true), names[0], false);
  const std::wstring archive = archiveFor(copy);
  const platform::FileStamp shared = stampUnderName(archive);
  // Where it could not be encrypted it is an addition to the next scan.
  if (shared.kind == platform::Kind::file) recordPlaced(copy, archive, shared);
  waiting_.forget(src.fullPath);
  waiting_.forget(dest.fullPath);
  ++successfulEvents_;
  refreshParent(key);
  notify(L"SYNC", L"Conflict: the version of " + jsonEscaped(nameOf(key)) + L" from here was kept as " +
                      jsonEscaped(nameOf(names[0])));
  report(L"conflict", names[0]);
}

// Both sides hold what was placed here. What is gone by now was deleted; where something else stands, nobody may have
// seen the archive's version: the next scan merges the two.
void SyncPair::recordPlaced(const std::wstring& key, const std::wstring& archive, const platform::FileStamp& seen) {
  const std::wstring src = joinPath(sourceFolder_, key);
  const platform::FileStamp inside = stampUnderName(src);
  const bool same = inside.kind == platform::Kind::file && mayBeOneTime(inside, seen) && holdsContent(archive, src);
  if (!same && stampUnderName(src).kind != platform::Kind::missing) return forgetBoth(key, false);
  recordAs(destStateList, archive, seen);
  recordAs(srcStateList, src, same ? inside : seen);
}

// For want of a key the archive was given up: its record alone is kept, so that it is neither tried again in each cycle
// nor taken for known on the Inside.
void SyncPair::noteGivenUp(const std::wstring& key, const std::wstring& archive, std::int64_t time) {
  PAIR_INFO("given up until a key arrives: %s", utf8(archive).c_str());
  forgetBoth(key, false);
  setState(destStateList, archive, time);
  givenUp_.insert(archive);
  ++successfulEvents_;
}

// Whether an entry is the older plain version of an archive that was given up: there is nothing to be done about it.
bool SyncPair::waitsForKey(const Side& from, const Side& to, const std::wstring& source,
                           const std::wstring& target) const {
  const auto record = to.state.find(target);
  if (givenUp_.count(target) == 0 || record == to.state.end() || from.state.count(source) > 0) return false;
  const std::int64_t known = recordedTime(record->second);
  const platform::FileStamp archive = lookAt(target);
  return archive.kind == platform::Kind::file && archive.seconds() == known && lookAt(source).seconds() <= known;
}

}  // namespace Kelta
