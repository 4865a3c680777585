// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"
#include "PairSetup.h"
#include "Report.h"
#include "Terminal.h"

namespace Kelta {
namespace host {
namespace {

void passOn(const std::vector<Notification>& notifications, Report& report) {
  for (const Notification& notification : notifications) report.notified(notification);
}

/// Cycles until one finds nothing to do, or gets nothing done, or the user stops it.
Exit runCycles(Engine& engine, Report& report, const PairFolders& pair) {
  passOn(engine.takeNotifications(), report);
  for (;;) {
    report.beginCycle();
    engine.cycle();
    passOn(engine.takeNotifications(), report);
    report.endCycle(engine.ok() && !engine.stopAsked());
    if (engine.stopAsked()) return Exit::interrupted;
    if (!engine.ok()) throw Failure{Exit::folderMissing, pair.whatIsMissing()};
    if (report.settled()) return Exit::done;
    if (report.progressed()) continue;
    if (!report.failures()) complain(L"some files change faster than they are synchronised; run it again later");
    return Exit::failed;
  }
}

/// For "kelsync status".
void keepLists(const WorkFolder& work, Engine& engine, Report& report) {
  report.setWaiting(waitingOf(engine.waitingText()));
  work.keepNotifications(engine.notificationsText());
  work.keepFailed(textOf(report.lasting()));
  work.keepWaiting(textOf(report.waiting()));
}

Exit synchronise(const PairSetup& setup, bool quiet) {
  const WorkFolder& work = setup.work();
  Report report(setup.folders(), quiet, failedOf(work.failed()));
  const std::unique_ptr<Engine> engine = setup.engine(report, work.log());
  engine->setPace(setup.pace(0));
  report.setEngine(*engine);
  Exit result = Exit::failed;
  try {
    result = runCycles(*engine, report, setup.folders());
  } catch (const Failure&) {
    keepLists(work, *engine, report);
    throw;
  }
  keepLists(work, *engine, report);
  report.setQuarantined(engine->quarantined());
  report.summary(setup.keySource(), work.log());
  if (report.mayNeedOtherKey()) complain(setup.keyHint());
  if (result == Exit::interrupted) complain(L"interrupted; what was finished stays, the next run does the rest");
  return result == Exit::done && (report.failures() || report.waits()) ? Exit::failed : result;
}

}  // namespace

Exit syncCommand(const Arguments& arguments) {
  const Options options(arguments, rulesWith({}));
  PairSetup setup(options);
  setup.open();
  setup.prepare();
  return synchronise(setup, options.has(L"--quiet"));
}

}  // namespace host
}  // namespace Kelta
