// SPDX-License-Identifier: Apache-2.0
#include <boost/filesystem/exception.hpp>
#include <cwchar>

#include "SyncPair0/StateLines.h"
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

constexpr std::size_t kMaxLineCharacters = 2047;
constexpr std::size_t kReadBytes = 64 * 1024;

bool isDecimal(const std::wstring& text) {
  const std::size_t first = !text.empty() && text[0] == L'-' ? 1 : 0;
  if (text.size() == first || text.size() > 18) return false;
  return text.find_first_not_of(L"0123456789", first) == std::wstring::npos;
}

}  // namespace

std::pair<StateList::const_iterator, StateList::const_iterator> recordsBelow(const StateList& list,
                                                                             const std::wstring& folder) {
  const std::wstring prefix = joinPath(folder, L"");
  std::wstring behind = prefix;
  ++behind.back();
  return {list.lower_bound(prefix), list.lower_bound(behind)};
}

StateList::const_iterator recordBehind(const StateList& list, const std::wstring& path) {
  return recordsBelow(list, path).second;
}

std::int64_t recordedTime(const StateRecord& record) {
  return record.empty() ? 0 : std::wcstoll(record[0].c_str(), nullptr, 10);
}

std::int64_t unseenTime(const platform::FileStamp& stamp) { return stamp.seconds() > 0 ? 0 : stamp.seconds() - 1; }

bool isUnseen(const StateRecord& record, const platform::FileStamp& stamp) {
  return recordedTime(record) == unseenTime(stamp);
}

bool isAsScanned(const platform::FileStamp& now, const SyncObject& scanned) {
  if (scanned.stamp.kind == platform::Kind::missing) return now.seconds() == scanned.timestamp;
  return now.sameContent(scanned.stamp);
}

bool StateLines::fill() {
  std::string chunk(kReadBytes, '\0');
  chunk.resize(file_.read(&chunk[0], chunk.size()));
  buffer_.erase(0, position_);
  position_ = 0;
  buffer_ += chunk;
  return !chunk.empty();
}

StateLines::Outcome StateLines::next(std::wstring& line) {
  std::size_t end = buffer_.find('\n', position_);
  while (end == std::string::npos && buffer_.size() - position_ <= 4 * kMaxLineCharacters && fill()) {
    end = buffer_.find('\n', position_);
  }
  if (end == std::string::npos) end = buffer_.size();
  if (end - position_ > 4 * kMaxLineCharacters) return Outcome::tooLong;
  if (position_ == buffer_.size()) return Outcome::end;
  std::string text = buffer_.substr(position_, end - position_);
  position_ = end == buffer_.size() ? end : end + 1;
  if (!text.empty() && text.back() == '\r') text.pop_back();
  if (!platform::wideFromUtf8(text, line)) return Outcome::notText;
  return line.size() > kMaxLineCharacters ? Outcome::tooLong : Outcome::line;
}

bool parseStateLine(const std::wstring& line, std::wstring& key, StateRecord& record) {
  const std::size_t first = line.find(L'\t');
  const std::size_t second = first == std::wstring::npos ? first : line.find(L'\t', first + 1);
  if (second == std::wstring::npos || line.find(L'\t', second + 1) != std::wstring::npos) return false;
  key = line.substr(0, first);
  record = {line.substr(first + 1, second - first - 1), line.substr(second + 1)};
  return !key.empty() && key.find(L'\0') == std::wstring::npos && isDecimal(record[0]);
}

StateRecord SyncPair::makeRecord(const std::wstring& path, std::int64_t time) {
  std::wstring hash;
  try {
    hash = generateFileHash(path);
  } catch (const boost::filesystem::filesystem_error& error) {
    PAIR_ERROR("%s", error.what());
  }
  // The "+" tells a folder of the Inside even where no identifier could be written.
  if (hash.empty() && platform::stampOf(platform::pathOf(path)).kind == platform::Kind::folder) hash = L"+";
  return {std::to_wstring(time), hash};
}

void SyncPair::setState(StateList& list, std::wstring path) { setState(list, path, mtime(path)); }

void SyncPair::setState(StateList& list, std::wstring path, std::int64_t time) {
  PAIR_DEBUG("%s", utf8(path).c_str());
  path = genericForm(std::move(path));
  stateChanged_ = true;
  const platform::Kind kind = platform::stampOf(platform::pathOf(path)).kind;
  if (kind != platform::Kind::file && kind != platform::Kind::folder) {
    list.erase(path);
    return;
  }
  list[path] = makeRecord(path, time);
}

