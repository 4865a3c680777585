// SPDX-License-Identifier: Apache-2.0
// Carrying one decision out. What was decided from the scan is looked at again right before it is done: an entry that
// changed since is left alone, and the next scan finds it.
#include <boost/filesystem/exception.hpp>

#include "CryptoSyncCopyHandler/NameFilter.h"
#include "SyncPair0/StampUnderName.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

bool isThere(const std::wstring& path) {
  const platform::Kind kind = stampUnderName(path).kind;
  return kind == platform::Kind::file || kind == platform::Kind::folder;
}

}  // namespace

void SyncPair::report(const wchar_t* operation, const std::wstring& path) {
  ++entriesDone_;
  if (progress_) progress_(operation, path, entriesDone_, entriesDone_ + srcSyncList.size() + destSyncList.size());
}

// A folder that is known on one side alone would pass for deleted, or for in sync, on the other. The record of a file
// in whose place it stands is left: that deletion is still to be carried over.
void SyncPair::recordBoth(const std::wstring& key, bool isFolder) {
  const std::wstring src = pathFor(side(true), key, isFolder);
  const std::wstring dest = pathFor(side(false), key, isFolder);
  const auto known = srcStateList.find(src);
  const bool ofOtherKind = known != srcStateList.end() && recordedAsFolder(true, src, known->second) != isFolder;
  const auto kind = isFolder ? platform::Kind::folder : platform::Kind::file;
  if (ofOtherKind || stampUnderName(src).kind != kind || stampUnderName(dest).kind != kind) return;
  setState(srcStateList, src);
  setState(destStateList, dest);
}

// A file and a folder of the same plain name share a key, but not a record.
void SyncPair::forgetBoth(const std::wstring& key, bool isFolder) {
  for (const Side& each : {side(true), side(false)}) {
    const auto record = each.state.find(pathFor(each, key, isFolder));
    if (record == each.state.end()) continue;
    if (each.inside) saved_.erase(record->first);
    if (recordedAsFolder(each.inside, record->first, record->second) == isFolder) each.state.erase(record);
  }
  stateChanged_ = true;
}

// A folder that is there on both sides, perhaps before a scan has looked at it. One that is gone keeps its record: its
// own deletion is still to be carried over.
void SyncPair::recordFolder(const std::wstring& key) {
  const std::wstring path = pathFor(side(true), key, true);
  if (srcStateList.count(path) == 0) renewSharedId(path);
  recordBoth(key, true);
}

void SyncPair::refreshParent(const std::wstring& key) {
  const std::wstring parent = parentOf(key);
  if (parent.empty()) return;
  PAIR_DEBUG_OF("resolveSync", "updating state for parent %s", utf8(parent).c_str());
  recordFolder(parent);
}

// The records stay: with them the next scan finds the entry again, as what it is.
void SyncPair::copyFailed(const Side& from, const std::wstring& key, const SyncObject& so) {
  PAIR_ERROR_OF("resolveSync", "could not carry over %s", utf8(so.fullPath).c_str());
  const std::wstring reason = copyProblem_.empty() ? copyProblem_ : L'"' + jsonEscaped(copyProblem_) + L'"';
  copyProblem_.clear();
  notify(L"SYNC", L"Could not copy " + jsonEscaped(nameOf(key)), reason);
  report(L"failed", joinPath(from.root, key));
}

void SyncPair::carryCopy(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                         const SyncObject* other) {
  PAIR_DEBUG_OF("resolveSync", "destination (pairPath) = %s", utf8(pathFor(to, key, so.isFolder)).c_str());
  if (!so.isFolder && goesWithFolder(to, key)) return;
  requireIntactRoot(from);
  requireIntactRoot(to);
  if (!clearWay(from, to, key, so.isFolder)) return;
  if (so.isFolder)
    carryFolder(from, to, key, so);
  else
    carryFile(from, to, key, so, other);
}

void SyncPair::carryFolder(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so) {
  const std::wstring target = pathFor(to, key, true);
  if (!isThere(so.fullPath)) return;  // its deletion is still to be found
  const bool wasThere = isThere(target);
  bool made = false;
  try {
    made = handler_->copyDir(platform::pathOf(so.fullPath), platform::pathOf(target));
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR_OF("resolveSync", "exception: %s", error.what());
    copyProblem_ = reasonOf(error.code());
  } catch (const std::exception& error) {
    PAIR_ERROR_OF("resolveSync", "exception: %s", error.what());
  }
  PAIR_INFO_OF("resolveSync", "copied successfully? %s", log::truth(made));
  if (!made) return copyFailed(from, key, so);
  recordBoth(key, true);
  ++successfulEvents_;
  refreshParent(key);
  if (wasThere) return;
  notifyDone(L"Copied " + jsonEscaped(nameOf(key)) + L" successfully.");
  report(L"folder", target);
}

