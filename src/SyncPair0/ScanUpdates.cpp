// SPDX-License-Identifier: Apache-2.0
// Additions and updates of one side. An entry without a record is an addition; a file whose last-write time lies
// behind the recorded one is an update (a time that stayed, or went backwards, is no change). The walk is slow on
// purpose: it pauses so that a large tree does not saturate the disk.
#include <algorithm>
#include <deque>
#include <set>

#include "CryptoSyncCopyHandler/NameFilter.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

constexpr std::uint64_t kShortPauseInterval = 10;

}  // namespace

// False, with a log line, when the folder cannot be listed.
bool SyncPair::listFolder(const char* method, const std::wstring& folder,
                          std::vector<boost::filesystem::path>& entries) {
  boost::system::error_code error;
  platform::listFolder(platform::pathOf(folder), entries, error);
  if (error) PAIR_ERROR_OF(method, "boofs::filesystem_error: %s: %s", utf8(folder).c_str(), error.message().c_str());
  return !error;
}

void SyncPair::noteUnreadable(const std::wstring& folder) {
  if (unreadable_.insert(folder).second) notify(L"ERROR", L"Could not read folder " + jsonEscaped(folder));
}

void SyncPair::pauseWithin(Walk& walk) {
  interruption_->check();
  ++walk.counter;
  if (walk.checkInterval <= 0) return;
  if (walk.counter % static_cast<std::uint64_t>(walk.checkInterval) == 0) spareDisk(1000);
  if (walk.counter % kShortPauseInterval == 0 && pace_ > 0) clock_->wait(1, *interruption_);
}

// An archive whose name cannot be read may be a known one: another device has changed the key of the names.
void SyncPair::noteUnread(const Side& side, const boost::filesystem::path& entry) {
  std::wstring path;
  if (side.inside || !genericOfListed(entry, path) || entry.extension() != ".kelta") return;
  if (isReservedName(nameOf(path), false)) return;
  const platform::FileStamp stamp = platform::stampOf(entry);
  if (stamp.kind == platform::Kind::file && handler_->handleName(path).empty())
    unreadNames_[parentOf(path)].insert(stamp.seconds());
}

void SyncPair::logIgnored(const Walk& walk, const boost::filesystem::path& entry) {
  const std::wstring text = platform::wideOf(entry);
  if (*walk.label == '\0')
    PAIR_DEBUG_OF(walk.method, "Ignored: %s", utf8(text).c_str());
  else
    PAIR_DEBUG_OF(walk.method, "%sIgnored: (%d) %s", walk.label, static_cast<int>(text.size()), utf8(text).c_str());
}

// Whether the entry takes no part in the synchronisation; otherwise its path and what it is.
bool SyncPair::leftOut(const Walk& walk, const boost::filesystem::path& entry, std::wstring& path,
                       platform::FileStamp& stamp) {
  if (handler_->ignore(entry)) {
    noteUnread(walk.side, entry);
    logIgnored(walk, entry);
    return true;
  }
  stamp = platform::stampOf(entry);
  if (!genericOfListed(entry, path)) return true;
  if (stamp.kind == platform::Kind::unknown) {
    PAIR_ERROR_OF(walk.method, "cannot look at %s", utf8(path).c_str());
    noteUnreadable(parentOf(path));
  }
  if (stamp.kind != platform::Kind::file && stamp.kind != platform::Kind::folder) return true;
  if (!keyOf(walk.side, path, stamp.kind == platform::Kind::folder).empty()) return false;
  noteUnread(walk.side, entry);
  logIgnored(walk, entry);
  return true;
}

void SyncPair::examineKnown(Walk& walk, const std::wstring& key, const std::wstring& path,
                            const platform::FileStamp& stamp, const StateRecord& record) {
  const std::int64_t now = stamp.seconds();
  const bool isFolder = stamp.kind == platform::Kind::folder;
  if (!isFolder && walk.side.inside && isReplacedUnseen(path, stamp)) {
    saved_.erase(path);
    walk.side.state[path][0] = std::to_wstring(unseenTime(stamp));
  }
  const std::int64_t stored = recordedTime(record);
  if (!isFolder && examineRounded(walk, key, path, stamp, record)) return;
  if (isFolder || now <= stored) {
    PAIR_DEBUG_OF(walk.method, "%sSAME: %s %lld vs. %lld", walk.label, utf8(path).c_str(), static_cast<long long>(now),
                  static_cast<long long>(stored));
    return;
  }
  PAIR_INFO_OF(walk.method, "%sUPDATE: %s - %lld vs. %lld", walk.label, utf8(path).c_str(), static_cast<long long>(now),
               static_cast<long long>(stored));
  stateChanged_ = true;
  walk.side.list[key] = SyncObject{false, now, path, std::wstring(), false, stamp};
  ++walk.result.filesChanged;
}

