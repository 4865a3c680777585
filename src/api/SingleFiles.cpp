// SPDX-License-Identifier: Apache-2.0
#include "api/Guard.h"
#include "base/GenericPath.h"
#include "platform/Text.h"

using namespace Kelta;
using namespace Kelta::api;

namespace {

using Operation = std::wstring (CryptoSyncCopyHandler::*)(boost::filesystem::path, boost::filesystem::path);

bool namesFile(const wchar_t* path) { return path && !nameOf(genericForm(path)).empty(); }

int single(kelsync_pair* h, const char* function, const wchar_t* src, const wchar_t* dst, Operation operation) {
  if (!namesFile(src) || !namesFile(dst)) {
    logFailure(h, function, "null argument, or no path of a file");
    return 0;
  }
  bool done = false;
  command(h, function, [&](SyncPair& pair) {
    const std::wstring outcome = (handlerOf(pair)->*operation)(platform::pathOf(src), platform::pathOf(dst));
    done = outcome != L"failed" && outcome != L"no-key";
    pair.tell(outcome, done ? dst : src, 1, 1);
  });
  return done ? 1 : 0;
}

}  // namespace

extern "C" {

int single_encrypt(kelsync_pair* h, const wchar_t* src, const wchar_t* dst) {
  return single(h, __func__, src, dst, &CryptoSyncCopyHandler::encryptSingle);
}

int single_decrypt(kelsync_pair* h, const wchar_t* src, const wchar_t* dst) {
  return single(h, __func__, src, dst, &CryptoSyncCopyHandler::decryptSingle);
}

int kelsync_remove_all_files(kelsync_pair* h, int side) {
  bool removed = false;
  if (side != 0 && side != 1) {
    logFailure(h, __func__, "no such side");
    return 0;
  }
  command(h, __func__, [&](SyncPair& pair) { removed = pair.removeAllFiles(side == 0); });
  return removed ? 1 : 0;
}

}  // extern "C"
