// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <kelsyncpair/kelsyncpair.h>

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Lists.h"

namespace Kelta {
namespace host {

/// What a host knows about one pair.
struct EngineSettings {
  std::wstring inside;
  std::wstring outside;
  std::wstring state;
  std::wstring temp;
  std::wstring log;
  bool compress = false;
};

/// Receives what a cycle does, entry by entry.
class EntryListener {
public:
  virtual ~EntryListener() = default;
  virtual void entry(const std::wstring& operation, const std::wstring& path, std::uint64_t done,
                     std::uint64_t total) = 0;
};

/// One engine of the library. A request of the user to stop (Ctrl-C) ends its commands early.
class Engine {
public:
  /// Throws Failure when memory ran out.
  explicit Engine(const EngineSettings& settings);
  /// One that only lists and clears the quarantine records of a state folder; nothing else is touched.
  Engine(const std::wstring& state, const std::wstring& log);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  void setKey(const std::wstring& assetId, const wchar_t* key);
  /// `listener` is the caller's and outlives the engine.
  void setListener(EntryListener& listener);
  /// Reads the state. Quarantine records of paths are cleared: the scan of this run makes those that still hold.
  /// Those of missing keys stay while their archive does.
  void initState();
  /// Reads the state alone.
  void loadState();
  /// False when the Outside holds archives of the asset and the key that was set opens none of them.
  bool keyFits(const std::wstring& assetId);
  /// Brings every archive of the asset under the new key. False when some are left.
  bool changeKey(const std::wstring& assetId, const wchar_t* newKey);
  /// Tries every archive. False when some do not open.
  bool verifyArchives();
  void setNames(bool encrypted);
  /// How much of the pauses within scans is kept, in percent.
  void setPace(int percent);
  /// Brings the names of all archives in line; false when some keep theirs.
  bool resetNames();
  /// Between the sides, a full path or a last component; empty when it cannot be told.
  std::wstring encryptedName(const std::wstring& plain);
  std::wstring plainName(const std::wstring& archive);
  /// What the archive of a file may be called, in the folder in which the progress tells of the file.
  std::vector<std::wstring> archivesOf(const std::wstring& file);
  /// Runs one cycle.
  void cycle();
  /// The same in steps: both scans, then what they found is carried over, or forgotten.
  void scanInside();
  void scanOutside();
  void carryOver();
  void dropScans();
  /// Runs one cycle for some folders of either side. Throws Failure when memory ran out.
  void subCycle(const std::set<std::wstring>& folders);
  /// Makes a running command return early. Any thread.
  void interrupt();
  /// How long to wait between two cycles.
  std::chrono::seconds pauseBetweenCycles();
  bool ok() const;
  bool stopAsked() const;

  /// What the engine has to tell since the last call.
  std::vector<Notification> takeNotifications();
  /// All notifications taken so far, as a JSON text of the library's form.
  std::wstring notificationsText() const { return L"{\"notifications\":[" + taken_ + L"]}"; }
  bool toldAnything() const { return !taken_.empty(); }
  /// Leaves those taken so far out of notificationsText().
  void forgetTaken() { taken_.clear(); }
  /// What is not synchronised.
  std::vector<Quarantined> quarantined();
  /// The same as the library hands it out.
  std::wstring quarantineText();
  /// What is left for later, as the library hands it out. Between commands.
  std::wstring waitingText();
  void clearRecord(const Quarantined& record);

private:
  void start(const std::wstring& state, const std::wstring& log);
  void clearOldRecords();

  kelsync_pair* handle_ = nullptr;
  std::wstring taken_;  ///< the members of the notifications' list
};

}  // namespace host
}  // namespace Kelta
