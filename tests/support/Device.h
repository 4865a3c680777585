// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Content.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "SyncPair0/SyncPair.h"
#include "System.h"
#include "TempFolder.h"
#include "VirtualClock.h"
#include "base/GenericPath.h"
#include "platform/Files.h"

namespace Kelta {
namespace test {

namespace fs = boost::filesystem;

/// Times of test files count from here, so that a scenario can say "at 10".
constexpr std::int64_t kEpoch = 1600000000;

inline void put(const fs::path& file, const std::string& content, std::int64_t time) {
  fs::create_directories(file.parent_path());
  writeFile(file, content);
  platform::setLastWriteTime(file, (kEpoch + time) * 1000000000);
}

inline std::string contentOf(const fs::path& file) { return readFile(file); }

/// A tree as text, sorted: "a.txt=content@time dir/ dir/b=…", markers left out.
inline std::string treeOf(const fs::path& root) {
  std::set<std::string> lines;
  for (fs::recursive_directory_iterator it(root), end; it != end; ++it) {
    const std::string name = platform::utf8(it->path().filename());
    if (name == ".rid" || name == ".kelta") continue;
    std::ostringstream line;
    line << platform::utf8(it->path().lexically_relative(root).generic_path());
    const auto stamp = platform::stampOf(it->path());
    if (stamp.kind == platform::Kind::folder) line << '/';
    if (stamp.kind == platform::Kind::symlink) line << "->";
    if (stamp.kind == platform::Kind::file) line << '=' << contentOf(it->path()) << '@' << stamp.seconds() - kEpoch;
    lines.insert(line.str());
  }
  std::string text;
  for (const auto& line : lines) text += (text.empty() ? "" : " ") + line;
  return text;
}

inline const wchar_t* testKey() { return L"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff"; }

/// Whether devices encrypt file names unless a test says otherwise: the scenarios run both ways.
inline bool namesByDefault() { return std::getenv("KELSYNC_TEST_NAMES") != nullptr; }

/// An archive's name as "x.kelta", whatever form it has; any other name as it is.
inline std::string plainForm(const std::string& name) {
  CryptoSyncCopyHandler reader({std::make_shared<VirtualClock>(), std::make_shared<Interruption>(), {}});
  reader.setAssetKey(L"main", testKey());
  const std::wstring plain = reader.decryptFilename(platform::wideOf(pathFrom(name)));
  return plain.empty() ? name : platform::utf8(plain) + ".kelta";
}

/// The names below a folder, sorted: "a.txt.kelta dir/ …", markers left out, encrypted names in plain form.
inline std::string namesOf(const fs::path& root) {
  std::set<std::string> names;
  for (fs::recursive_directory_iterator it(root), end; it != end; ++it) {
    const std::string name = platform::utf8(it->path().filename());
    if (name == ".rid" || name == ".kelta") continue;
    const bool folder = platform::stampOf(it->path()).kind == platform::Kind::folder;
    const fs::path parent = it->path().parent_path().lexically_relative(root);
    const std::string prefix = parent == "." ? "" : platform::utf8(parent.generic_path()) + "/";
    names.insert(prefix + (namesByDefault() ? plainForm(name) : name) + (folder ? "/" : ""));
  }
  std::string text;
  for (const auto& name : names) text += (text.empty() ? "" : " ") + name;
  return text;
}

/// A text with each conflict suffix as "!".
inline std::string withShortConflicts(std::string text) {
  for (std::size_t end = text.find(".kelta_conflict"); end != std::string::npos; end = text.find(".kelta_conflict")) {
    const std::size_t start = end - std::string(".20240501-101500-12ab").size();
    text.replace(start, end + std::string(".kelta_conflict").size() - start, "!");
  }
  return text;
}

/// One computer: an Inside and a work folder of its own, an Outside that it shares with others.
class Device {
public:
  Device(const fs::path& home, const fs::path& outside,
         std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>())
      : home_(home), outside_(outside), clock_(std::move(clock)), bin_(home) {
    fs::create_directories(inside());
    fs::create_directories(outside);
    start();
  }

