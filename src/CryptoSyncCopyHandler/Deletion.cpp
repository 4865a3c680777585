// SPDX-License-Identifier: Apache-2.0
// Carrying a deletion over: plan (what is the counterpart, may it go) → look → delete, with retries.
#include <boost/filesystem/exception.hpp>
#include <vector>

#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/LastLook.h"
#include "CryptoSyncCopyHandler/NameFilter.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "CryptoSyncCopyHandler/TempArea.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Kind;
using platform::Spot;

constexpr int kRemovals = 3;
constexpr long kPauseBetweenRemovals = 250;
const char kFolderMarker[] = ".rid";

Kind kindUnderName(const std::wstring& path) {
  return platform::hasOtherName(platform::pathOf(path)) ? Kind::other : platform::stampOf(platform::pathOf(path)).kind;
}

}  // namespace

struct CryptoSyncCopyHandler::Deletion {
  std::wstring own;     ///< the entry that was removed
  std::wstring target;  ///< its counterpart
  std::wstring root;    ///< the counterpart's side
  bool ownIsInside = false;
  bool isFolder = false;
  bool refused = false;                  ///< must not be deleted: no use in trying again
  std::size_t removed = 0;               ///< entries
  platform::FileStamp judged;            ///< of a file: what it is to be
  boost::system::error_code error = {};  ///< of the latest attempt
};

bool CryptoSyncCopyHandler::nameCounterpart(Deletion& deletion) {
  if (deletion.ownIsInside) {
    deletion.target = archiveOf(deletion.target);
    return !deletion.target.empty();
  }
  const NameReading reading = readName(deletion.own);
  deletion.target = joinPath(parentOf(deletion.target), reading.plain);
  return !reading.plain.empty() || reading.form == NameForm::none;
}

// False when nothing may be deleted for this path.
bool CryptoSyncCopyHandler::planDeletion(const std::wstring& path, Deletion& deletion) {
  deletion.isFolder = !path.empty() && path.back() == L'/';
  deletion.own = folderForm(path);
  deletion.ownIsInside = isInsideFolder(deletion.own);
  const std::wstring& ownRoot = deletion.ownIsInside ? insideFolder_ : outsideFolder_;
  deletion.root = deletion.ownIsInside ? outsideFolder_ : insideFolder_;
  const bool isRoot =
      platform::samePath(deletion.own, insideFolder_) || platform::samePath(deletion.own, outsideFolder_);
  if (!isRoot && !isBelow(deletion.own, ownRoot)) {
    HANDLER_ERROR_OF("doDelete", "outside of the pair's folders: %s", utf8(path).c_str());
    return false;
  }
  deletion.target =
      isRoot ? deletion.root : joinPath(deletion.root, deletion.own.substr(joinPath(ownRoot, L"").size()));
  const bool archiveName = hasExtension(platform::pathOf(deletion.own));
  if (!isRoot && !deletion.isFolder && !nameCounterpart(deletion)) {
    HANDLER_INFO_OF("doDelete", "its counterpart's name cannot be told now: %s", utf8(path).c_str());
    return false;
  }
  HANDLER_DEBUG_OF("doDelete", "delpath: %s", utf8(deletion.target).c_str());
  HANDLER_DEBUG_OF("doDelete", "op: %s", deletion.isFolder ? "folder" : "file");
  if (namesAreEncrypted()) HANDLER_DEBUG_OF("doDelete", "FNE guard, ep: %s", utf8(deletion.target).c_str());
  if (isRoot || deletion.target.empty() || isBelow(insideFolder_, deletion.target) ||
      isBelow(outsideFolder_, deletion.target)) {
    HANDLER_ERROR_OF("doDelete", "Trying to delete one of the pair roots! %s", utf8(path).c_str());
    return false;
  }
  // An archive's name on the Inside, or any other on the Outside, has no counterpart.
  return deletion.isFolder || archiveName != deletion.ownIsInside;
}

