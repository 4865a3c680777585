// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/thread/exceptions.hpp>
#include <exception>

#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "SyncPair0/SyncPair.h"
#include "kelsyncpair/kelsyncpair.h"

namespace Kelta {
namespace api {

inline SyncPair* pairOf(kelsync_pair* h) { return reinterpret_cast<SyncPair*>(h); }

/// The handler of a pair made by kelsync_init(); null when it has none.
CryptoSyncCopyHandler* handlerOf(SyncPair& pair);

/// Where the quarantine records of a pair lie.
std::wstring quarFolderOf(const SyncPair& pair);

/// What a command left with; each is logged and, where the host must know, queued.
void commandInterrupted(SyncPair& pair, const char* function);
void commandFailed(SyncPair& pair, const char* function, const char* what);
void logFailure(const void* h, const char* function, const char* what);

/// Brackets a command for kelsync_interrupt().
class CommandScope {
public:
  explicit CommandScope(SyncPair& pair) : interruption_(pair.interruption()) { interruption_->begin(); }
  ~CommandScope() { interruption_->end(); }
  CommandScope(const CommandScope&) = delete;
  CommandScope& operator=(const CommandScope&) = delete;

private:
  std::shared_ptr<Interruption> interruption_;
};

/// Runs the body of an export. No exception leaves it: `fallback` is returned instead.
template <class Result, class Body>
Result guarded(const void* h, const char* function, Result fallback, Body body) {
  try {
    return body();
  } catch (const std::exception& error) {
    logFailure(h, function, error.what());
  } catch (...) {
    logFailure(h, function, "unknown exception");
  }
  return fallback;
}

/// Runs `body(pair)` as a command that the host may interrupt.
template <class Body>
void command(kelsync_pair* h, const char* function, Body body) {
  guarded(h, function, 0, [&] {
    if (!h) {
      logFailure(h, function, "null handle");
      return 0;
    }
    SyncPair& pair = *pairOf(h);
    const CommandScope scope(pair);
    try {
      body(pair);
    } catch (const boost::thread_interrupted&) {
      commandInterrupted(pair, function);
    } catch (const RootMissing& error) {
      logFailure(h, function, error.what());
    } catch (const std::exception& error) {
      commandFailed(pair, function, error.what());
    }
    return 0;
  });
}

/// Runs `body(pair, handler)` for a configuration call; null arguments are refused with a log line.
template <class Body>
void configure(kelsync_pair* h, const char* function, bool argumentsThere, Body body) {
  guarded(h, function, 0, [&] {
    if (!h || !argumentsThere) {
      logFailure(h, function, h ? "null argument" : "null handle");
      return 0;
    }
    SyncPair& pair = *pairOf(h);
    CryptoSyncCopyHandler* const handler = handlerOf(pair);
    if (handler) body(pair, *handler);
    return 0;
  });
}

}  // namespace api
}  // namespace Kelta
