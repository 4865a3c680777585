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

const std::wstring kCopyFailed = L"Could not copy ";

/// Whether the engine's `file`, a last component, is the one that is shown as `name`.
bool isNameOf(const std::wstring& name, const std::wstring& file) {
  const std::wstring last = name.substr(name.rfind(L'/') + 1);
  return file == last || file == last + L".kelta";
}

bool writesFile(const std::wstring& operation) { return operation == L"encrypt" || operation == L"decrypt"; }

}  // namespace

void Report::beginCycle() {
  ++cycles_;
  dealtWith_ = 0;
  largestTotal_ = 0;
  progressed_ = false;
  failed_.clear();
}

void Report::entry(const std::wstring& operation, const std::wstring& path, std::uint64_t done, std::uint64_t total) {
  const std::wstring name = operation == L"folder" ? pair_.shown(path, true) : pair_.shown(path, plainName_);
  // A file that waits was not dealt with: it alone is no reason for another cycle.
  if (operation == L"changing") return quiet_ ? void() : showEntry(L"waiting", name, done, total);
  ++dealtWith_;
  if (operation == L"failed") {
    failed_.push_back({name, std::wstring(), false});
  } else {
    if (operation == L"conflict") conflictCopies_.push_back(name);
    ++totals_[operation];
    if (++carried_[name] <= kOftenEnough) progressed_ = true;
  }
  if (writesFile(operation)) bytes_ += platform::stampOf(platform::pathOf(path)).size;
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

void Report::error(const std::wstring& message) {
  ++errors_;
  complain(printable(message));
}

void Report::explain(const std::wstring& message, const std::wstring& reason) {
  if (message.compare(0, kCopyFailed.size(), kCopyFailed) != 0) return;
  const std::wstring file = message.substr(kCopyFailed.size());
  // Files of the same name are told apart by their order, which is that of the entries.
  const auto entry = std::find_if(failed_.begin(), failed_.end(), [&](const Failed& failed) {
    return !failed.explained && isNameOf(failed.name, file);
  });
  if (entry == failed_.end()) return;
  entry->reason = reason;
  entry->explained = true;
  // One notification may stand for several that say the same.
  for (Failed& other : failed_) {
    if (other.reason.empty() && isNameOf(other.name, file)) other.reason = reason;
  }
}

void Report::setQuarantined(std::vector<Quarantined> entries) {
  quarantined_ = std::move(entries);
  const auto isQuarantined = [this](const Failed& failed) {
    return std::any_of(quarantined_.begin(), quarantined_.end(),
                       [&](const Quarantined& entry) { return pair_.shown(entry.path, false) == failed.name; });
  };
  failed_.erase(std::remove_if(failed_.begin(), failed_.end(), isQuarantined), failed_.end());
}

// A file and its archive are one to the user.
void Report::setWaiting(const std::vector<Waiting>& entries) {
  waiting_.clear();
  std::set<std::pair<std::wstring, std::wstring>> named;
  for (const Waiting& entry : entries)
    if (named.emplace(pair_.shown(entry.path, plainName_), entry.reason).second) waiting_.push_back(entry);
}

bool Report::waits() const {
  return std::any_of(waiting_.begin(), waiting_.end(), [](const Waiting& entry) { return entry.isUnsynchronised(); });
}

void Report::listFailures() const {
  for (const std::wstring& name : conflictCopies_) say(L"conflict copy made: " + printable(name));
  for (const Failed& failed : failed_) {
    const std::wstring reason = failed.reason.empty() ? std::wstring() : L": " + printable(failed.reason);
    say(L"not synchronised: " + printable(failed.name) + reason);
  }
  for (const Quarantined& entry : quarantined_) {
    say(L"quarantined: " + printable(pair_.shown(entry.path, false)) + L": " + printable(entry.message));
  }
  for (const Waiting& entry : waiting_) {
    say(L"left for later: " + printable(pair_.shown(entry.path, plainName_)) + L": " + printable(entry.explained()));
  }
}

void Report::summary(const std::wstring& keySource, const std::wstring& logFolder) const {
  const auto count = [this](const wchar_t* operation) {
    const auto found = totals_.find(operation);
    return std::to_wstring(found == totals_.end() ? 0 : found->second);
  };
  listFailures();
  const std::wstring waiting = waiting_.empty() ? L"" : L", left for later " + std::to_wstring(waiting_.size());
  const std::wstring renamed = totals_.count(L"rename") > 0 ? L", renamed " + count(L"rename") : std::wstring();
  say(L"encrypted " + count(L"encrypt") + L", decrypted " + count(L"decrypt") + L", folders " + count(L"folder") +
      renamed + L", deleted " + count(L"delete") + L", failed " + std::to_wstring(failed_.size()) + L", quarantined " +
      std::to_wstring(quarantined_.size()) + waiting);
  say(L"written " + std::to_wstring(bytes_) + L" bytes in " + secondsText(std::chrono::steady_clock::now() - start_) +
      L" seconds, " + std::to_wstring(cycles_) + (cycles_ == 1 ? L" cycle" : L" cycles"));
  say(L"key: " + keySource);
  say(L"log: " + printable(logFolder) + L"/syncpair.log" + (failures() ? L" (tells more about what failed)" : L""));
}

}  // namespace host
}  // namespace Kelta
