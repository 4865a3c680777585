// SPDX-License-Identifier: Apache-2.0
#include "api/Guard.h"

#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace api {
namespace {

void logLine(const void* h, log4cplus::LogLevel level, const char* function, const char* what) {
  try {
    log::write(log::syncPair(), level, {__FILE__, __LINE__, function, h}, "%s", what);
  } catch (...) {  // there is nothing left to tell it to
  }
}

}  // namespace

CryptoSyncCopyHandler* handlerOf(SyncPair& pair) { return static_cast<CryptoSyncCopyHandler*>(pair.handler()); }

std::wstring quarFolderOf(const SyncPair& pair) {
  return pair.stateFolder().empty() ? std::wstring() : pair.stateFolder() + L"\\quar\\";
}

void logFailure(const void* h, const char* function, const char* what) {
  logLine(h, log4cplus::ERROR_LOG_LEVEL, function, what);
}

void commandInterrupted(SyncPair& pair, const char* function) {
  logLine(&pair, log4cplus::INFO_LOG_LEVEL, function, "interrupted");
  pair.endCycle();
}

void commandFailed(SyncPair& pair, const char* function, const char* what) {
  logLine(&pair, log4cplus::ERROR_LOG_LEVEL, function, what);
  pair.endCycle();
  pair.notify(L"ERROR", L"A command was not finished, check logs");
}

}  // namespace api
}  // namespace Kelta
