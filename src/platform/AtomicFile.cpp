// SPDX-License-Identifier: Apache-2.0
#include "platform/AtomicFile.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <locale>
#include <mutex>
#include <set>
#include <sstream>

#include "platform/Random.h"
#include "platform/Text.h"

namespace Kelta {
namespace platform {

namespace {

const char kPrefix[] = ".~kelsync-";
constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;
constexpr std::size_t kHexDigits = 8;
constexpr std::size_t kLongestProcessId = 19;
constexpr int kTemporaryNameAttempts = 16;
constexpr std::size_t kShortestLimit = 143;  // of a name, in bytes: where folders are enciphered, say
constexpr std::size_t kKeptEnding = 24;
constexpr char kField = '~';

/// The names that this process has in use.
struct OwnNames {
  std::mutex mutex;
  std::set<std::string> names;
};

OwnNames& ownNames() {
  static OwnNames own;
  return own;
}

std::string hexOf(std::uint32_t value) {
  std::string digits(kHexDigits, '0');
  for (std::size_t i = kHexDigits; i-- > 0; value >>= 4) digits[i] = "0123456789abcdef"[value & 0xF];
  return digits;
}

/// FNV-1a of the machine's name.
std::string machineToken() {
  std::uint32_t hash = 2166136261u;
  for (const char c : machineName()) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  return hexOf(hash);
}

std::uint32_t randomWord() {
  std::uint32_t word = 0;
  StrongRandom random;
  if (random.acquired() && random.fill(reinterpret_cast<unsigned char*>(&word), sizeof word)) return word;
  if (stirringWord(word)) return word;
  static std::uint32_t counter = 0;  // under the lock of the own names, which keep the result unique
  return ++counter;
}

struct NameParts {
  std::string machine;
  std::uint64_t process = 0;
};

bool isHex(const std::string& text) {
  return text.size() == kHexDigits && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

bool readProcessId(const std::string& text, std::uint64_t& id) {
  if (text.empty() || text.size() > kLongestProcessId || text[0] == '0') return false;
  if (text.find_first_not_of("0123456789") != std::string::npos) return false;
  id = std::stoull(text);
  return true;
}

bool splitName(const std::string& name, NameParts& parts) {
  constexpr std::size_t shortest = kPrefixLength + kHexDigits + 3 + kHexDigits;
  if (name.size() < shortest || name.compare(0, kPrefixLength, kPrefix) != 0) return false;
  const std::size_t machineEnd = kPrefixLength + kHexDigits;
  const std::size_t processEnd = name.size() - kHexDigits - 1;
  if (name[machineEnd] != '-' || name[processEnd] != '-' || processEnd <= machineEnd) return false;
  parts.machine = name.substr(kPrefixLength, kHexDigits);
  return isHex(parts.machine) && isHex(name.substr(processEnd + 1)) &&
         readProcessId(name.substr(machineEnd + 1, processEnd - machineEnd - 1), parts.process);
}

// Of a long name so much of its middle is left out that it takes `room` bytes at most: the ending tells what it is.
std::string shortened(const std::string& name, std::size_t room) {
  if (name.size() <= room || room < 2 * kKeptEnding) return name.size() <= room ? name : std::string();
  const auto isWithin = [&](std::size_t at) { return (static_cast<unsigned char>(name[at]) & 0xC0) == 0x80; };
  std::size_t begin = room - kKeptEnding - 1;
  std::size_t end = name.size() - kKeptEnding;
  while (begin > 0 && isWithin(begin)) --begin;
  while (end < name.size() && isWithin(end)) ++end;
  return name.substr(0, begin) + "-" + name.substr(end);
}

bool isOwn(const std::string& name) {
  OwnNames& own = ownNames();
  const std::lock_guard<std::mutex> lock(own.mutex);
  return own.names.count(name) != 0;
}

}  // namespace

std::string temporaryName() {
  OwnNames& own = ownNames();
  const std::lock_guard<std::mutex> lock(own.mutex);
  const std::string start = kPrefix + machineToken() + "-" + std::to_string(processId()) + "-";
  for (;;) {
    const std::string name = start + hexOf(randomWord());
    if (own.names.insert(name).second) return name;
  }
}

void forgetTemporaryName(const std::string& name) {
  OwnNames& own = ownNames();
  const std::lock_guard<std::mutex> lock(own.mutex);
  own.names.erase(name);
}

bool isOwnTemporaryName(const std::string& name) { return isOwn(name); }

bool isTemporaryName(const std::string& name) {
  NameParts parts;
  return splitName(name.substr(0, name.find(kField, kPrefixLength)), parts);
}

bool isAbandoned(const std::string& name) {
  NameParts parts;
  if (!splitName(name, parts) || parts.machine != machineToken()) return false;
  return parts.process == processId() ? !isOwn(name) : !processRuns(parts.process);
}

std::string displacedName(const std::string& temporary, const Displaced& file) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << temporary << std::hex;
  for (const FileStamp* const stamp : {&file.judged, &file.fresh})
    text << kField << static_cast<std::uint64_t>(stamp->nanoseconds) << '.' << stamp->size;
  text << kField;
  const std::string start = text.str();
  return start + shortened(file.place, kShortestLimit - std::min(kShortestLimit, start.size()));
}

bool readDisplaced(const std::string& name, Displaced& file) {
  const std::size_t end = name.find(kField, kPrefixLength);
  if (end == std::string::npos || !isAbandoned(name.substr(0, end))) return false;
  std::istringstream text(name.substr(end));
  text.imbue(std::locale::classic());
  text >> std::hex;
  for (FileStamp* const stamp : {&file.judged, &file.fresh}) {
    char field = 0;
    char dot = 0;
    std::uint64_t time = 0;
    if (!(text >> field >> time >> dot >> stamp->size) || field != kField || dot != '.') return false;
    stamp->kind = Kind::file;
    stamp->nanoseconds = static_cast<std::int64_t>(time);
  }
  if (text.get() != kField) return false;
  std::getline(text, file.place, '\0');
  return true;
}

AtomicFile::AtomicFile(const boost::filesystem::path& target, bool ownerOnly)
    : AtomicFile(OpenFolder(target.parent_path()), target.filename(), ownerOnly) {}

AtomicFile::AtomicFile(OpenFolder folder, boost::filesystem::path name, bool ownerOnly)
    : folder_(std::move(folder)), name_(std::move(name)), ownerOnly_(ownerOnly) {
  for (int attempt = 1; !file_; ++attempt) {
    const std::string fresh = temporaryName();
    temporary_ = folder_.path() / pathOf(std::wstring(fresh.begin(), fresh.end()));
    try {
      file_ = std::make_unique<File>(folder_.open(temporary_.filename(), File::Mode::createNew));
      id_ = file_->id();
    } catch (const boost::filesystem::filesystem_error& error) {
      forgetTemporaryName(fresh);
      if (attempt >= kTemporaryNameAttempts || error.code() != boost::system::errc::file_exists) throw;
    }
  }
  if (ownerOnly_) file_->restrictToOwner();
}

AtomicFile::~AtomicFile() {
  file_.reset();
  const boost::filesystem::path name = temporary_.filename();
  try {
    if (!committed_) folder_.removeFile(name, folder_.look(name).id);
  } catch (const boost::filesystem::filesystem_error&) {  // a later sweep will
  }
  forgetTemporaryName(utf8(name));
}

void AtomicFile::finish() {
  if (!ownerOnly_) folder_.giveNormalRights(*file_, name_);
  file_->flushToDisk();
  file_->close();
}

void AtomicFile::commit() {
  finish();
  folder_.replace(temporary_.filename(), id_, folder_, name_);
  committed_ = true;
  folder_.sync();
}

bool AtomicFile::commitNew() {
  finish();
  committed_ = folder_.move(temporary_.filename(), id_, folder_, name_);
  folder_.sync();
  return committed_;
}

bool AtomicFile::commitBy(const Replacement& replace) {
  finish();
  const bool done = replace({folder_, temporary_.filename()}, id_, {folder_, name_});
  folder_.sync();
  return done;
}

void writeWholeFile(const boost::filesystem::path& target, const std::string& content, bool ownerOnly) {
  AtomicFile output(target, ownerOnly);
  output.file().write(content.data(), content.size());
  output.commit();
}

}  // namespace platform
}  // namespace Kelta