// Whether the removed entry is gone for certain: it may have come back, or its whole side may be out of reach.
bool CryptoSyncCopyHandler::isGone(const Deletion& deletion) {
  const std::wstring& ownRoot = deletion.ownIsInside ? insideFolder_ : outsideFolder_;
  const Way root = reachFolder(ownRoot, ownRoot);
  if (root.reach != Reach::there) {
    HANDLER_ERROR("%s", root.reason.c_str());
    return false;
  }
  if (reachFolder(ownRoot, parentOf(deletion.own)).reach == Reach::missing) return true;
  const Kind kind = kindUnderName(deletion.own);
  return kind != Kind::unknown && kind != (deletion.isFolder ? Kind::folder : Kind::file);
}

// On the Outside under its own name or as an archive.
bool CryptoSyncCopyHandler::isSystemMadeEntry(const fs::path& entry) {
  std::wstring path;
  if (!platform::wideOf(entry, path)) return false;
  return isSystemMade(hasExtension(entry) ? untransformName(genericForm(path)) : nameOf(genericForm(path)));
}

// Removes our own files from a folder, and those that a system makes by itself: on the Inside into the recycle bin.
// False when anything else is in it: then nothing was removed.
bool CryptoSyncCopyHandler::emptyFolder(const platform::OpenFolder& folder, Deletion& deletion) {
  std::vector<std::pair<fs::path, platform::Entry>> own;
  std::vector<std::pair<fs::path, platform::Entry>> systemMade;
  for (const fs::path& name : folder.list()) {
    const platform::Entry entry = folder.look(name);
    const bool ours = utf8(name) == kFolderMarker || platform::isAbandoned(utf8(name));
    if ((!ours && !isSystemMadeEntry(folder.path() / name)) || entry.stamp.kind != Kind::file) {
      HANDLER_ERROR("not empty: %s holds %s", utf8(folder.path()).c_str(), utf8(name).c_str());
      return false;
    }
    (ours || deletion.ownIsInside ? own : systemMade).emplace_back(name, entry);
  }
  for (const auto& entry : systemMade) {
    if (!WinRecycleFile({folder, entry.first}, entry.second.stamp)) return false;
    ++deletion.removed;
  }
  for (const auto& entry : own) deletion.removed += folder.removeFile(entry.first, entry.second.id) ? 1U : 0U;
  return true;
}

// Where there is no recycle bin the file is removed.
bool CryptoSyncCopyHandler::WinRecycleFile(const Spot& file, const platform::FileStamp& judged) {
  bool canceled = false;
  const platform::Recycled recycled = file.folder.throwAway(file.name, &judged, &canceled);
  if (recycled == platform::Recycled::yes) return true;
  if (recycled == platform::Recycled::noBin) return removeJudged(file, judged);
  KELTA_LOG(log::copyHandler(), log4cplus::ERROR_LOG_LEVEL, nullptr, "%s",
            canceled ? "Operation was canceled" : "Operation failed");
  return false;
}

// The folder is not held any more when it is removed: not every system would remove it then.
bool CryptoSyncCopyHandler::deleteFolder(const Spot& target, const platform::EntryId& id, Deletion& deletion) {
  if (!emptyFolder(target.folder.folder(target.name), deletion)) return false;
  deletion.removed += target.folder.removeFolder(target.name, id) ? 1U : 0U;
  return true;
}

// One attempt: true when the entry is gone. Throws filesystem_error when the system refuses.
bool CryptoSyncCopyHandler::deleteEntry(Deletion& deletion) {
  const Way way = reachFolder(deletion.root, parentOf(deletion.target));
  deletion.refused = way.reach == Reach::refused;
  if (deletion.refused) HANDLER_ERROR("%s", way.reason.c_str());
  if (!way.folder) return !deletion.refused;
  const Spot target{*way.folder, platform::pathOf(nameOf(deletion.target))};
  const platform::Entry entry = target.look();
  const Kind kind = entry.stamp.kind;
  if (kind == Kind::missing) return true;
  if (kind == Kind::unknown) return false;
  if (kind != (deletion.isFolder ? Kind::folder : Kind::file)) {
    HANDLER_ERROR("not what was deleted on the other side: %s", utf8(deletion.target).c_str());
    deletion.refused = true;
  } else if (deletion.isFolder) {
    deletion.refused = !deleteFolder(target, entry.id, deletion);
  } else if (deletion.ownIsInside) {
    if (!removeJudged(target, deletion.judged)) return false;
    ++deletion.removed;
  } else {
    if (target.folder.isOpenForWriting(target.name) || !WinRecycleFile(target, deletion.judged)) return false;
    ++deletion.removed;
  }
  if (!deletion.refused) target.folder.sync();
  return !deletion.refused;
}

