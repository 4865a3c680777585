// SPDX-License-Identifier: Apache-2.0
#include "api/Guard.h"
#include "base/GenericPath.h"
#include "base/HostBlock.h"

using namespace Kelta;
using namespace Kelta::api;

namespace {

// Hands a text out in a block for the host.
template <class Text>
std::uint32_t handOut(kelsync_pair* h, const char* function, wchar_t** out, Text text) {
  if (!out) return 0;
  *out = nullptr;
  if (!h) return 0;
  return guarded(h, function, std::uint32_t{0}, [&] {
    const std::wstring json = text(*pairOf(h));
    *out = hostBlock(json);
    return *out ? static_cast<std::uint32_t>(json.size()) : 0;
  });
}

// What fn_encrypt() and fn_decrypt() take: a full path in its one spelling, or a last component alone.
std::wstring namedBy(const wchar_t* path) {
  const std::wstring name = path ? genericForm(path) : std::wstring();
  std::wstring full;
  if (parentOf(name).empty()) return name;
  return canonicalForm(name, full) ? full : std::wstring();
}

}  // namespace

extern "C" {

uint32_t kelsync_get_notifications_JSON(kelsync_pair* h, wchar_t** out) {
  return handOut(h, __func__, out, [](SyncPair& pair) { return pair.notificationsAsJSON(); });
}

uint32_t kelsync_get_waiting_JSON(kelsync_pair* h, wchar_t** out) {
  return handOut(h, __func__, out, [](SyncPair& pair) { return pair.waiting().asJSON(); });
}

void kelsync_clear_notifications(kelsync_pair* h) {
  configure(h, __func__, true, [](SyncPair& pair, CryptoSyncCopyHandler&) { pair.clearNotifications(); });
}

uint32_t kelsync_quarantine_get_JSON(kelsync_pair* h, wchar_t** out) {
  return handOut(h, __func__, out, [](SyncPair& pair) {
    CryptoSyncCopyHandler* const handler = handlerOf(pair);
    return handler ? handler->getQuarantineAsJSON() : std::wstring(L"{\"quarantined\":[]}");
  });
}

uint32_t fn_encrypt(kelsync_pair* h, const wchar_t* path, wchar_t** out) {
  return handOut(h, __func__, out, [&](SyncPair& pair) {
    CryptoSyncCopyHandler* const handler = handlerOf(pair);
    return handler ? handler->encryptFilename(namedBy(path)) : std::wstring();
  });
}

uint32_t fn_decrypt(kelsync_pair* h, const wchar_t* path, wchar_t** out) {
  return handOut(h, __func__, out, [&](SyncPair& pair) {
    CryptoSyncCopyHandler* const handler = handlerOf(pair);
    return handler ? handler->untransformName(namedBy(path)) : std::wstring();
  });
}

int kelsync_quarantine_get_last_update(kelsync_pair* h) {
  int value = 0;
  configure(h, __func__, true,
            [&](SyncPair&, CryptoSyncCopyHandler& handler) { value = handler.quarantineLastUpdate(); });
  return value;
}

void kelsync_quarantine_clear_rec(kelsync_pair* h, const wchar_t* record) {
  configure(h, __func__, record != nullptr,
            [&](SyncPair&, CryptoSyncCopyHandler& handler) { handler.clearQuarantineRecord(record); });
}

}  // extern "C"