void SyncPair::delState(StateList& list, std::wstring path) {
  if (path.empty()) {
    PAIR_ERROR("path is empty");
    return;
  }
  PAIR_DEBUG("%s", utf8(path).c_str());
  path = genericForm(std::move(path));
  const auto record = list.find(path);
  if (record == list.end()) return;
  // Below a file lies nothing of its own: it may have been replaced by a folder whose entries are known already.
  if (recordedAsFolder(&list == &srcStateList, path, record->second)) {
    const auto below = recordsBelow(list, path);
    list.erase(below.first, below.second);
  }
  list.erase(path);
  stateChanged_ = true;
}

void SyncPair::delState(std::pair<bool, bool> sides, std::wstring src, std::wstring dest) {
  PAIR_DEBUG("src=%s", utf8(src).c_str());
  PAIR_DEBUG("dest=%s", utf8(dest).c_str());
  // A folder may have taken the name of the file that is gone, and its record.
  const auto record = srcStateList.find(genericForm(src));
  const bool taken =
      record != srcStateList.end() && recordedAsFolder(true, src, record->second) != recordedAsFolder(false, dest, {});
  if (sides.first) saved_.erase(genericForm(src));
  if (sides.first && !taken) delState(srcStateList, src);
  if (sides.second) delState(destStateList, dest);
}

// Whether a scan would record the entry: then no root, marker, or foreign file.
bool SyncPair::mayBeRecorded(const Side& side, const std::wstring& path) {
  const auto entry = platform::pathOf(path);
  const platform::Kind kind = platform::stampOf(entry).kind;
  if (kind != platform::Kind::file && kind != platform::Kind::folder) return false;
  if (path.size() == side.root.size() || path.find_first_of(L"\t\r\n") != std::wstring::npos) return false;
  return isScanned(side, parentOf(path)) && !handler_->ignore(entry) && !platform::hasOtherName(entry) &&
         !keyOf(side, path, kind == platform::Kind::folder).empty();
}

// Refused before anything is touched: a path in another spelling than the scans', what they would not record, and
// everything while no state is loaded, which what is written would replace.
bool SyncPair::editState(const std::wstring& given, bool insert) {
  std::wstring path;
  const bool spelled = ownSpelling(given, path) && platform::samePath(path, genericForm(given));
  const Side edited = sideOf(path);
  const bool possible = spelled && stateLoaded_ && platform::liesBelow(path, edited.root) &&
                        (insert ? mayBeRecorded(edited, path) : edited.state.count(path) > 0);
  if (!possible) {
    PAIR_ERROR("no record is changed for %s", utf8(given).c_str());
    return false;
  }
  const bool pending = stateChanged_;
  if (insert)
    setState(edited.state, path);
  else
    delState(edited.state, path);
  writeStateList(edited.state, stateFiles_[edited.inside ? 0 : 1]);
  stateChanged_ = pending;  // the other side's file is as it was
  return !insert || edited.state.count(path) > 0;
}

bool SyncPair::stateInsertRecord(std::wstring path) {
  PAIR_DEBUG("path: %s", utf8(path).c_str());
  PAIR_DEBUG("Insert for %s", utf8(path).c_str());
  return editState(path, true);
}

bool SyncPair::stateRemoveRecord(std::wstring path) {
  PAIR_DEBUG("path: %s", utf8(path).c_str());
  PAIR_DEBUG("Remove for %s", utf8(path).c_str());
  return editState(path, false);
}

void SyncPair::updateStateListByParent(std::wstring fromParent, std::wstring toParent, StateList& list) {
  PAIR_DEBUG("fromParent = %s", utf8(fromParent).c_str());
  PAIR_DEBUG("toParent = %s", utf8(toParent).c_str());
  fromParent = folderForm(std::move(fromParent));
  toParent = folderForm(std::move(toParent));
  const auto below = recordsBelow(list, fromParent);
  const StateList moved(below.first, below.second);
  list.erase(below.first, below.second);
  for (const auto& entry : moved) {
    PAIR_DEBUG("parent swap. tmp: %s", utf8(entry.first).c_str());
    const std::wstring path = toParent + entry.first.substr(fromParent.size());
    PAIR_DEBUG("tmp (after): %s", utf8(path).c_str());
    list[path] = entry.second;
    PAIR_DEBUG("Updated state to: %s", utf8(path).c_str());
  }
  if (!moved.empty()) stateChanged_ = true;
}

void SyncPair::findSubFoldersFromState(std::wstring parent, StateList& list, std::vector<std::wstring>& out) {
  PAIR_DEBUG("parent=%s", utf8(parent).c_str());
  const bool inside = &list == &srcStateList;
  const auto below = recordsBelow(list, folderForm(std::move(parent)));
  for (auto entry = below.first; entry != below.second; ++entry) {
    if (!recordedAsFolder(inside, entry->first, entry->second)) continue;
    PAIR_DEBUG("found subfolder: %s", utf8(entry->first).c_str());
    out.push_back(entry->first);
  }
}

}  // namespace Kelta