  /// A new engine on the same folders, as after a restart of the host.
  void start() {
    pair_.reset();
    pair_ = std::make_unique<SyncPair>(clock_);
    SyncPair* const queue = pair_.get();
    EngineServices services;
    services.clock = clock_;
    services.interruption = pair_->interruption();
    services.notify = [queue](const std::wstring& type, const std::wstring& message, const std::wstring& more) {
      queue->notify(type, message, more);
    };
    services.keyArrived = [queue](const std::vector<std::wstring>& archives) { queue->keyArrived(archives); };
    services.notifyDone = [queue](const std::wstring& message) { queue->notifyDone(message); };
    services.shareWaits = [queue](const std::wstring& path, bool waits) { queue->noteShareWaits(path, waits); };
    handler_ = new CryptoSyncCopyHandler(services);
    pair_->setSyncCopyHandler(handler_);
    const auto wide = [](const fs::path& path) { return platform::wideOf(path); };
    pair_->setSourceFolder(wide(inside()));
    handler_->setInsideFolder(wide(inside()));
    pair_->setDestFolder(wide(outside_));
    handler_->setOutsideFolder(wide(outside_));
    pair_->setTempFolder(wide(temp()));
    handler_->setTempFolder(wide(temp()));
    pair_->setStatePath(wide(state()));
    handler_->setQuarFolder(wide(state() / "quar"));
    handler_->setStateFolder(wide(state()));
    handler_->setAssetKey(L"main", testKey());
    handler_->setFNE(names_);
    handler_->sweepTempFolder();
    pair_->setProgress([this](const std::wstring& operation, const std::wstring& path, std::uint64_t, std::uint64_t) {
      const std::string name = platform::utf8(platform::pathOf(path).filename());
      events_ += (events_.empty() ? "" : " ") + platform::utf8(operation) + ":" + (names_ ? plainForm(name) : name);
    });
    pair_->initState();
  }

  /// One cycle; what it told the host: "encrypt:a.txt.kelta delete:b …".
  std::string cycle() {
    events_.clear();
    pair_->syncCycle();
    return events_;
  }

  bool changeKey(const std::wstring& key) {
    return pair_->rewrapArchives([&](const SyncPair::Progress& progress, const SyncPair::Renamed& renamed) {
      return handler_->changeAssetKey(L"main", key, progress, renamed);
    });
  }
  /// Encrypted names on or off, from now on.
  void setNames(bool on) { handler_->setFNE(names_ = on); }
  bool resetNames() {
    return pair_->renameArchives([&](const SyncPair::Renamed& renamed) { return handler_->resetStateFNE(renamed); });
  }
  /// The archive of "x" for the entry "x.kelta" of the Outside, under the name it has; any other entry as it is.
  fs::path archive(const fs::path& entry) {
    const std::wstring plain = genericForm(platform::wideOf((outside_ / entry).replace_extension()));
    if (!names_ || entry.extension() != ".kelta" || entry.stem().empty()) return outside_ / entry;
    const std::vector<std::wstring> names = handler_->archiveNames(plain);
    for (const std::wstring& name : names) {
      const fs::path path = platform::pathOf(plain).parent_path() / platform::pathOf(name);
      if (fs::exists(path)) return path;
    }
    return platform::pathOf(plain).parent_path() / platform::pathOf(names.front());
  }

  SyncPair& pair() { return *pair_; }
  CryptoSyncCopyHandler& handler() { return *handler_; }
  VirtualClock& clock() { return *clock_; }
  fs::path inside() const { return (home_ / "inside").generic_path(); }
  fs::path outside() const { return outside_; }
  fs::path temp() const { return (home_ / "temp").generic_path(); }
  fs::path state() const { return (home_ / "state").generic_path(); }
  const RecycleBin& bin() const { return bin_; }
  std::string tree() const { return treeOf(inside()); }
  std::string notifications() const { return platform::utf8(pair_->notificationsAsJSON()); }
  /// What is left in the Temp folder; it must be nothing.
  std::string leftovers() const { return fs::exists(temp()) ? namesOf(temp()) : ""; }

private:
  fs::path home_;
  fs::path outside_;
  std::shared_ptr<VirtualClock> clock_;
  RecycleBin bin_;
  std::unique_ptr<SyncPair> pair_;
  CryptoSyncCopyHandler* handler_ = nullptr;
  bool names_ = namesByDefault();
  std::string events_;
};

}  // namespace test
}  // namespace Kelta
