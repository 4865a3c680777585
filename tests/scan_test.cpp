// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "support/Device.h"

namespace Kelta {
namespace test {
namespace {

class Scan : public ::testing::Test {
protected:
  Scan() : clock(std::make_shared<HookClock>()), a(folder / "a", folder / "outside", clock) {}

  SyncPair::ScanResult updates() {
    return a.pair().scanForUpdates(platform::wideOf(a.inside()), a.pair().srcStateList, a.pair().srcSyncList, 500);
  }

  TempFolder folder;
  std::shared_ptr<HookClock> clock;
  Device a;
};

TEST_F(Scan, ASideThatNeverSettlesIsGivenUp) {
  int files = 0;
  std::vector<std::int64_t> pauses;
  fs::path target = a.inside();
  clock->onPause = [&](std::int64_t milliseconds) {
    if (milliseconds < 1000) return;
    pauses.push_back(milliseconds);
    put(target / ("new" + std::to_string(files++)), "x", 10);
  };
  put(target / "new", "x", 10);
  fs::create_directories(target / "dir");
  a.pair().scanSrcChanges();
  EXPECT_EQ(pauses, (std::vector<std::int64_t>{2500, 1500, 1500, 1500, 1500}));
  pauses.clear();
  target = a.outside();
  put(target / "new.kelta", "x", 10);
  clock->onPause = [&](std::int64_t milliseconds) {
    pauses.push_back(milliseconds);
    put(target / ("new" + std::to_string(files++) + ".kelta"), "x", 10);
  };
  a.pair().scanDestChanges();
  EXPECT_EQ(pauses, (std::vector<std::int64_t>{1000, 2000}));
}

TEST_F(Scan, OnlyALaterTimeIsAnUpdate) {
  const fs::path x = a.inside() / "x";
  put(x, "1", 10);
  put(a.inside() / "dir/y", "1", 10);
  a.cycle();
  put(x, "22", 10);
  EXPECT_EQ(updates().total(), 0);
  put(x, "22", 9);
  platform::setLastWriteTime(a.inside() / "dir", (kEpoch + 1000000) * 1000000000);
  EXPECT_EQ(updates().total(), 0);
  put(x, "22", 11);
  EXPECT_EQ(updates().filesChanged, 1);
  EXPECT_EQ(updates().total(), 0) << "pending already";
}

TEST_F(Scan, EmptyFilesAndOddEntries) {
  put(a.inside() / "empty", "", 10);
  makePipe(a.inside() / "pipe");
  makeLink(a.inside().root_path(), a.inside() / "link");
  fs::create_directories(a.inside() / "dir.kelta/below");
  EXPECT_EQ(updates().total(), 0);
  ASSERT_EQ(a.pair().srcSyncList.size(), 1u);
  EXPECT_EQ(a.pair().srcSyncList.count(L"empty"), 1u);
}

TEST_F(Scan, AFolderListTakesAnySpellingAndNothingFromElsewhere) {
  put(a.inside() / "dir/x", "1", 10);
  const bool linked = makeLink(folder.path(), a.inside() / "link");
  const std::wstring root = platform::wideOf(a.inside());
  const struct {
    std::wstring path;
    std::size_t found;
  } table[] = {{root + L"//dir", 1},
               {root + L"\\dir\\", 1},
               {root + L"/./dir/.", 1},
               {root + L"/dir/../dir", 1},
               {root + L"/../inside/dir", 1},
               {root + L"/..", 0},
               {root + L"/link/../dir", linked ? 0U : 1U},
               {L"", 0},
               {L"dir", 0},
               {platform::wideOf(a.inside().root_path()) + L"../dir", 0}};
  for (const auto& row : table) {
    a.pair().srcSyncList.clear();
    a.pair().subScanForChanges({row.path});
    EXPECT_EQ(a.pair().srcSyncList.count(L"dir/x"), row.found) << platform::utf8(row.path);
    EXPECT_EQ(a.pair().srcSyncList.size(), row.found) << platform::utf8(row.path);
  }
  EXPECT_EQ(a.handler().getQuarantineAsJSON(), L"{\"quarantined\":[]}");
  SyncPair pair(clock);
  pair.setSourceFolder(root + L"/dir//../.\\");
  EXPECT_TRUE(pair.isPairRoot(root));
  pair.setSourceFolder(platform::wideOf(a.inside().root_path()));
  EXPECT_TRUE(pair.isSrcFolder(root)) << "a volume's root";
}

TEST_F(Scan, PaceBetweenCycles) {
  const auto tell = [&] {
    int seconds = -1;
    a.pair().defaultSleep(seconds);
    return seconds;
  };
  a.pair().endCycle();
  EXPECT_EQ(tell(), 10);
  const struct { int age, pause; } table[] = {{301, 35}, {600, 35}, {602, 50}};
  int age = 0;
  for (const auto& row : table) {
    clock->advance((row.age - age) * 1000);
    age = row.age;
    EXPECT_EQ(tell(), row.pause) << row.age;
  }
  put(a.inside() / "x", "1", 10);
  std::vector<std::int64_t> pauses;
  clock->onPause = [&](std::int64_t milliseconds) { pauses.push_back(milliseconds); };
  a.cycle();
  EXPECT_EQ(pauses, std::vector<std::int64_t>{1500}) << "the Inside's settling; none between the steps";
  EXPECT_EQ(tell(), 10) << "the state was written just now";
}

}  // namespace
}  // namespace test
}  // namespace Kelta
