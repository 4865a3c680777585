// SPDX-License-Identifier: Apache-2.0
// Renames that are done on the disk while the state files do not tell of them yet: "Kelta_sync_renames.txt" in the
// state folder, one line each, written right before the move and gone with the next state that is written.
//
//     "/" for a folder, "-" for a file TAB path found gone TAB path found new TAB path to move TAB path to move it to
//     LF "x" LF                                                                     the move before could not be done
#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <sstream>

#include "SyncPair0/RenameJob.h"
#include "SyncPair0/StateLines.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

using Fields = std::vector<std::wstring>;

constexpr std::size_t kJournalFields = 5;
constexpr std::size_t kPairs[] = {1, 3};  ///< where the two pairs of paths begin
const wchar_t kFolder[] = L"/";
const wchar_t kUndone[] = L"x";

Fields fieldsOf(const std::wstring& line) {
  Fields fields;
  std::wistringstream stream(line);
  for (std::wstring field; std::getline(stream, field, L'\t');) fields.push_back(field);
  return fields;
}

void readRenames(StateLines& lines, std::vector<Fields>& renames) {
  renames.clear();
  std::wstring line;
  while (lines.next(line) == StateLines::Outcome::line) {
    const Fields fields = fieldsOf(line);
    if (line == kUndone && !renames.empty()) renames.pop_back();
    if (fields.size() == kJournalFields) renames.push_back(fields);
  }
}

void moveRecord(StateList& state, const std::wstring& from, const std::wstring& to) {
  StateRecord record = std::move(state.at(from));
  state.erase(from);
  state[to] = std::move(record);
}

}  // namespace

std::wstring SyncPair::journalFile() const { return joinPath(stateFolder_, L"Kelta_sync_renames.txt"); }

// What cannot be written down is done all the same: after a sudden end it would be recognised anew, or copied.
void SyncPair::writeJournal(const std::wstring& line) {
  if (stateFolder_.empty()) return;
  try {
    const auto path = platform::pathOf(journalFile());
    if (!journal_) {
      keepAside(journalFile());
      boost::system::error_code none;
      platform::removeEntry(path, none);
      journal_ = std::make_unique<platform::File>(path, platform::File::Mode::createNew);
    }
    const std::string text = utf8(line) + '\n';
    journal_->write(text.data(), text.size());
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
  }
}

void SyncPair::dropJournal() {
  journal_.reset();
  boost::system::error_code error;
  platform::removeEntry(platform::pathOf(journalFile()), error);
  if (error) PAIR_ERROR("couldn't remove %s: %s", utf8(journalFile()).c_str(), error.message().c_str());
}

bool SyncPair::carryMove(const RenameJob& job) {
  writeJournal((job.match.isFolder ? kFolder : L"-") + (L'\t' + job.ownFrom) + L'\t' + job.ownTo + L'\t' + job.from +
               L'\t' + job.to);
  if (moveFile(job.from, job.to)) return true;
  writeJournal(kUndone);
  return false;
}

// Whether the line tells of one entry's new name on both sides. Damage might lead out of the pair.
bool SyncPair::isJournalled(const std::vector<std::wstring>& fields) {
  const bool plain = std::all_of(std::next(fields.begin()), fields.end(), [&](const std::wstring& path) {
    std::wstring own;
    return ownSpelling(path, own) && own == path;
  });
  if (!plain) return false;
  const bool isFolder = fields[0] == kFolder;
  const Side one = sideOf(fields[1]);
  const Side two = sideOf(fields[3]);
  if (one.inside == two.inside) return false;
  const std::wstring key = keyOf(one, fields[2], isFolder);
  return !key.empty() && keyOf(two, fields[4], isFolder) == key;
}

// True when the records followed a move that was done before the last run ended.
bool SyncPair::replayRename(const std::vector<std::wstring>& fields) {
  const bool isFolder = fields[0] == kFolder;
  const platform::Kind kind = isFolder ? platform::Kind::folder : platform::Kind::file;
  if (!isJournalled(fields)) return false;
  if (stampUnderName(fields[3]).kind == kind || stampUnderName(fields[4]).kind != kind) return false;
  for (const std::size_t i : kPairs) {
    const StateList& state = sideOf(fields[i]).state;
    const auto below = recordsBelow(state, fields[i + 1]);
    if (state.count(fields[i]) == 0 || state.count(fields[i + 1]) > 0 || below.first != below.second) return false;
  }
  // Another file may have taken the new name since.
  const StateRecord& record = sideOf(fields[3]).state.at(fields[3]);
  if (!isFolder && makeRecord(fields[4], recordedTime(record))[1] != record[1]) return false;
  PAIR_INFO("renamed before the last run ended: %s, now %s", utf8(fields[3]).c_str(), utf8(fields[4]).c_str());
  for (const std::size_t i : kPairs) {
    StateList& state = sideOf(fields[i]).state;
    moveRecord(state, fields[i], fields[i + 1]);
    if (isFolder) updateStateListByParent(fields[i], fields[i + 1], state);
  }
  return true;
}

void SyncPair::replayJournal() {
  if (journal_) return;
  std::vector<Fields> renames;
  // Unread, it is of no use later: what was renamed is recognised anew, or copied.
  if (!readOwnFile(journalFile(), [&](StateLines& lines) { readRenames(lines, renames); })) return;
  bool followed = false;
  for (const Fields& fields : renames) followed = replayRename(fields) || followed;
  if (followed) {
    writeStateList(srcStateList, stateFiles_[0]);
    writeStateList(destStateList, stateFiles_[1]);
  }
  dropJournal();
}

}  // namespace Kelta
