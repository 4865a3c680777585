// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/Waiting.h"

#include <algorithm>

#include "base/JsonText.h"

namespace Kelta {
namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
constexpr std::int64_t kLongest = 60 * kMicrosecondsPerSecond;

std::wstring asObject(const std::wstring& path, const std::wstring& reason, std::int64_t seconds) {
  return L"{\"path\":\"" + jsonEscaped(path) + L"\",\"reason\":\"" + jsonEscaped(reason) + L"\",\"seconds\":" +
         std::to_wstring(seconds) + L"}";
}

}  // namespace

bool Waiting::noteChanging(const std::wstring& path) {
  const auto inserted = changing_.emplace(path, Changing{});
  Changing& entry = inserted.first->second;
  entry.distance = entry.distance == 0 ? kMicrosecondsPerSecond : std::min(entry.distance * 2, kLongest);
  entry.next = clock_->nowMicroseconds() + entry.distance;
  return inserted.second;
}

// A clock that was set back makes no wait longer than it was meant to be.
bool Waiting::isPostponed(const std::wstring& path) const {
  const auto entry = changing_.find(path);
  if (entry == changing_.end()) return false;
  const std::int64_t left = entry->second.next - clock_->nowMicroseconds();
  return left > 0 && left <= entry->second.distance;
}

bool Waiting::isAtLongest(const std::wstring& path) const {
  const auto entry = changing_.find(path);
  return entry != changing_.end() && entry->second.distance >= kLongest;
}

bool Waiting::note(const std::wstring& path, const std::wstring& reason) { return others_[path].insert(reason).second; }

bool Waiting::isNoted(const std::wstring& path, const std::wstring& reason) const {
  const auto entry = others_.find(path);
  return entry != others_.end() && entry->second.count(reason) > 0;
}

void Waiting::forget(const std::wstring& path) {
  changing_.erase(path);
  const bool ahead = isNoted(path, kFutureTime);
  others_.erase(path);
  if (ahead) note(path, kFutureTime);
}

void Waiting::forget(const std::wstring& path, const std::wstring& reason) {
  const auto entry = others_.find(path);
  if (entry == others_.end()) return;
  entry->second.erase(reason);
  if (entry->second.empty()) others_.erase(entry);
}

void Waiting::forgetIf(const std::function<bool(const std::wstring&)>& gone) {
  for (auto entry = changing_.begin(); entry != changing_.end();) {
    entry = gone(entry->first) ? changing_.erase(entry) : std::next(entry);
  }
  for (auto entry = others_.begin(); entry != others_.end();) {
    entry = gone(entry->first) ? others_.erase(entry) : std::next(entry);
  }
}

std::wstring Waiting::asJSON() const {
  std::wstring list;
  const auto add = [&](const std::wstring& object) { list += (list.empty() ? L"" : L",") + object; };
  for (const auto& entry : changing_) {
    const std::int64_t left = isPostponed(entry.first) ? entry.second.next - clock_->nowMicroseconds() : 0;
    add(asObject(entry.first, L"changing", (left + kMicrosecondsPerSecond - 1) / kMicrosecondsPerSecond));
  }
  for (const auto& entry : others_) {
    for (const std::wstring& reason : entry.second) add(asObject(entry.first, reason, 0));
  }
  return L"{\"waiting\":[" + list + L"]}";
}

}  // namespace Kelta
