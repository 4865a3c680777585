// SPDX-License-Identifier: Apache-2.0
// A record is one line of five fields, separated by tabs, in a file of its own:
//
//     1  the record's name: MD5 of the quarantined path, 32 hexadecimal digits
//     2  error id: "path-issue" or "no-key"
//     3  message
//     4  UTC time, ISO 8601
//     5  the quarantined path, generic form
//
// Fields are UTF-8 and escaped as in a JSON string, so that a tab in a name cannot be taken for a separator.
#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <set>
#include <sstream>

#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "base/Md5.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;
using platform::Kind;

constexpr std::size_t kRecordFields = 5;
constexpr std::size_t kMaxRecordBytes = 64 * 1024;
const std::wstring kRecordExtension = L".txt";
const std::wstring kPathTooLong = L"Path too long";
const std::wstring kNameMark = L"(Quarantine ";

// The bytes that stand for a path: UTF-8, or the name as the system keeps it where that has no exact text.
std::string recordName(const fs::path& path) {
  const fs::path generic = path.generic_path();
  std::wstring wide;
  if (!platform::wideOf(generic, wide)) {
    const auto& native = generic.native();
    return md5Hex(native.data(), native.size() * sizeof(fs::path::value_type));
  }
  const std::string text = utf8(wide);
  return md5Hex(text.data(), text.size());
}

bool isRecordName(const std::wstring& name) {
  return name.size() == 32 + kRecordExtension.size() && name.find_first_not_of(L"0123456789abcdef") == 32 &&
         name.substr(32) == kRecordExtension;
}

// Whether what the record of that name is about is still there, or may be. A name that the recorded text does not give
// exactly (what is not valid text, or holds a backslash) is looked for in all the folders above it.
bool mayBeThere(const std::string& name, const std::wstring& text, const std::wstring& root) {
  const fs::path path = platform::pathOf(text);
  if (recordName(path) == name) return platform::stampOf(path).kind != Kind::missing;
  for (std::wstring folder = parentOf(text); folder.size() >= root.size(); folder = parentOf(folder)) {
    const fs::path above = platform::pathOf(folder);
    std::vector<fs::path> entries;
    boost::system::error_code error;
    if (platform::stampOf(above).kind == Kind::missing) continue;
    platform::listFolder(above, entries, error);
    const bool found =
        std::any_of(entries.begin(), entries.end(), [&](const fs::path& entry) { return recordName(entry) == name; });
    if (error || found) return true;
  }
  return false;
}

std::string field(const std::wstring& text) { return utf8(jsonEscaped(text)); }

bool readFields(const fs::path& record, std::vector<std::wstring>& fields) {
  platform::File file(record, platform::File::Mode::read);
  std::string text(kMaxRecordBytes, '\0');
  text.resize(file.read(&text[0], text.size()));
  std::wstring line;
  if (!platform::wideFromUtf8(text.substr(0, text.find_first_of("\r\n")), line)) return false;
  std::wistringstream stream(line);
  for (std::wstring part; std::getline(stream, part, L'\t');) fields.push_back(part);
  return fields.size() >= kRecordFields;
}

// As it stands; what no record of ours holds is escaped, so that the list always parses.
std::wstring jsonQuoted(const std::wstring& text) {
  return L'"' + (isJsonStringBody(text) ? text : jsonEscaped(text)) + L'"';
}

}  // namespace

void CryptoSyncCopyHandler::setQuarFolder(std::wstring path) {
  const bool created = storeFolder(quarFolder_, path);
  HANDLER_DEBUG("%s", utf8(quarFolder_).c_str());
  HANDLER_DEBUG("created? %s", log::truth(created));
}

bool CryptoSyncCopyHandler::quarantineFolderExists() {
  return !quarFolder_.empty() && platform::kindBehindLinks(platform::pathOf(quarFolder_)) == Kind::folder;
}

