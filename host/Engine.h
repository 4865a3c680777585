// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <kelsyncpair/kelsyncpair.h>

#include <cstdint>
#include <string>
#include <vector>

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

struct Notification {
  std::wstring type;
  std::wstring message;
  std::wstring more;  ///< a reason; often empty
};

struct Quarantined {
  std::wstring record;
  std::wstring errorId;
  std::wstring path;
  std::wstring message;
  std::wstring time;  ///< UTC, ISO 8601
};

/// The notifications of a JSON text as the library hands it out. Throws Failure when it cannot be read.
std::vector<Notification> notificationsOf(const std::wstring& text);

/// Receives what a cycle does, entry by entry.
class EntryListener {
public:
  virtual ~EntryListener() = default;
  virtual void entry(const std::wstring& operation, const std::wstring& path, std::uint64_t done,
                     std::uint64_t total) = 0;
};

/// One engine of the library, with a request of the user to stop (Ctrl-C) bound to it. One at a time.
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
  /// Runs one cycle, which a request to stop ends early.
  void cycle();
  bool ok() const;
  bool stopAsked() const;

  /// What the engine has to tell since the last call.
  std::vector<Notification> takeNotifications();
  /// All notifications taken so far, as a JSON text of the library's form.
  std::wstring notificationsText() const { return L"{\"notifications\":[" + taken_ + L"]}"; }
  /// What is not synchronised.
  std::vector<Quarantined> quarantined();
  /// The same as the library hands it out.
  std::wstring quarantineText();
  void clearRecord(const Quarantined& record);

private:
  void start(const std::wstring& state, const std::wstring& log);
  void clearOldRecords();

  kelsync_pair* handle_ = nullptr;
  std::wstring taken_;  ///< the members of the notifications' list
};

}  // namespace host
}  // namespace Kelta