void SyncPair::examineNew(Walk& walk, const std::wstring& key, const std::wstring& path,
                          const platform::FileStamp& stamp) {
  const bool isFolder = stamp.kind == platform::Kind::folder;
  const std::wstring hash = makeRecord(path, stamp.seconds())[1];
  if (!hash.empty() && isFolder) ++walk.result.foldersAdded;
  if (!hash.empty() && !isFolder) ++walk.result.filesChanged;
  putRenameHashAdd(path, hash, isFolder);
  PAIR_INFO_OF(walk.method, "%sADD: %s [%lld] %s", walk.label, utf8(path).c_str(),
               static_cast<long long>(stamp.seconds()), utf8(hash).c_str());
  stateChanged_ = true;
  walk.side.list[key] = SyncObject{false, stamp.seconds(), path, std::wstring(), isFolder, stamp};
}

// A file that another program holds is left for a later pass or cycle; the host hears of it at the end when it has
// changed.
void SyncPair::noteBusy(Walk& walk, const std::wstring& path, bool changed) {
  PAIR_DEBUG_OF(walk.method, "%sin use: %s", walk.label, utf8(path).c_str());
  if (!changed) return;
  busy_.insert(path);
  recordAsUnseen(path);
}

// False when what is below the entry must not be looked at: its kind changed, and its old self has to be deleted first.
bool SyncPair::examineEntry(Walk& walk, const std::wstring& path, const platform::FileStamp& stamp) {
  const bool isFolder = stamp.kind == platform::Kind::folder;
  auto record = walk.side.state.find(path);
  if (record != walk.side.state.end() && recordedAsFolder(walk.side.inside, path, record->second) != isFolder)
    return false;
  const std::wstring key = keyOf(walk.side, path, isFolder);
  PAIR_DEBUG_OF(walk.method, "relPath = %s", utf8(key).c_str());
  if (!walk.side.inside && !isFolder && record == walk.side.state.end()) {
    if (!countsForKey(key, path, stamp)) return true;
    record = walk.side.state.find(path);
  }
  const bool known = record != walk.side.state.end();
  if (!isFolder)
    noteFutureTime(walk.side, key, path, std::max(stamp.seconds(), known ? recordedTime(record->second) : 0));
  if (walk.side.list.count(key) > 0) return true;
  if (!isFolder && isFileLocked(path)) {
    noteBusy(walk, path, !known || stamp.seconds() > recordedTime(record->second));
    return true;
  }
  if (isFolder && walk.side.inside && getFolderRenameId(path).empty() && setFolderRenameId(path)) stateChanged_ = true;
  if (known)
    examineKnown(walk, key, path, stamp, record->second);
  else
    examineNew(walk, key, path, stamp);
  return true;
}

void SyncPair::scanFolder(Walk& walk, const std::wstring& folder, std::vector<std::wstring>& folders) {
  std::vector<boost::filesystem::path> entries;
  if (!walk.side.inside) unreadNames_.erase(folder);
  const bool gone = platform::stampOf(platform::pathOf(folder)).kind == platform::Kind::missing;
  if (!gone && !listFolder(walk.method, folder, entries)) noteUnreadable(folder);
  for (const auto& listed : entries) {
    pauseWithin(walk);
    if (folder == walk.side.root && dropMarkerCopy(walk.side, listed)) continue;
    const boost::filesystem::path entry = adopted(walk.side, listed);
    std::wstring path;
    platform::FileStamp stamp;
    if (leftOut(walk, entry, path, stamp)) continue;
    if (examineEntry(walk, path, stamp) && stamp.kind == platform::Kind::folder) folders.push_back(path);
  }
}

SyncPair::ScanResult SyncPair::scanForUpdates(std::wstring syncFolder, StateList& stateList, SyncList& syncList,
                                              int checkInterval) {
  PAIR_DEBUG("syncFolder: %s", utf8(syncFolder).c_str());
  return scanForUpdatesRecurse(std::move(syncFolder), stateList, syncList, checkInterval);
}

SyncPair::ScanResult SyncPair::scanForUpdatesRecurse(std::wstring syncFolder, StateList& stateList, SyncList& syncList,
                                                     int checkInterval) {
  PAIR_DEBUG("scanFolder: %s", utf8(syncFolder).c_str());
  handler_->beginOperation();
  const Side scanned = sideOf(syncFolder);
  Walk walk{{scanned.inside, scanned.root, stateList, syncList}, checkInterval, __func__, "", {}};
  requireIntactRoot(scanned);
  std::deque<std::wstring> queue{folderForm(std::move(syncFolder))};
  std::set<std::wstring> seen(queue.begin(), queue.end());
  while (!queue.empty()) {
    interruption_->check();
    const std::wstring folder = queue.front();
    queue.pop_front();
    requireRoots();
    std::vector<std::wstring> folders;
    scanFolder(walk, folder, folders);
    for (auto& found : folders) {
      if (seen.insert(found).second) queue.push_back(std::move(found));
    }
  }
  return walk.result;
}

}  // namespace Kelta