fs::path CryptoSyncCopyHandler::genQuarantineRecordPath(fs::path path) {
  HANDLER_DEBUG("for: %s", utf8(path).c_str());
  return platform::pathOf(quarFolder_) / (recordName(path) + ".txt");
}

void CryptoSyncCopyHandler::recordQuarantine(fs::path path, std::wstring message, std::wstring errorId) {
  if (!quarantineFolderExists()) {
    HANDLER_ERROR("Can't record, quarantine folder doesn't exist");
    return;
  }
  const fs::path record = genQuarantineRecordPath(path);
  HANDLER_DEBUG("record file: %s\n", utf8(record).c_str());
  std::wstring quarantined;
  platform::wideOf(path.generic_path(), quarantined);  // a backslash that is part of a name stays one
  const std::string line = utf8(record.stem()) + "\t" + field(errorId) + "\t" + field(message) + "\t" +
                           isoTime(clock().nowSeconds()) + "\t" + field(quarantined) + "\n";
  try {
    platform::writeWholeFile(record, line);
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("couldn't write %s: %s", utf8(record).c_str(), error.what());
    return;
  }
  quarantineChanged();
}

bool CryptoSyncCopyHandler::quarantineOnce(const fs::path& path, const std::wstring& message,
                                           const std::wstring& errorId) {
  if (quarantineFolderExists() && platform::stampOf(genQuarantineRecordPath(path)).kind == Kind::file) return false;
  HANDLER_ERROR("%s: %s", utf8(message).c_str(), utf8(path).c_str());
  recordQuarantine(path, message, errorId);
  const bool tooLong = message.compare(0, kPathTooLong.size(), kPathTooLong) == 0;
  notifySync((tooLong ? L"Quarantine, path too long: " : L"Quarantine for ") + jsonEscaped(shownName(path)));
  return true;
}

void CryptoSyncCopyHandler::quarantineChanged() {
  boost::unique_lock<boost::mutex> lock(fneLock_);
  quarantineChangedAt_ = clock().nowSeconds();
}

// Every change that came after the last reading makes a greater value.
int CryptoSyncCopyHandler::quarantineLastUpdate() {
  boost::unique_lock<boost::mutex> lock(fneLock_);
  const std::int64_t now = clock().nowSeconds();
  const std::int64_t next = std::max(quarantineLastUpdate_ + 1, quarantineChangedAt_);
  // What changes faster than the clock goes is told with its next second, unless the clock was set back.
  const bool tellable = next <= now + 1 || quarantineLastUpdate_ > now + 1;
  if (quarantineChangedAt_ != 0 && tellable) {
    quarantineLastUpdate_ = next;
    quarantineChangedAt_ = 0;
  }
  return static_cast<int>(quarantineLastUpdate_);
}

void CryptoSyncCopyHandler::ifQuarantinedClear(fs::path path) {
  if (!quarantineFolderExists()) return;
  const fs::path record = genQuarantineRecordPath(path);
  HANDLER_DEBUG("record path: %s", utf8(record).c_str());
  if (platform::stampOf(record).kind != Kind::file) return;
  HANDLER_INFO("exists, clearing");
  boost::system::error_code error;
  if (platform::removeEntry(record, error)) quarantineChanged();
  if (error) HANDLER_ERROR("couldn't remove %s: %s", utf8(record).c_str(), error.message().c_str());
}

void CryptoSyncCopyHandler::foundInSync(std::wstring path) { ifQuarantinedClear(platform::pathOf(path)); }

// Takes a record's path as the list gives it. Nothing but a record is ever removed.
bool CryptoSyncCopyHandler::clearQuarantineRecord(std::wstring record) {
  record = genericForm(std::move(record));
  const bool ours = quarantineFolderExists() && isRecordName(nameOf(record)) &&
                    platform::samePath(parentOf(record), quarFolder_) &&
                    platform::stampOf(platform::pathOf(record)).kind == Kind::file;
  boost::system::error_code ignored;
  const bool removed = ours && platform::removeEntry(platform::pathOf(record), ignored);
  HANDLER_INFO("removed %d quarantine record", removed ? 1 : 0);
  if (removed) quarantineChanged();
  return removed;
}

