// SPDX-License-Identifier: Apache-2.0
// The state files, UTF-8, one line per record in key order:
//
//     generic full path TAB last-write seconds, decimal TAB content hash LF
//
// No header, no escaping: a path with a TAB or a line break is never recorded.
#include <boost/filesystem/exception.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include "SyncPair0/StateLines.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

// Serialises the state files of all engines of the process.
boost::mutex& globalLock() {
  static boost::mutex lock;
  return lock;
}

constexpr std::size_t kWriteBytes = 64 * 1024;

}  // namespace

void SyncPair::setStatePath(std::wstring stateFolder) {
  PAIR_DEBUG("stateFolder = %s", utf8(stateFolder).c_str());
  stateFolder_ = configuredFolder(stateFolder);
  setStateFilePaths();
}

void SyncPair::setStateFilePaths() {
  for (const int index : {0, 1}) {
    stateFiles_[index] = joinPath(stateFolder_, L"Kelta_sync_state" + std::wstring(index == 0 ? L"_0.txt" : L"_1.txt"));
    PAIR_INFO("%s", utf8(stateFiles_[index]).c_str());
  }
}

void SyncPair::loadStateFromDisk(std::wstring stateFile, StateList& list) {
  PAIR_DEBUG("Enter function");
  StateList loaded;
  const bool readable = readOwnFile(stateFile, [&](StateLines& lines) {
    PAIR_DEBUG_OF("loadStateFromDisk", "Obtaining global lock %p", static_cast<void*>(&globalLock()));
    const boost::lock_guard<boost::mutex> lock(globalLock());
    loaded.clear();
    readRecords(lines, stateFile, loaded);
  });
  if (readable)
    list.insert(loaded.begin(), loaded.end());
  else
    stateDamaged_ = true;
}

void SyncPair::readRecords(StateLines& lines, const std::wstring& stateFile, StateList& list) {
  std::wstring line;
  for (;;) {
    const StateLines::Outcome outcome = lines.next(line);
    if (outcome == StateLines::Outcome::end) return;
    if (outcome == StateLines::Outcome::tooLong) {
      PAIR_ERROR("%s: a line is too long, the rest is not read", utf8(stateFile).c_str());
      stateDamaged_ = true;
      return;
    }
    PAIR_DEBUG_OF("loadStateFromDisk", "loadStateFromDisk() line=%s", utf8(line).c_str());
    std::wstring key;
    StateRecord record;
    if (outcome == StateLines::Outcome::line && parseStateLine(line, key, record) && ownSpelling(key, key)) {
      list.emplace(std::move(key), std::move(record));
    } else {
      PAIR_ERROR("%s: skipped a line that is no record", utf8(stateFile).c_str());
      stateDamaged_ = true;
    }
  }
}

// A folder of the Inside whose identifier got lost since gets a new one before it is written down.
void SyncPair::refreshFolderId(const std::wstring& path, StateRecord& record) {
  if (!recordedAsFolder(true, path, record)) return;
  if (platform::stampOf(platform::pathOf(path)).kind != platform::Kind::folder) return;
  PAIR_DEBUG("Inside, updating rename ID: %s", utf8(path).c_str());
  if (!setFolderRenameId(path)) return;
  const std::wstring id = getFolderRenameId(path);
  if (!id.empty()) record[1] = id;
}

void SyncPair::writeStateList(StateList& list, std::wstring stateFile) {
  PAIR_DEBUG("State file: %s", utf8(stateFile).c_str());
  if (stateFolder_.empty()) {
    PAIR_ERROR("No folder for the state is set");
    return;
  }
  PAIR_DEBUG("Obtaining global lock %p", static_cast<void*>(&globalLock()));
  const boost::lock_guard<boost::mutex> lock(globalLock());
  const bool inside = platform::samePath(stateFile, stateFiles_[0]);
  keepAside(stateFile);
  boost::system::error_code unmade;  // then the file cannot be made either, and that error is thrown
  platform::createFolders(platform::pathOf(stateFolder_), unmade);
  platform::AtomicFile target(platform::pathOf(stateFile), true);
  std::string text;
  for (auto& entry : list) {
    if (inside) refreshFolderId(entry.first, entry.second);
    const std::string line = utf8(entry.first + L'\t' + entry.second[0] + L'\t' + entry.second[1]);
    PAIR_DEBUG("writing: %s", line.c_str());
    text += line + '\n';
    if (text.size() < kWriteBytes) continue;
    target.file().write(text.data(), text.size());
    text.clear();
  }
  target.file().write(text.data(), text.size());
  target.commit();
  stateChanged_ = false;
}

void SyncPair::writeState() {
  PAIR_DEBUG("renameOccurred=%d, successfulEvents=%d", renameOccurred_, successfulEvents_);
  if (stateChanged_ && (renameOccurred_ || successfulEvents_ > 0)) {
    try {
      writeStateList(srcStateList, stateFiles_[0]);
      writeStateList(destStateList, stateFiles_[1]);
    } catch (...) {
      stateChanged_ = true;  // both are written again next time
      throw;
    }
    lastStateWriteTime_ = clock_->nowMicroseconds();
    if (journal_) dropJournal();
  }
  renameOccurred_ = false;
  successfulEvents_ = 0;
  stateChanged_ = false;
}

// Temporary files of writers that were killed.
void SyncPair::sweepStateFolder() {
  std::vector<boost::filesystem::path> entries;
  if (!listFolder(__func__, stateFolder_, entries)) return;
  for (const auto& entry : entries) {
    if (platform::stampOf(entry).kind != platform::Kind::file || !platform::isAbandoned(utf8(entry.filename()))) {
      continue;
    }
    boost::system::error_code ignored;
    platform::removeEntry(entry, ignored);
  }
}

}  // namespace Kelta
