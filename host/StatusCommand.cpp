// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <set>

#include "Commands.h"
#include "Engine.h"
#include "PairSetup.h"
#include "Terminal.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

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

void showFailed(const std::vector<Failed>& entries) {
  say(L"not synchronised: " + std::to_wstring(entries.size()));
  for (const Failed& entry : entries) say(L"  " + printable(entry.name) + L": " + printable(entry.reason));
}

void showWaiting(std::vector<Waiting> entries) {
  std::stable_sort(entries.begin(), entries.end(),
                   [](const Waiting& one, const Waiting& other) { return one.reason < other.reason; });
  const auto future = std::stable_partition(entries.begin(), entries.end(),
                                            [](const Waiting& entry) { return !entry.hasFutureTime(); });
  say(L"left for later: " + std::to_wstring(future - entries.begin()));
  for (auto entry = entries.begin(); entry != future; ++entry) {
    say(L"  " + padded(printable(entry->reason), 17) + L"  " + printable(entry->name) + L": " +
        printable(entry->explained()));
  }
  if (future == entries.end()) return;
  say(L"last-write time in the future: " + std::to_wstring(entries.end() - future));
  for (auto entry = future; entry != entries.end(); ++entry)
    say(L"  " + printable(entry->name) + L": " + printable(entry->explained()));
}

// What went well stands behind what did not.
void showNotifications(std::vector<Notification> notifications) {
  std::stable_partition(notifications.begin(), notifications.end(), [](const Notification& notification) {
    return notification.type == L"ERROR" || notification.message.find(L" successfully") == std::wstring::npos;
  });
  std::vector<std::wstring> lines;
  std::set<std::wstring> shown;  // several cycles may tell the same
  for (const Notification& notification : notifications) {
    const std::wstring more = notification.more.empty() ? std::wstring() : L": " + printable(notification.more);
    const std::wstring line = padded(printable(notification.type), 5) + L"  " + printable(notification.message) + more;
    if (shown.insert(line).second) lines.push_back(line);
  }
  say(L"notifications of the last run: " + std::to_wstring(lines.size()));
  for (const std::wstring& line : lines) say(L"  " + line);
}

/// Whether `text` names the record: by its full path, or as it is shown.
bool names(const PairFolders& pair, const Quarantined& record, const std::wstring& text) {
  if (platform::samePath(record.path, genericOf(absoluteOf(text)))) return true;
  const std::wstring shown = pair.shown(record.path, false);
  return text == shown || text == printable(shown) || text == printable(record.path);
}

bool isMeant(const PairFolders& pair, const Quarantined& record, const std::vector<std::wstring>& paths) {
  const auto namesIt = [&](const std::wstring& path) { return names(pair, record, path); };
  return paths.empty() || std::any_of(paths.begin(), paths.end(), namesIt);
}

/// A pair that no run has worked with has nothing to show, which is not to be taken for "all is well".
void requireEarlierRun(const PairFolders& pair, const WorkFolder& work) {
  work.refuseOtherPair();
  const auto state = platform::pathOf(work.state() + L"/Kelta_sync_state_0.txt");
  if (platform::stampOf(state).kind != platform::Kind::missing) return;
  pair.requirePresent();
  throw Failure{Exit::failed, L"this pair was not synchronised yet with the work folder " + printable(work.name())};
}

/// What failed in the last run and is not quarantined.
std::vector<Failed> failedEntries(const PairFolders& pair, const std::wstring& kept,
                                  const std::vector<Quarantined>& quarantined) {
  std::set<std::wstring> names;
  for (const Quarantined& record : quarantined) names.insert(pair.shown(record.path, false));
  std::vector<Failed> entries = failedOf(kept);
  const auto isQuarantined = [&](const Failed& entry) { return names.count(entry.name) > 0; };
  entries.erase(std::remove_if(entries.begin(), entries.end(), isQuarantined), entries.end());
  return entries;
}

}  // namespace

Exit statusCommand(const Arguments& arguments) {
  const Options options(arguments, rulesWith({{L"--json", L"", false}}));
  options.refuseOperands();
  const NamedPair named(options);
  requireEarlierRun(named.folders, named.work);
  named.work.openForReading();
  Engine engine(named.work.state(), named.work.readingLog());
  const std::wstring notifications = named.work.notifications();
  const std::vector<Failed> failed = failedEntries(named.folders, named.work.failed(), engine.quarantined());
  const std::vector<Waiting> waiting = onePerFile(
      waitingOf(named.work.waiting()), [&](const std::wstring& path) { return named.folders.shown(path, false); });
  if (options.has(L"--json")) {
    for (const std::wstring& list : {engine.quarantineText(), notifications, textOf(waiting), textOf(failed)})
      say(list);
  } else {
    showFailed(failed);
    showQuarantined(named.folders, engine.quarantined());
    showWaiting(waiting);
    showNotifications(notificationsOf(notifications));
  }
  if (named.folders.present()) return Exit::done;
  complain(named.folders.whatIsMissing());
  return Exit::folderMissing;
}

Exit quarantineCommand(const Arguments& arguments) {
  const Options options(arguments, rulesWith({}));
  std::vector<std::wstring> paths = options.operands();
  if (paths.empty() || paths.front() != L"clear") throw Failure{Exit::usage, L"what to do is missing: clear"};
  paths.erase(paths.begin());
  NamedPair named(options);
  requireEarlierRun(named.folders, named.work);
  named.work.open();
  named.work.prepareLog();
  Engine engine(named.work.state(), named.work.log());
  const std::vector<Quarantined> list = engine.quarantined();
  Exit result = Exit::done;
  for (const std::wstring& path : paths) {
    const auto namesIt = [&](const Quarantined& record) { return names(named.folders, record, path); };
    if (std::any_of(list.begin(), list.end(), namesIt)) continue;
    complain(printable(path) + L": not quarantined");
    result = Exit::failed;
  }
  std::size_t cleared = 0;
  for (const Quarantined& record : list) {
    if (!isMeant(named.folders, record, paths)) continue;
    engine.clearRecord(record);
    ++cleared;
  }
  const std::size_t left = engine.quarantined().size();
  say(L"cleared " + std::to_wstring(list.size() - left) + L", left " + std::to_wstring(left));
  return left + cleared == list.size() ? result : Exit::failed;
}

}  // namespace host
}  // namespace Kelta