bool CryptoSyncCopyHandler::recordAsJSON(const fs::path& record, std::wstring& json) {
  std::vector<std::wstring> fields;
  try {
    if (!readFields(record, fields)) {
      HANDLER_ERROR("not a quarantine record: %s", utf8(record).c_str());
      return false;
    }
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("couldn't read %s: %s", utf8(record).c_str(), error.what());
    return false;
  }
  json = L"{\"record_file\":" + jsonQuoted(genericForm(platform::wideOf(record))) + L",\"errorid\":" +
         jsonQuoted(fields[1]) + L",\"message\":" + jsonQuoted(fields[2]) + L",\"timestamp\":" + jsonQuoted(fields[3]) +
         L",\"quarantine_path\":" + jsonQuoted(fields[4]) + L"}";
  return true;
}

// In the order of their names.
std::vector<fs::path> CryptoSyncCopyHandler::quarantineRecords() {
  std::set<fs::path> records;
  boost::system::error_code error;
  std::vector<fs::path> entries;
  if (quarantineFolderExists()) platform::listFolder(platform::pathOf(quarFolder_), entries, error);
  for (const fs::path& entry : entries) {
    std::wstring name;
    const bool named = platform::wideOf(entry.filename(), name) && isRecordName(name);
    if (named && platform::stampOf(entry).kind == Kind::file) {
      records.insert(entry);
    } else {
      HANDLER_INFO("no record, left alone: %s", utf8(entry).c_str());
    }
  }
  if (error) HANDLER_ERROR("couldn't list %s: %s", utf8(quarFolder_).c_str(), error.message().c_str());
  return {records.begin(), records.end()};
}

// What was quarantined and is gone needs nobody's attention any more. What lies on a side that is away may come back.
void CryptoSyncCopyHandler::dropStaleRecords() {
  if (!quarantineFolderExists()) return;
  const auto away = [](const std::wstring& root) {
    return platform::kindBehindLinks(platform::pathOf(root)) != Kind::folder;
  };
  for (const fs::path& record : quarantineRecords()) {
    std::vector<std::wstring> fields;
    try {
      if (!readFields(record, fields)) continue;
    } catch (const fs::filesystem_error& error) {
      HANDLER_ERROR("couldn't read %s: %s", utf8(record).c_str(), error.what());
      continue;
    }
    const std::wstring text = jsonUnescaped(fields[4]);
    const std::wstring& root = isBelow(text, insideFolder_) ? insideFolder_ : outsideFolder_;
    if (!isBelow(text, root) || away(root) || mayBeThere(utf8(record.stem()), text, root)) continue;
    HANDLER_INFO("gone, clearing: %s", utf8(text).c_str());
    boost::system::error_code error;
    if (platform::removeEntry(record, error)) quarantineChanged();
  }
}

std::wstring CryptoSyncCopyHandler::getQuarantineAsJSON() {
  std::wstring list;
  if (!quarantineFolderExists()) HANDLER_INFO("Quarantine folder doesn't exist");
  for (const fs::path& record : quarantineRecords()) {
    std::wstring json;
    if (recordAsJSON(record, json)) list += (list.empty() ? L"" : L",") + json;
  }
  return L"{\"quarantined\":[" + list + L"]}";
}

std::wstring CryptoSyncCopyHandler::quarName(std::wstring name) {
  HANDLER_DEBUG("%s", utf8(name).c_str());
  if (name.find(kNameMark) != std::wstring::npos) return name;
  std::wstring now;
  platform::wideFromUtf8(isoTime(clock().nowSeconds()), now);
  now.erase(std::remove(now.begin(), now.end(), L':'), now.end());
  return kNameMark + now + L") " + name;
}

}  // namespace Kelta
