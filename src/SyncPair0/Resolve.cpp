// SPDX-License-Identifier: Apache-2.0
// Turns the two sync lists into file operations. Additions and updates go first, folders before what is in them;
// deletions go last and backwards, so that a folder's content goes before the folder.
#include "SyncPair0/SyncPair.h"
#include "base/GenericPath.h"
#include "base/Log.h"

namespace Kelta {
namespace {

std::vector<std::wstring> resolvingOrder(const SyncList& list) {
  std::vector<std::wstring> keys;
  for (const auto& entry : list) {
    if (!entry.second.deletion) keys.push_back(entry.first);
  }
  for (auto entry = list.rbegin(); entry != list.rend(); ++entry) {
    if (entry->second.deletion) keys.push_back(entry->first);
  }
  return keys;
}

}  // namespace

void SyncPair::syncChanges() {
  if (!ok_) {
    PAIR_ERROR("Missing pair folder! Can't continue.");
    return;
  }
  if (!handler_) return;
  handler_->beginOperation();
  attempt_ = 1;
  retries_.clear();
  try {
    resolveSync(sourceFolder_, srcSyncList, srcStateList, destFolder_, destSyncList, destStateList);
    resolveSync(destFolder_, destSyncList, destStateList, sourceFolder_, srcSyncList, srcStateList);
    retryCopies();
    settleSpares();
    tellBusy();
    writeState();
  } catch (const boost::thread_interrupted&) {
    // What was carried over stays carried over.
    writeState();
    throw;
  } catch (const RootMissing& error) {
    PAIR_ERROR("%s", error.what());
  } catch (const std::exception& error) {
    PAIR_ERROR("%s", error.what());
    notify(L"ERROR", L"The synchronisation was not finished, check logs");
  }
}

void SyncPair::resolveSync(std::wstring folder1, SyncList& syncList1, StateList& state1, std::wstring folder2,
                           SyncList& syncList2, StateList& state2) {
  PAIR_DEBUG("================>");
  PAIR_DEBUG("syncList1.size=%lu", static_cast<unsigned long>(syncList1.size()));
  const bool inside = isSrcFolder(folder1);
  const Side one{inside, folder1, state1, syncList1};
  const Side two{!inside, folder2, state2, syncList2};
  for (const std::wstring& key : resolvingOrder(syncList1)) {
    interruption_->check();
    const auto entry = syncList1.find(key);
    if (entry == syncList1.end()) continue;
    const SyncObject so = entry->second;
    syncList1.erase(entry);
    resolveEntry(one, two, key, so);
  }
}

void SyncPair::resolveEntry(const Side& one, const Side& two, const std::wstring& key, const SyncObject& so) {
  PAIR_DEBUG_OF("resolveSync", "resolving (syncEntry, relative path): %s [%lld]", utf8(key).c_str(),
                static_cast<long long>(so.timestamp));
  if (so.fullPath.empty()) {
    PAIR_DEBUG_OF("resolveSync", "SyncObject not valid!");
    return;
  }
  const auto other = two.list.find(key);
  if (other == two.list.end()) {
    PAIR_DEBUG_OF("resolveSync", "no conflicting entry to resolve, easy sync");
    carry(decideResolution(so, nullptr), one, two, key, so, nullptr);
    return;
  }
  const SyncObject so2 = other->second;
  if (so.timestamp > so2.timestamp) PAIR_DEBUG_OF("resolveSync", "so.timestamp > so2.timestamp");
  if (so.timestamp < so2.timestamp) {
    PAIR_DEBUG_OF("resolveSync", "so.timestamp < so2.timestamp");
    PAIR_DEBUG_OF("resolveSync", "%lld < %lld", static_cast<long long>(so.timestamp),
                  static_cast<long long>(so2.timestamp));
  }
  if (so.timestamp == so2.timestamp && (so.deletion || so2.deletion))
    PAIR_DEBUG_OF("resolveSync", "%s so.deletion=%d, so2.deletion=%d", utf8(key).c_str(), so.deletion, so2.deletion);
  const bool independent = so.isFolder != so2.isFolder && so.deletion != so2.deletion;
  if (!independent) two.list.erase(other);
  carry(decideResolution(so, &so2), one, two, key, so, independent ? nullptr : &so2);
}

void SyncPair::carry(Resolution resolution, const Side& one, const Side& two, const std::wstring& key,
                     const SyncObject& so, const SyncObject* so2) {
  switch (resolution) {
    case Resolution::copyToTwo:
      return carryCopy(one, two, key, so, so2);
    case Resolution::deleteInTwo:
      return carryDeletion(one, two, key, so, so2);
    case Resolution::copyToOne:
      return carryCopy(two, one, key, *so2, &so);
    case Resolution::deleteInOne:
      return carryDeletion(two, one, key, *so2, &so);
    case Resolution::forgetBoth:
      PAIR_INFO_OF("resolveSync", "conflict deletion occurred cleaning up state: %s", utf8(key).c_str());
      forgetBoth(key, so.isFolder);
      ++successfulEvents_;
      return;
    case Resolution::compare:
      return settleTie(key, so, *so2, one);
    case Resolution::clash:
      return settleKindClash(one, two, key, so, *so2);
    case Resolution::later:
      return;
  }
}

}  // namespace Kelta
