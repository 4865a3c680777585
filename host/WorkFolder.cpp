// SPDX-License-Identifier: Apache-2.0
#include "WorkFolder.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <cstdint>
#include <cstdlib>

#include "Failure.h"
#include "Terminal.h"
#include "platform/AtomicFile.h"
#include "platform/Files.h"
#include "platform/Random.h"
#include "platform/Text.h"
#include "platform/Utf8.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

const char* const kDefaultLogProperties = "log4cplus.rootLogger=INFO\n";
constexpr std::size_t kSmallFile = 32768;
constexpr std::int64_t kUnfinishedLockSeconds = 10;

/// 16 hex digits that stay the same for the same two folders (FNV-1a, 64 bits).
std::string pairDigits(const PairFolders& pair) {
  std::uint64_t hash = 0xCBF29CE484222325u;
  for (const char byte : platform::utf8(pair.inside) + "\n" + platform::utf8(pair.outside)) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3u;
  }
  std::string digits;
  for (int shift = 60; shift >= 0; shift -= 4) digits.push_back("0123456789abcdef"[(hash >> shift) & 15]);
  return digits;
}

fs::path defaultRoot(const PairFolders& pair) {
  const fs::path data = platform::userDataFolder();
  if (data.empty()) {
    throw Failure{Exit::usage, L"the system names no folder for program data; give --work DIR"};
  }
  return absoluteOf(genericOf(data / "kelsync" / pairDigits(pair)));
}

void createForOwner(const fs::path& folder) {
  if (fs::create_directories(folder)) platform::restrictToOwner(folder);
}

std::string smallFile(const fs::path& path) {
  platform::File file(path, platform::File::Mode::read);
  std::string content(kSmallFile, '\0');
  content.resize(file.read(&content[0], content.size()));
  return content;
}

std::int64_t secondsNow() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// Whether the process that wrote the lock is gone. A lock without a number is one that is being written just now,
/// unless it is old.
bool isStale(const fs::path& lock, const std::string& content) {
  const std::uint64_t owner = std::strtoull(content.c_str(), nullptr, 10);
  if (owner == 0) return platform::stampOf(lock).seconds() + kUnfinishedLockSeconds < secondsNow();
  const std::size_t machine = content.find(' ');
  const std::size_t end = std::min(content.find('\n'), content.size());
  const std::size_t start = machine == std::string::npos ? end : std::min(content.find(' ', machine + 1), end);
  // Whether a process of another machine runs cannot be told from here.
  if (machine != std::string::npos && content.substr(machine + 1, start - machine - 1) != platform::machineName()) {
    return false;
  }
  if (owner == platform::processId() || !platform::processRuns(owner)) return true;
  // Another process may have the number by now, after a restart of the machine say.
  const std::string now = platform::processStart(owner);
  return start < end && !now.empty() && content.substr(start + 1, end - start - 1) != now;
}

/// What the system says, to be put behind a sentence.
std::wstring reasonOf(const fs::filesystem_error& error) {
  return L": " + printable(platform::readableFromUtf8(error.code().message()));
}

}  // namespace

WorkFolder::WorkFolder(const std::wstring& text, const PairFolders& pair)
    : root_(text.empty() ? defaultRoot(pair) : absoluteOf(text)),
      pairText_(pair.inside + L"\n" + pair.outside + L"\n") {
  const std::wstring root = genericOf(root_);
  if (isWithin(root, pair.inside))
    throw Failure{Exit::usage, L"the work folder lies in the Inside; give another --work"};
  if (isWithin(root, pair.outside)) {
    throw Failure{Exit::usage, L"the work folder lies in the Outside; give another --work"};
  }
  for (const std::wstring& own : {state(), temp(), log()}) {
    if (isWithin(pair.inside, own) || isWithin(pair.outside, own)) {
      throw Failure{Exit::usage,
                    L"a folder of the pair lies in what the work folder keeps for itself: " + printable(own)};
    }
  }
}

WorkFolder::~WorkFolder() {
  boost::system::error_code ignored;
  if (locked_) fs::remove(lockFile(), ignored);
}

void WorkFolder::open() {
  const std::wstring name = printable(genericOf(root_));
  try {
    createForOwner(root_);
    for (const char* const part : {"state", "temp", "log"}) createForOwner(root_ / part);
    locked_ = takeLock() || (removeStaleLock() && takeLock());
    if (locked_) refuseOtherPair();
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, L"the work folder cannot be used: " + name + reasonOf(error)};
  }
  if (!locked_) {
    throw Failure{Exit::failed, L"another kelsync uses this work folder now. If none does, remove " + name + L"/lock"};
  }
}

