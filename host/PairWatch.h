// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "Changes.h"
#include "Failures.h"
#include "OwnWrites.h"
#include "PairSetup.h"
#include "StatusBoard.h"

namespace Kelta {
namespace host {

/// Keeps one pair in step until the user stops it: a sub-folder cycle for what the watcher saw, a full one at the
/// start, when the watcher lost track, and now and then. All but the constructor runs on one thread.
class PairWatch : public EntryListener {
public:
  /// `setup` and `board` are the caller's. `log` takes the log of the process.
  PairWatch(const PairSetup& setup, StatusBoard& board, std::size_t number, std::wstring log);

  /// Returns when the user stops it. A folder of the pair that goes missing is waited for. Throws Failure (noKey).
  void run();
  void entry(const std::wstring& operation, const std::wstring& path, std::uint64_t done, std::uint64_t total) override;

private:
  using Moment = Changes::Moment;

  /// A file that the engine leaves for later.
  struct Wait {
    Moment due;
    std::chrono::seconds pause;
  };

  void runUntilMissing();
  void tellIncomplete(const Changes& changes);
  void takeDue();
  Moment nextDue() const;
  void takeChanges(Changes& changes);
  bool waitsStill(const std::wstring& path) const;
  void needFull(bool hurried);
  bool scan();
  void fullCycle(Changes& changes);
  void subCycle();
  void beginCycle(StatusBoard::State state);
  /// `scanned`: the folders of a sub-folder cycle; null for a full one.
  void endCycle(const std::set<std::wstring>* scanned);
  void tellFailures(const std::vector<Failed>& fresh);
  /// Tells of the records that are new.
  void tellQuarantined();
  void planRetry();
  void planWaits(const std::vector<Waiting>& entries);
  /// For "kelsync status".
  void keepLists(const std::vector<Waiting>& entries);
  void showErrors();
  std::wstring shown(const std::wstring& path);
  void tellWhetherBack();
  void noticed(const std::wstring& path);
  void setInterruptible(bool interruptible);
  bool interrupted();

  const PairSetup& setup_;
  StatusBoard& board_;
  const std::size_t number_;
  const std::wstring log_;

  Engine* engine_ = nullptr;
  OwnWrites own_;
  std::set<std::wstring> folders_;  ///< to be scanned by the next sub-folder cycle
  std::set<std::wstring> retried_;  ///< folders of entries that failed, for later
  std::chrono::seconds retryPause_{0};
  Moment retryDue_ = Moment::max();
  std::map<std::wstring, Wait> waits_;  ///< by path
  std::wstring keptWaiting_;            ///< what the work folder has of them
  std::wstring keptFailed_;
  bool keepingFails_ = false;  ///< which the user has been told
  bool toldIncomplete_ = false;
  bool toldOfKey_ = false;
  bool missing_ = false;  ///< which the user has been told
  bool whole_ = false;    ///< a full cycle came to its end in this run
  Moment fullDue_;
  std::size_t carried_ = 0;             ///< in the latest cycle
  Failures failures_;                   ///< those that last the user has seen
  std::set<std::wstring> quarantined_;  ///< records, which the user has seen
  bool hurried_ = true;                 ///< somebody may wait for the next full cycle
  int interruptions_ = 0;               ///< of full cycles, since the latest whole one

  std::mutex interruptMutex_;  ///< guards what follows, which the watcher's threads use
  bool interruptible_ = false;
  bool interrupted_ = false;
};

}  // namespace host
}  // namespace Kelta
