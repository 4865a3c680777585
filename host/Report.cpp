// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <algorithm>
#include <set>
#include <utility>

#include "Terminal.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

// An entry that is carried over in this many cycles changes faster than it is synchronised.
constexpr int kOftenEnough = 3;

std::wstring padded(const std::wstring& text, std::size_t width, bool left) {
  const std::wstring space(text.size() < width ? width - text.size() : 0, L' ');
  return left ? space + text : text + space;
}

std::wstring secondsText(std::chrono::steady_clock::duration duration) {
  const auto tenths = std::chrono::duration_cast<std::chrono::milliseconds>(duration).count() / 100;
  return std::to_wstring(tenths / 10) + L"." + std::to_wstring(tenths % 10);
}

bool writesFile(const std::wstring& operation) { return operation == L"encrypt" || operation == L"decrypt"; }

}  // namespace

void Report::beginCycle() {
  ++cycles_;
  dealtWith_ = 0;
  largestTotal_ = 0;
  progressed_ = false;
  errors_ = 0;
  failures_.beginCycle();
}

void Report::endCycle(bool whole) {
  const std::set<std::wstring> nothing;
  failures_.endCycle(whole ? nullptr : &nothing);
}

std::wstring Report::shown(const std::wstring& path) const {
  return pair_.shown(path, [this](const std::wstring& archive) { return engine_->plainName(archive); });
}

// Of an archive, under either of its names.
std::uint64_t Report::bytesOf(const std::wstring& path) const {
  std::uint64_t bytes = platform::stampOf(platform::pathOf(path)).size;
  if (!isWithin(path, pair_.outside) || engine_ == nullptr) return bytes;
  for (const std::wstring& archive : engine_->archivesOf(path))
    bytes = std::max(bytes, platform::stampOf(platform::pathOf(archive)).size);
  return bytes;
}

void Report::entry(const std::wstring& operation, const std::wstring& path, std::uint64_t done, std::uint64_t total) {
  const std::wstring name = pair_.shown(path, true);
  // A file that waits was not dealt with: it alone is no reason for another cycle.
  if (operation == L"changing") return quiet_ ? void() : showEntry(L"waiting", name, done, total);
  ++dealtWith_;
  if (operation == L"failed") {
    failures_.failed(genericOf(platform::pathOf(path)), name);
  } else {
    failures_.carried(name);
    if (operation == L"conflict") conflictCopies_.push_back(name);
    ++totals_[operation];
    if (++carried_[name] <= kOftenEnough) progressed_ = true;
  }
  if (writesFile(operation)) bytes_ += bytesOf(path);
  if (!quiet_) showEntry(operation, name, done, total);
}

void Report::showEntry(const std::wstring& operation, const std::wstring& name, std::uint64_t done,
                       std::uint64_t total) {
  largestTotal_ = std::max(largestTotal_, total);
  const std::wstring of = std::to_wstring(largestTotal_);
  const std::wstring verb = operation == L"failed" ? L"FAILED" : operation;
  say(L"[" + padded(std::to_wstring(done), of.size(), true) + L"/" + of + L"] " + padded(verb, 7, false) + L"  " +
      printable(name));
}

void Report::notified(const Notification& told) {
  failures_.explain(told);
  if (isAboutLoser(told)) losers_.push_back(told.message);
  if (told.type != L"ERROR") return;
  ++(cycles_ == 0 ? startErrors_ : errors_);
  complain(printable(told.message));
}

void Report::setQuarantined(std::vector<Quarantined> entries) {
  quarantined_ = std::move(entries);
  for (const Quarantined& entry : quarantined_) quarantinedNames_.insert(shown(entry.path));
}

std::size_t Report::failed() const {
  const std::vector<Failed>& list = failures_.ofCycle();
  return static_cast<std::size_t>(std::count_if(
      list.begin(), list.end(), [this](const Failed& entry) { return quarantinedNames_.count(entry.name) == 0; }));
}

bool Report::mayNeedOtherKey() const {
  const std::vector<Failed>& list = failures_.ofCycle();
  return std::any_of(list.begin(), list.end(), isAboutKey);
}

void Report::setWaiting(const std::vector<Waiting>& entries) {
  waiting_ = onePerFile(entries, [this](const std::wstring& path) { return shown(path); });
}

bool Report::waits() const {
  return std::any_of(waiting_.begin(), waiting_.end(), [](const Waiting& entry) { return entry.isUnsynchronised(); });
}

void Report::listFailures() const {
  for (const std::wstring& name : conflictCopies_) say(L"conflict copy made: " + printable(name));
  for (const std::wstring& message : losers_) say(printable(message));
  for (const Failed& entry : failures_.ofCycle()) {
    if (quarantinedNames_.count(entry.name) > 0) continue;
    say(L"not synchronised: " + printable(entry.name) + L": " + printable(entry.reason));
  }
  for (const Quarantined& entry : quarantined_) {
    say(L"quarantined: " + printable(shown(entry.path)) + L": " + printable(entry.message));
  }
  for (const Waiting& entry : waiting_) {
    const std::wstring heading = entry.hasFutureTime() ? L"last-write time in the future: " : L"left for later: ";
    say(heading + printable(entry.name) + L": " + printable(entry.explained()));
  }
}

void Report::summary(const std::wstring& keySource, const std::wstring& logFolder) const {
  const auto count = [this](const wchar_t* operation) {
    const auto found = totals_.find(operation);
    return std::to_wstring(found == totals_.end() ? 0 : found->second);
  };
  listFailures();
  const std::size_t later = leftForLater(waiting_);
  const std::wstring waiting = later == 0 ? L"" : L", left for later " + std::to_wstring(later);
  const std::wstring renamed = totals_.count(L"rename") > 0 ? L", renamed " + count(L"rename") : std::wstring();
  say(L"encrypted " + count(L"encrypt") + L", decrypted " + count(L"decrypt") + L", folders " + count(L"folder") +
      renamed + L", deleted " + count(L"delete") + L", failed " + std::to_wstring(failed()) + L", quarantined " +
      std::to_wstring(quarantined_.size()) + waiting);
  say(L"written " + std::to_wstring(bytes_) + L" bytes in " + secondsText(std::chrono::steady_clock::now() - start_) +
      L" seconds, " + std::to_wstring(cycles_) + (cycles_ == 1 ? L" cycle" : L" cycles"));
  say(L"key: " + keySource);
  say(L"log: " + printable(logFolder) + L"/syncpair.log" + (failures() ? L" (tells more about what failed)" : L""));
}

}  // namespace host
}  // namespace Kelta