bool WorkFolder::keyChangePending() const { return platform::stampOf(newKeyFile()).kind != platform::Kind::missing; }

void WorkFolder::requireNoKeyChange() const {
  if (!keyChangePending()) return;
  throw Failure{Exit::failed, L"the pair's key was not changed to the end; run \"kelsync key rotate\" again first"};
}

bool WorkFolder::hasRecords() const {
  return platform::stampOf(root_ / "state" / "quar").kind == platform::Kind::folder;
}

bool WorkFolder::namesRemembered() const { return platform::stampOf(root_ / "names").kind == platform::Kind::file; }

void WorkFolder::rememberNames(bool encrypted) const {
  try {
    if (encrypted) platform::writeWholeFile(root_ / "names", "encrypted\n", true);
    if (!encrypted) fs::remove(root_ / "names");
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, L"the wish for names cannot be kept" + reasonOf(error)};
  }
}

void WorkFolder::keepNotifications(const std::wstring& text) const {
  try {
    platform::writeWholeFile(root_ / "notifications", platform::utf8(text) + "\n", true);
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, L"the notifications cannot be kept" + reasonOf(error)};
  }
}

std::wstring WorkFolder::notifications() const {
  const std::wstring none = L"{\"notifications\":[]}";
  if (platform::stampOf(root_ / "notifications").kind != platform::Kind::file) return none;
  try {
    platform::File file(root_ / "notifications", platform::File::Mode::read);
    std::string text(static_cast<std::size_t>(file.size()), '\0');
    text.resize(file.read(&text[0], text.size()));
    const std::wstring wide = platform::readableFromUtf8(text);
    return wide.empty() ? none : wide.substr(0, wide.find(L'\n'));
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, L"the notifications of the last run cannot be read" + reasonOf(error)};
  }
}

void WorkFolder::refuseOtherPair() const {
  if (platform::stampOf(pairFile()).kind == platform::Kind::missing) return;
  const std::wstring text = platform::readableFromUtf8(smallFile(pairFile()));
  if (platform::samePath(text, pairText_)) return;
  const std::size_t lineEnd = text.find(L'\n');
  const std::wstring outside = lineEnd == std::wstring::npos ? std::wstring() : text.substr(lineEnd + 1);
  const std::wstring name = printable(genericOf(pairFile()));
  throw Failure{Exit::usage, L"the work folder belongs to another pair:\n  Inside:  " +
                                 printable(text.substr(0, lineEnd)) + L"\n  Outside: " +
                                 printable(outside.substr(0, outside.find(L'\n'))) +
                                 L"\nGive another --work. If these folders were only moved, delete " + name +
                                 L"; the next run then merges."};
}

void WorkFolder::claim() const {
  try {
    const bool known = platform::stampOf(pairFile()).kind != platform::Kind::missing;
    if (!known) platform::writeWholeFile(pairFile(), platform::utf8(pairText_), true);
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, printable(genericOf(pairFile())) + L" cannot be written" + reasonOf(error)};
  }
}

bool WorkFolder::takeLock() const {
  if (platform::stampOf(lockFile()).kind != platform::Kind::missing) return false;
  bool created = false;
  try {
    platform::File file(lockFile(), platform::File::Mode::createNew);
    created = true;
    const std::string owner = std::to_string(platform::processId()) + " " + platform::machineName() + " " +
                              platform::processStart(platform::processId()) + "\n";
    file.write(owner.data(), owner.size());
    file.close();
    return true;
  } catch (const fs::filesystem_error& error) {
    if (!created && error.code() == boost::system::errc::file_exists) return false;
    boost::system::error_code ignored;
    if (created) fs::remove(lockFile(), ignored);
    throw;
  }
}

bool WorkFolder::removeStaleLock() const {
  if (platform::stampOf(lockFile()).kind == platform::Kind::missing) return true;
  const std::string content = smallFile(lockFile());
  if (!isStale(lockFile(), content) || smallFile(lockFile()) != content) return false;
  return fs::remove(lockFile());
}

void WorkFolder::prepareLog() const {
  const fs::path properties = root_ / "log" / "log.properties";
  const bool there = platform::stampOf(properties).kind != platform::Kind::missing;
  std::wstring ignored;
  try {
    if (!platform::environment("SYNCPAIRTRACE", ignored)) {
      if (!there) platform::writeWholeFile(properties, kDefaultLogProperties);
    } else if (there && smallFile(properties) == kDefaultLogProperties) {
      fs::remove(properties);
    }
  } catch (const fs::filesystem_error&) {
    throw Failure{Exit::failed, L"the log cannot be set up in " + printable(log())};
  }
}

}  // namespace host
}  // namespace Kelta
