// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"
#include "Engine.h"
#include "Options.h"
#include "PairFolders.h"
#include "PairKey.h"
#include "Report.h"
#include "Terminal.h"
#include "WorkFolder.h"

namespace Kelta {
namespace host {
namespace {

const std::vector<OptionRule> kRules = {
    {L"--inside", L"", true},   {L"--outside", L"", true},   {L"--work", L"", true},
    {L"--key-file", L"", true}, {L"--asset", L"", true},     {L"--make-key", L"", false},
    {L"--names", L"", false},   {L"--compress", L"", false}, {L"--quiet", L"-q", false},
};

void passOn(const std::vector<Notification>& notifications, Report& report) {
  for (const Notification& notification : notifications) {
    if (notification.type == L"ERROR") {
      report.error(notification.message);
    } else {
      report.explain(notification.message, notification.more);
    }
  }
}

[[noreturn]] void refuseKey(const FoundKey& key, const WorkFolder& work) {
  std::wstring message = L"the key opens none of the archives on the Outside; nothing was changed. It came from: ";
  message += key.source;
  if (key.overrides) {
    message += L"\nThat one was used in place of the pair's own, " + printable(genericOf(work.keyFile()));
  }
  throw Failure{Exit::noKey, message};
}

/// Cycles until one finds nothing to do, or gets nothing done, or the user stops it.
Exit runCycles(Engine& engine, Report& report, const PairFolders& pair) {
  for (;;) {
    report.beginCycle();
    engine.cycle();
    passOn(engine.takeNotifications(), report);
    if (engine.stopAsked()) return Exit::interrupted;
    if (!engine.ok()) throw Failure{Exit::folderMissing, pair.whatIsMissing()};
    if (report.settled()) return Exit::done;
    if (report.progressed()) continue;
    if (!report.failures()) complain(L"some files change faster than they are synchronised; run it again later");
    return Exit::failed;
  }
}

Exit synchronise(const Options& options, const PairFolders& pair, const WorkFolder& work) {
  work.requireNoKeyChange();
  const FoundKey key = pairKey(options, work, pair, options.has(L"--make-key"));
  work.claim();
  work.prepareLog();
  Report report(pair, options.has(L"--quiet"));
  Engine engine({pair.inside, pair.outside, work.state(), work.temp(), work.log(), options.has(L"--compress")});
  engine.setListener(report);
  engine.setKey(assetOf(options), key.text.c_str());
  engine.initState();
  if (!engine.keyFits(assetOf(options)) && !engine.stopAsked()) refuseKey(key, work);
  Exit result = Exit::failed;
  try {
    result = runCycles(engine, report, pair);
  } catch (const Failure&) {
    work.keepNotifications(engine.notificationsText());
    throw;
  }
  work.keepNotifications(engine.notificationsText());
  report.setQuarantined(engine.quarantined());
  report.summary(key.source, work.log());
  if (result == Exit::interrupted) complain(L"interrupted; what was finished stays, the next run does the rest");
  return result == Exit::done && report.failures() ? Exit::failed : result;
}

}  // namespace

Exit syncCommand(const Arguments& arguments) {
  const Options options(arguments, kRules);
  options.refuseOperands();
  if (options.has(L"--names")) throw Failure{Exit::usage, L"encrypted names are not available in this version"};
  assetOf(options);
  const std::wstring inside = options.required(L"--inside");
  const PairFolders pair(inside, options.required(L"--outside"));
  WorkFolder work(options.value(L"--work"), pair);
  pair.requirePresent();
  work.open();
  return synchronise(options, pair, work);
}

}  // namespace host
}  // namespace Kelta