bool CryptoSyncCopyHandler::deleteWithRetries(Deletion& deletion) {
  for (int attempt = 1; attempt <= kRemovals; ++attempt) {
    if (attempt > 1) sleepWithCheck(1, kPauseBetweenRemovals);
    const platform::FileStamp now = platform::stampOf(platform::pathOf(deletion.target));
    if (!deletion.isFolder && now.kind == Kind::file && !now.sameContent(deletion.judged)) {
      HANDLER_INFO_OF("doDelete", "changed meanwhile, not deleted: %s", utf8(deletion.target).c_str());
      break;
    }
    deletion.error.clear();
    try {
      if (deleteEntry(deletion)) return true;
    } catch (const fs::filesystem_error& error) {
      HANDLER_ERROR_OF("doDelete", "%s", error.what());
      deletion.error = error.code();
    }
    if (deletion.refused) break;
    HANDLER_ERROR_OF("doDelete", "Failed deletion, attempt #%d", attempt);
    if (deletion.error && !platform::mayPassSoon(deletion.error)) break;
  }
  HANDLER_ERROR_OF("doDelete", "Couldn't del %s", utf8(deletion.target).c_str());
  return false;
}

std::pair<bool, bool> CryptoSyncCopyHandler::doDelete(std::wstring path) {
  HANDLER_DEBUG("path: %s", utf8(path).c_str());
  return carryDeletion(path, nullptr).gone;
}

DeletionOutcome CryptoSyncCopyHandler::deleteGuarded(std::wstring path, const platform::FileStamp& judged) {
  HANDLER_DEBUG_OF("doDelete", "path: %s", utf8(path).c_str());
  return carryDeletion(path, &judged);
}

DeletionOutcome CryptoSyncCopyHandler::carryDeletion(const std::wstring& path, const platform::FileStamp* judged) {
  Deletion deletion;
  if (!planDeletion(genericForm(path), deletion)) return {};
  deletion.judged = judged ? *judged : platform::stampOf(platform::pathOf(deletion.target));
  const bool ownGone = isGone(deletion);
  bool targetGone = false;
  if (ownGone) {
    targetGone = deleteWithRetries(deletion);
  } else {
    HANDLER_INFO("not known to be gone: %s", utf8(deletion.own).c_str());
  }
  if (targetGone) {
    HANDLER_INFO_OF("doDelete", "Deleted %lu items", static_cast<unsigned long>(deletion.removed));
    if (deletion.removed > 0) logActivity("delete", deletion.target);
    decryptFailures_.erase(deletion.ownIsInside ? deletion.target : deletion.own);
    ifQuarantinedClear(platform::pathOf(deletion.own));
    ifQuarantinedClear(platform::pathOf(deletion.target));
  }
  const auto gone = deletion.ownIsInside ? std::make_pair(ownGone, targetGone) : std::make_pair(targetGone, ownGone);
  return {gone, deletion.error};
}

void CryptoSyncCopyHandler::deleteStatus(bool deleted, std::wstring path) {
  HANDLER_DEBUG("path: %s", utf8(path).c_str());
  if (!deleted) {
    HANDLER_INFO("not deleted: %s", utf8(path).c_str());
    return;
  }
  decryptFailures_.erase(genericForm(path));
  ifQuarantinedClear(platform::pathOf(path));
}

}  // namespace Kelta