void SyncPair::carryDeletion(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                             const SyncObject* other) {
  const platform::FileStamp source = stampUnderName(so.fullPath);
  const bool there = isThere(so.fullPath) && !liesBelowOtherName(from, so.fullPath);
  if (source.kind == platform::Kind::unknown || there) {
    const bool sameKind = (source.kind == platform::Kind::folder) == so.isFolder;
    if (sameKind || source.kind == platform::Kind::unknown) return;
  }
  requireIntactRoot(from);
  requireIntactRoot(to);
  const std::wstring target = pathFor(to, key, so.isFolder);
  if (target.empty()) return;  // found again when there is a key
  // The archive goes on under another name: that is no deletion, or a newer one has come that nobody has seen.
  const Archives archives = so.isFolder ? Archives() : archivesThere(key);
  if (archives.size() > (from.inside ? 1U : 0U)) return carryArchiveBack(from, to, key, archives);
  const platform::FileStamp stamp = stampUnderName(target);
  const bool file = !so.isFolder && stamp.kind == platform::Kind::file;
  const Known known = file ? isKnown(to, key, target, stamp) : Known::yes;
  if (known == Known::unclear) {
    notify(L"ERROR", L"Could not delete " + jsonEscaped(nameOf(key)), L"\"it cannot be read now\"");
    return report(L"failed", target);
  }
  if (known == Known::no) {
    if (goesWithFolder(from, key)) return;
    PAIR_INFO_OF("resolveSync", "changed on the other side, not deleted: %s", utf8(target).c_str());
    if (other && !other->deletion) return carryCopy(to, from, key, *other, nullptr);
    forgetBoth(key, false);  // comes back as an addition
    ++successfulEvents_;
    return;
  }
  if (file && platform::isOpenForWriting(platform::pathOf(target))) {
    if (waiting_.note(target, L"in-use")) report(L"changing", target);
    return;
  }
  const DeletionOutcome outcome = handler_->deleteGuarded(so.isFolder ? so.fullPath + L'/' : so.fullPath, stamp);
  const std::pair<bool, bool>& gone = outcome.gone;
  const bool deleted = gone.first && gone.second;
  handler_->deleteStatus(deleted, target);
  PAIR_INFO_OF("resolveSync", "deleted successfully? %s %s", log::truth(gone.first), log::truth(gone.second));
  if (!deleted && so.isFolder && !outcome.error) return finishFolderDeletion(from, to, key, so);
  if (!deleted) {
    // The records stay: the next scan finds the deletion again, or what was changed at the last moment.
    if (file && !stampUnderName(target).sameContent(stamp)) return;
    const bool isOther = stamp.kind == platform::Kind::symlink || stamp.kind == platform::Kind::other;
    return deletionFailed(key, target, outcome.error ? reasonOf(outcome.error) : isOther ? kNoFile : L"");
  }
  const std::wstring& src = from.inside ? so.fullPath : target;
  const std::wstring& dest = from.inside ? target : so.fullPath;
  delState(gone, src, dest);
  waiting_.forget(src);
  waiting_.forget(dest);
  if (!so.isFolder) recordFolder(key);  // one may stand in the file's place
  ++successfulEvents_;
  refreshParent(key);
  if (stamp.kind == platform::Kind::missing) return;
  notifyDone(L"Deleted " + jsonEscaped(nameOf(key)) + L" successfully.");
  report(L"delete", target);
}

void SyncPair::deletionFailed(const std::wstring& key, const std::wstring& target, std::wstring reason) {
  if (!reason.empty()) reason = L'"' + jsonEscaped(reason) + L'"';
  notify(L"ERROR", L"Could not delete " + jsonEscaped(nameOf(key)), reason);
  report(L"failed", target);
}

// What a system makes by itself keeps no folder alive: it goes with the folder, when nothing else is in it.
bool SyncPair::goesWithFolder(const Side& deleting, const std::wstring& key) {
  const auto folder = deleting.list.find(parentOf(key));
  return isSystemMade(nameOf(key)) && folder != deleting.list.end() && folder->second.deletion &&
         folder->second.isFolder;
}

// The folder could not go. While known entries are left in it their own deletion is still to come; otherwise something
// alive keeps it, and without its records it comes back on the side that deleted it.
void SyncPair::finishFolderDeletion(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so) {
  const auto below = recordsBelow(to.state, pathFor(to, key, true));
  if (below.first != below.second) {
    report(L"failed", pathFor(to, key, true));
    return;
  }
  PAIR_INFO_OF("resolveSync", "not empty, comes back: %s", utf8(so.fullPath).c_str());
  from.state.erase(so.fullPath);
  to.state.erase(pathFor(to, key, true));
  ++successfulEvents_;
}

}  // namespace Kelta
