// SPDX-License-Identifier: Apache-2.0
// Start trees, edits on either side, cycles, and what must stand on both sides afterwards.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/TwoDevices.h"

namespace Kelta {
namespace test {
namespace {

class Scenario : public TwoDevices {};

TEST_F(Scenario, EverythingGoesOutEncryptedAndComesBackOnASecondDevice) {
  put(in(a, "a.txt"), "alpha", 10);
  put(in(a, "deep/er/b.bin"), std::string("\0\1\2", 3), 20);
  put(in(a, "empty"), "", 30);
  put(in(a, "\xC3\xBC \xF0\x9F\x98\x80.txt"), "beyond", 40);
  fs::create_directories(in(a, "hollow"));
  const std::string tree = a.tree();
  a.cycle();
  EXPECT_EQ(namesOf(a.outside()),
            "a.txt.kelta deep/ deep/er/ deep/er/b.bin.kelta empty.kelta hollow/ \xC3\xBC \xF0\x9F\x98\x80.txt.kelta");
  EXPECT_EQ(platform::stampOf(out("a.txt.kelta")).seconds(), kEpoch + 10);
  EXPECT_EQ(contentOf(out("a.txt.kelta")).find("alpha"), std::string::npos);
  EXPECT_EQ(a.cycle(), "");
  a.start();
  EXPECT_EQ(a.cycle(), "") << "a restart does nothing";
  b.cycle();
  EXPECT_EQ(b.tree(), tree);
  EXPECT_EQ(a.cycle() + b.cycle(), "");
}

TEST_F(Scenario, ChangesTravelBothWays) {
  for (const char* name : {"edited", "deleted", "dir/file", "dir/sub/file"}) put(in(a, name), "1", 10);
  converge();
  put(in(b, "edited"), "2", 20);
  put(in(b, "added/new"), "n", 20);
  fs::remove(in(b, "deleted"));
  fs::remove_all(in(b, "dir"));
  converge();
  EXPECT_EQ(a.tree(), "added/ added/new=n@20 edited=2@20");
  EXPECT_EQ(namesOf(a.outside()), "added/ added/new.kelta edited.kelta");
  put(in(a, "edited"), "3", 30);
  fs::remove_all(in(a, "added"));
  converge();
  EXPECT_EQ(b.tree(), "edited=3@30");
}

// Nothing recorded on either side: what both have stays, nothing counts as deleted.
TEST_F(Scenario, ALostStateMergesAndDeletesNothing) {
  for (const std::string damage : {"removed", "rubbish", "cut"}) {
    put(in(a, "one"), "1", 10);
    put(in(a, "two"), "2", 10);
    converge();
    const fs::path file = a.state() / "Kelta_sync_state_0.txt";
    const std::string state = contentOf(file);
    if (damage == "removed") fs::remove(file);
    if (damage == "rubbish") put(file, std::string("\xFF\xFE\0\t\n\t\t\nno record\n", 18) + std::string(9000, 'x'), 0);
    if (damage == "cut") put(file, state.substr(0, state.size() * 3 / 4), 0);
    fs::remove(in(a, "one"));
    put(in(a, "three"), "3", 10);
    a.start();
    converge();
    EXPECT_EQ(b.tree(), "one=1@10 three=3@10 two=2@10") << damage;
    fs::remove(in(a, "three"));
    converge();
  }
}

TEST_F(Scenario, AVanishedRootStopsTheEngineAndDeletesNothing) {
  put(in(a, "one"), "1", 10);
  put(in(a, "dir/two"), "2", 10);
  converge();
  const std::string outside = namesOf(a.outside());
  const fs::path parked = folder / "parked";

  fs::rename(a.inside(), parked);
  EXPECT_EQ(a.cycle(), "");
  EXPECT_FALSE(a.pair().ok());
  EXPECT_NE(a.notifications().find("One or more pair folder missing"), std::string::npos);
  a.start();
  fs::create_directory(a.inside());  // an unmounted volume leaves an empty folder
  EXPECT_EQ(a.cycle(), "");
  EXPECT_FALSE(a.pair().ok());
  EXPECT_NE(a.notifications().find("One or more pair folder missing"), std::string::npos);
  EXPECT_EQ(namesOf(a.outside()), outside);
  fs::remove(a.inside());
  fs::rename(parked, a.inside());

  fs::rename(a.outside(), parked);
  a.start();
  fs::create_directory(a.outside());
  const std::string tree = a.tree();
  EXPECT_EQ(a.cycle(), "");
  EXPECT_FALSE(a.pair().ok());
  EXPECT_EQ(a.tree(), tree);
  fs::remove(a.outside());
  fs::rename(parked, a.outside());
  a.start();
  converge();
  EXPECT_EQ(a.tree(), tree);
}

TEST_F(Scenario, FoldersWithinEachOtherAreRefused) {
  Device nested(folder / "n", folder / "n/inside/outside");
  put(in(nested, "x"), "1", 10);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(nested.cycle(), "");
  EXPECT_FALSE(nested.pair().ok());
  EXPECT_EQ(nested.tree(), "outside/ x=1@10");
}

// The volume goes away between the scan and the carrying out.
TEST_F(Scenario, ARootThatVanishesAfterTheScanDeletesNothing) {
  put(in(a, "one"), "1", 10);
  put(in(a, "two"), "2", 10);
  converge();
  fs::remove(in(a, "one"));
  a.pair().scanSrcChanges();
  a.pair().scanDestChanges();
  fs::rename(a.inside(), folder / "parked");
  fs::create_directory(a.inside());
  a.pair().syncChanges();
  EXPECT_FALSE(a.pair().ok());
  EXPECT_EQ(namesOf(a.outside()), "one.kelta two.kelta");
}

TEST_F(Scenario, WhatChangesBetweenScanAndCopyIsNeverOverwritten) {
  for (const char* name : {"x", "y", "z"}) put(in(a, name), "0", 1);
  converge();
  put(in(b, "x"), "from b", 10);
  fs::remove(in(b, "y"));
  fs::remove(in(b, "z"));
  b.cycle();
  a.pair().scanSrcChanges();
  a.pair().scanDestChanges();
  put(in(a, "x"), "edited on a", 20);
  put(in(a, "y"), "edited on a", 20);
  put(out("z.kelta"), contentOf(out("x.kelta")), 20);
  a.pair().syncChanges();
  a.pair().endCycle();
  EXPECT_EQ(a.tree(), "x=edited on a@20 y=edited on a@20 z=0@1");
  converge();
  EXPECT_EQ(b.tree(), "x=edited on a@20 y=edited on a@20 z=from b@20");
}

TEST_F(Scenario, ADeletedFolderThatHoldsForeignFilesStays) {
  put(in(a, "gone/known"), "1", 10);
  converge();
  fs::remove_all(in(b, "gone"));
  b.cycle();
  put(in(a, "gone/.DS_Store"), "foreign", 20);
  for (int i = 0; i < 6; ++i) (i % 2 == 0 ? a : b).cycle();
  EXPECT_EQ(a.cycle() + b.cycle(), "");
  EXPECT_EQ(namesOf(in(a, "gone")) + namesOf(in(b, "gone")), ".DS_Store") << "it came back where it was deleted";
}

TEST_F(Scenario, AFileBecomesAFolderAndTheReverse) {
  put(in(a, "x"), "file", 10);
  put(in(a, "d/inner"), "inner", 10);
  converge();
  fs::remove(in(a, "x"));
  put(in(a, "x/inner"), "now inside", 20);
  fs::remove_all(in(a, "d"));
  put(in(a, "d"), "now a file", 20);
  converge();
  EXPECT_EQ(b.tree(), "d=now a file@20 x/ x/inner=now inside@20");
}

// Beyond what the content hash covers.
TEST_F(Scenario, LargeFilesOfEqualTimeAreComparedToTheEnd) {
  const std::string big(5200000, 'x');
  put(in(a, "big"), big + "a", 10);
  put(in(b, "big"), big + "b", 10);
  a.cycle();
  EXPECT_EQ(b.cycle().substr(0, 12), "conflict:big");
}

TEST_F(Scenario, ForeignFilesOnTheOutsideAreLeftAlone) {
  put(in(a, "mine"), "1", 10);
  a.cycle();
  put(out("readme.md"), "foreign", 10);
  put(out("rubbish.kelta"), "no archive", 10);
  put(out("odd.kelta/inner.kelta"), "below a folder with an archive's name", 10);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(a.cycle(), "failed:rubbish");
  EXPECT_EQ(a.tree(), "mine=1@10");
  EXPECT_EQ(contentOf(out("rubbish.kelta")), "no archive");
  EXPECT_NE(a.notifications().find("Could not copy rubbish.kelta"), std::string::npos);
}

TEST_F(Scenario, WithoutAKeyNothingIsWrittenAndNothingLost) {
  put(in(a, "x"), "1", 10);
  a.handler().clearAssets();
  EXPECT_EQ(a.cycle(), "failed:x");
  EXPECT_EQ(namesOf(a.outside()), "");
  a.handler().setAssetKey(L"main", testKey());
  a.cycle();
  b.handler().clearAssets();
  EXPECT_EQ(b.cycle(), "failed:x");
  b.clock().advance(91000);
  b.cycle();
  EXPECT_NE(platform::utf8(b.handler().getQuarantineAsJSON()).find("no-key"), std::string::npos);
  EXPECT_EQ(b.cycle(), "") << "given up until something changes";
  EXPECT_TRUE(fs::exists(out("x.kelta")));
  // A file of that name must not replace the archive that nobody here could read.
  put(in(b, "x"), "unaware", 20);
  b.cycle();
  a.cycle();
  EXPECT_EQ(a.tree(), "x=1@10");
  b.handler().setAssetKey(L"main", testKey());
  converge();
  EXPECT_TRUE(b.bin().holds("1"));
  EXPECT_EQ(a.tree(), "x=unaware@20");
}

TEST_F(Scenario, WhatStandsInTheWayIsLeftAndTheOthersGoOn) {
  put(in(a, "x"), "1", 10);
  put(in(a, "dir/y"), "1", 10);
  a.cycle();
  fs::remove_all(out("dir"));
  put(out("dir"), "in the way", 10);
  put(in(a, "dir/y"), "2", 20);
  put(in(a, "z"), "1", 10);
  a.cycle();
  EXPECT_TRUE(fs::exists(out("z.kelta")));
  EXPECT_EQ(contentOf(in(a, "dir/y")), "2");
  EXPECT_EQ(contentOf(out("dir")), "in the way");
  fs::remove(out("dir"));
  converge();
  EXPECT_EQ(b.tree(), "dir/ dir/y=2@20 x=1@10 z=1@10");
}

TEST_F(Scenario, AccessErrorsAreTriedFiveTimesFourSecondsApart) {
  put(in(a, "x"), "1", 10);
  a.pair().scanSrcChanges();
  fs::remove_all(a.temp());
  put(a.temp(), "a file in the Temp folder's place", 10);
  const std::int64_t before = a.clock().nowMicroseconds();
  a.pair().syncChanges();
  EXPECT_EQ((a.clock().nowMicroseconds() - before) / 1000, 4 * 4000);
  EXPECT_NE(a.notifications().find("Could not copy x"), std::string::npos);
  fs::remove(a.temp());
  a.pair().endCycle();
  EXPECT_EQ(a.cycle(), "encrypt:x.kelta");
}

// The file is written to at every look that the engine takes at it, so no copy may count.
TEST_F(Scenario, AFileThatChangesWhileItIsCopiedIsCopiedAgain) {
  const auto clock = std::make_shared<HookClock>();
  Device c(folder / "c", folder / "outside-c", clock);
  put(in(c, "x"), std::string(300000, 'x'), 10);
  int writes = 0;
  clock->onLook = [&] {
    if (++writes <= 40) put(in(c, "x"), std::string(300000, 'x') + std::to_string(writes), 10 + writes);
  };
  c.cycle();
  clock->onLook = nullptr;
  const std::string last = contentOf(in(c, "x"));
  for (int i = 0; i < 4; ++i) c.cycle();
  EXPECT_EQ(c.cycle(), "");
  Device d(folder / "d", folder / "outside-c");
  d.cycle();
  EXPECT_EQ(contentOf(in(d, "x")), last);
}

TEST_F(Scenario, AnInterruptionEndsTheCommandAndTheNextCycleFinishes) {
  for (int i = 0; i < 20; ++i) put(in(a, "f" + std::to_string(i)), std::to_string(i), 10);
  const std::string tree = a.tree();
  for (int copies = 0; copies < 16; copies += 4) {
    a.start();
    a.pair().interruption()->begin();
    int left = 4;
    a.pair().setProgress([&](const std::wstring&, const std::wstring&, std::uint64_t, std::uint64_t) {
      if (--left == 0) a.pair().interruption()->request();
    });
    EXPECT_THROW(a.pair().syncCycle(), boost::thread_interrupted);
    a.pair().interruption()->end();
    EXPECT_EQ(a.leftovers(), "");
  }
  a.start();
  const std::string events = a.cycle();
  EXPECT_EQ(std::count(events.begin(), events.end(), ':'), 4) << "what was finished stayed finished";
  b.cycle();
  EXPECT_EQ(b.tree(), tree);
}

TEST_F(Scenario, SubFolderScansSeeWhatIsListedAndWhatIsNewOrGoneBelow) {
  for (const char* name : {"seen/old", "seen/gone/deep/file", "seen/swapped/deep/file", "unseen/old"}) {
    put(in(a, name), "1", 10);
  }
  converge();
  put(in(a, "seen/old"), "2", 20);
  put(in(a, "seen/new/deep/file"), "n", 20);
  fs::remove_all(in(a, "seen/gone"));
  fs::remove_all(in(a, "seen/swapped"));
  put(in(a, "seen/swapped"), "a file", 20);
  put(in(a, "unseen/old"), "2", 20);
  const std::wstring seen = platform::wideOf(in(a, "seen"));
  put(in(a, "sk/secret/key"), "never to leave", 20);
  const bool linked = makeLink(a.state(), in(a, "seen/link"));
  a.pair().subScanForChanges({seen, L"/elsewhere", platform::wideOf(in(a, "sk")), platform::wideOf(in(a, "sk/secret")),
                              linked ? seen + L"/link" : seen});
  put(in(a, "seen/new/late/file"), "l", 20);
  a.pair().subScanForChanges({seen});
  a.pair().subResolve();
  EXPECT_EQ(namesOf(out("seen")), "new/ new/deep/ new/deep/file.kelta new/late/ new/late/file.kelta old.kelta");
  a.pair().subScanForChanges({seen});
  a.pair().subResolve();
  EXPECT_FALSE(fs::exists(out("sk")));
  fs::remove_all(in(a, "sk"));
  fs::remove(in(a, "seen/link"));
  EXPECT_EQ(platform::stampOf(out("seen/swapped.kelta")).seconds(), kEpoch + 20);
  EXPECT_EQ(platform::stampOf(out("seen/old.kelta")).seconds(), kEpoch + 20);
  EXPECT_EQ(platform::stampOf(out("unseen/old.kelta")).seconds(), kEpoch + 10);
  converge();
  EXPECT_EQ(b.tree(),
            "seen/ seen/new/ seen/new/deep/ seen/new/deep/file=n@20 seen/new/late/ seen/new/late/file=l@20 "
            "seen/old=2@20 seen/swapped=a file@20 unseen/ unseen/old=2@20");
  const std::string archives = namesOf(a.outside());
  fs::rename(a.inside(), a.inside().parent_path() / "unmounted");
  fs::create_directories(a.inside());
  EXPECT_THROW(a.pair().subScanForChanges({seen}), RootMissing);
  a.pair().subResolve();
  EXPECT_FALSE(a.pair().ok());
  EXPECT_EQ(namesOf(a.outside()), archives);
}

TEST_F(Scenario, FolderIdentifiersAreKept) {
  fs::create_directories(in(a, "d"));
  a.cycle();
  const std::string id = contentOf(in(a, "d/.rid"));
  EXPECT_EQ(id.size(), 33u);
  put(in(a, "d/f"), "1", 10);
  a.start();
  a.cycle();
  EXPECT_EQ(contentOf(in(a, "d/.rid")), id);
  put(in(a, "d/.rid"), "damaged", 10);
  put(in(a, "e"), "1", 10);
  a.cycle();
  const std::string renewed = contentOf(in(a, "d/.rid"));
  EXPECT_EQ(renewed.size(), 33u);
  EXPECT_NE(contentOf(a.state() / "Kelta_sync_state_0.txt").find(renewed), std::string::npos);
}

}  // namespace
}  // namespace test
}  // namespace Kelta
