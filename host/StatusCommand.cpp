// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <memory>

#include "Commands.h"
#include "Engine.h"
#include "Options.h"
#include "PairFolders.h"
#include "Terminal.h"
#include "WorkFolder.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

/// The records of a pair; none when it was never synchronised.
class Records {
public:
  explicit Records(const WorkFolder& work) {
    if (work.hasRecords()) engine_ = std::make_unique<Engine>(work.state(), work.log());
  }
  std::wstring text() { return engine_ ? engine_->quarantineText() : L"{\"quarantined\":[]}"; }
  std::vector<Quarantined> list() { return engine_ ? engine_->quarantined() : std::vector<Quarantined>(); }
  void clear(const Quarantined& record) { engine_->clearRecord(record); }

private:
  std::unique_ptr<Engine> engine_;
};

/// What the last run left, when that is what it wrote.
std::wstring notificationsIn(const WorkFolder& work) {
  const std::wstring start = L"{\"notifications\":[";
  const std::wstring text = work.notifications();
  try {
    notificationsOf(text);
    if (text.compare(0, start.size(), start) == 0) return text;
  } catch (const Failure&) {
  }
  complain(L"the notifications of the last run are damaged and left out");
  return start + L"]}";
}

std::wstring padded(const std::wstring& text, std::size_t width) {
  return text + std::wstring(text.size() < width ? width - text.size() : 0, L' ');
}

void showQuarantined(const PairFolders& pair, const std::vector<Quarantined>& records) {
  say(L"quarantined: " + std::to_wstring(records.size()));
  for (const Quarantined& record : records) {
    say(L"  " + padded(printable(record.time), 20) + L"  " + padded(printable(record.errorId), 10) + L"  " +
        printable(pair.shown(record.path, false)) + L": " + printable(record.message));
  }
}

void showNotifications(const std::vector<Notification>& notifications) {
  say(L"notifications of the last run: " + std::to_wstring(notifications.size()));
  for (const Notification& notification : notifications) {
    const std::wstring more = notification.more.empty() ? std::wstring() : L": " + printable(notification.more);
    say(L"  " + padded(printable(notification.type), 5) + L"  " + printable(notification.message) + more);
  }
}

bool names(const PairFolders& pair, const Quarantined& record, const std::wstring& text) {
  const std::wstring full = genericOf(absoluteOf(text));
  return platform::samePath(record.path, full) || pair.shown(record.path, false) == text;
}

PairFolders pairOf(const Options& options) {
  const std::wstring inside = options.required(L"--inside");
  return PairFolders(inside, options.required(L"--outside"));
}

}  // namespace

Exit statusCommand(const Arguments& arguments) {
  const Options options(
      arguments,
      {{L"--inside", L"", true}, {L"--outside", L"", true}, {L"--work", L"", true}, {L"--json", L"", false}});
  options.refuseOperands();
  const PairFolders pair = pairOf(options);
  const WorkFolder work(options.value(L"--work"), pair);
  work.refuseOtherPair();
  Records records(work);
  const std::wstring notifications = notificationsIn(work);
  if (!options.has(L"--json")) {
    showQuarantined(pair, records.list());
    showNotifications(notificationsOf(notifications));
    return Exit::done;
  }
  say(records.text());
  say(notifications);
  return Exit::done;
}

Exit quarantineCommand(const Arguments& arguments) {
  const Options options(arguments, {{L"--inside", L"", true}, {L"--outside", L"", true}, {L"--work", L"", true}});
  std::vector<std::wstring> paths = options.operands();
  if (paths.empty() || paths.front() != L"clear") throw Failure{Exit::usage, L"what to do is missing: clear"};
  paths.erase(paths.begin());
  const PairFolders pair = pairOf(options);
  WorkFolder work(options.value(L"--work"), pair);
  if (work.hasRecords()) work.open();
  Records records(work);
  const std::vector<Quarantined> list = records.list();
  Exit result = Exit::done;
  for (const std::wstring& path : paths) {
    const auto named = [&](const Quarantined& record) { return names(pair, record, path); };
    if (std::any_of(list.begin(), list.end(), named)) continue;
    complain(printable(path) + L": not quarantined");
    result = Exit::failed;
  }
  std::size_t cleared = 0;
  for (const Quarantined& record : list) {
    const auto isMeant = [&](const std::wstring& path) { return names(pair, record, path); };
    if (!paths.empty() && std::none_of(paths.begin(), paths.end(), isMeant)) continue;
    records.clear(record);
    ++cleared;
  }
  const std::size_t left = records.list().size();
  say(L"cleared " + std::to_wstring(list.size() - left) + L", left " + std::to_wstring(left));
  return left + cleared == list.size() ? result : Exit::failed;
}

}  // namespace host
}  // namespace Kelta
