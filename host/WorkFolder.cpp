// SPDX-License-Identifier: Apache-2.0
#include "WorkFolder.h"

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <cstdint>
#include <cstdlib>

#include "Failure.h"
#include "Lists.h"
#include "LogFolder.h"
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

constexpr std::size_t kSmallFile = 32768;

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

std::string smallFile(const fs::path& path) {
  platform::File file(path, platform::File::Mode::read);
  std::string content(kSmallFile, '\0');
  content.resize(file.read(&content[0], content.size()));
  return content;
}

/// What the system says, to be put behind a sentence.
std::wstring reasonOf(const fs::filesystem_error& error) {
  return L": " + printable(platform::readableFromUtf8(error.code().message()));
}

void keepText(const fs::path& file, const std::wstring& text, const std::wstring& what) {
  try {
    platform::writeWholeFile(file, platform::utf8(text) + "\n", true);
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, what + L" cannot be kept" + reasonOf(error)};
  }
}

/// What keepText() wrote: a JSON text with the list `name`.
std::wstring keptList(const fs::path& path, const std::wstring& name, const std::wstring& what) {
  const std::wstring start = L"{\"" + name + L"\":[";
  if (platform::stampOf(path).kind == platform::Kind::missing) return start + L"]}";
  try {
    platform::File file(path, platform::File::Mode::read);
    std::string bytes(static_cast<std::size_t>(file.size()), '\0');
    bytes.resize(file.read(&bytes[0], bytes.size()));
    const std::wstring text = platform::readableFromUtf8(bytes);
    const std::wstring line = text.substr(0, text.find(L'\n'));
    if (line.compare(0, start.size(), start) == 0 && isList(line, name)) return line;
    complain(what + L" cannot be read: damaged");
  } catch (const fs::filesystem_error& error) {
    complain(what + L" cannot be read" + reasonOf(error));
  }
  return start + L"]}";
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

WorkFolder::~WorkFolder() { removeUnused(); }

void WorkFolder::createFolders() const {
  createForOwner(root_);
  for (const char* const part : {"state", "temp", "log"}) createForOwner(root_ / part);
}

void WorkFolder::open() {
  try {
    for (fs::path folder = root_; platform::stampOf(folder).kind == platform::Kind::missing;) {
      made_.insert(made_.begin(), folder);
      folder = folder.parent_path();
    }
    createFolders();
    takeLock();
    refuseOtherPair();
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, L"the work folder cannot be used: " + printable(name()) + reasonOf(error)};
  }
}

void WorkFolder::openForReading() const {
  try {
    refuseOtherPair();
    createFolders();
    prepareLogFolder(root_ / "log" / "reading");
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, L"the work folder cannot be used: " + printable(name()) + reasonOf(error)};
  }
}

void WorkFolder::takeLock() {
  auto lock = std::make_unique<platform::LockFile>(lockFile());
  if (!lock->taken()) {
    const std::uint64_t holder = std::strtoull(lock->note().c_str(), nullptr, 10);
    const std::wstring process = holder == 0 ? std::wstring() : L" (process " + std::to_wstring(holder) + L")";
    throw Failure{Exit::failed, L"another kelsync" + process + L" uses this work folder now: " + printable(name())};
  }
  lock->setNote(std::to_string(platform::processId()) + "\n");
  lock_ = std::move(lock);
}

// The lock goes while it is held, where the system lets it: nobody else may have it by then. What is in use, or has
// something in it (a key that was made, say), stays.
void WorkFolder::removeUnused() {
  boost::system::error_code error;
  if (made_.empty() || lock_ == nullptr || claimed()) return;
  for (const char* const part : {"state", "temp", "log"}) fs::remove(root_ / part, error);
  fs::remove(lockFile(), error);
  lock_.reset();
  if (error) fs::remove(lockFile(), error);
  for (auto folder = made_.rbegin(); folder != made_.rend(); ++folder) fs::remove(*folder, error);
}

bool WorkFolder::keyChangePending() const { return platform::stampOf(newKeyFile()).kind != platform::Kind::missing; }

void WorkFolder::requireNoKeyChange() const {
  if (!keyChangePending()) return;
  throw Failure{Exit::failed, L"the pair's key was not changed to the end; run \"kelsync key rotate\" again first"};
}

bool WorkFolder::claimed() const { return platform::stampOf(pairFile()).kind != platform::Kind::missing; }

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
  keepText(root_ / "notifications", text, L"the notifications");
}

void WorkFolder::keepFailed(const std::wstring& text) const {
  keepText(root_ / "failed", text, L"the list of what failed");
}

void WorkFolder::keepWaiting(const std::wstring& text) const {
  keepText(root_ / "waiting", text, L"the list of what waits");
}

std::wstring WorkFolder::notifications() const {
  return keptList(root_ / "notifications", L"notifications", L"the notifications of the last run");
}

std::wstring WorkFolder::failed() const { return keptList(root_ / "failed", L"failed", L"the list of what failed"); }

std::wstring WorkFolder::waiting() const { return keptList(root_ / "waiting", L"waiting", L"the list of what waits"); }

void WorkFolder::refuseOtherPair() const {
  if (!claimed()) return;
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
    if (!claimed()) platform::writeWholeFile(pairFile(), platform::utf8(pairText_), true);
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, printable(genericOf(pairFile())) + L" cannot be written" + reasonOf(error)};
  }
}

void WorkFolder::prepareLog() const {
  try {
    prepareLogFolder(root_ / "log");
  } catch (const fs::filesystem_error& error) {
    throw Failure{Exit::failed, L"the log cannot be set up in " + printable(log()) + reasonOf(error)};
  }
}

}  // namespace host
}  // namespace Kelta
