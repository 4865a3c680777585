// SPDX-License-Identifier: Apache-2.0
// Start trees, edits on either side, cycles, and what must stand on both sides afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem/fstream.hpp>

#include "platform/Folders.h"
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
  fs::create_directories(in(a, "dir"));  // an unmounted volume leaves an empty folder, in which programs begin anew
  EXPECT_EQ(a.cycle(), "");
  EXPECT_FALSE(a.pair().ok());
  EXPECT_NE(a.notifications().find("One or more pair folder missing"), std::string::npos);
  EXPECT_EQ(namesOf(a.outside()), outside);
  fs::remove_all(a.inside());
  fs::rename(parked, a.inside());

  fs::rename(a.outside(), parked);
  a.start();
  fs::create_directories(out("dir"));
  const std::string tree = a.tree();
  EXPECT_EQ(a.cycle(), "");
  EXPECT_FALSE(a.pair().ok());
  EXPECT_EQ(a.tree(), tree);
  fs::remove_all(a.outside());
  fs::rename(parked, a.outside());
  a.start();
  converge();
  EXPECT_EQ(a.tree(), tree);
}

TEST_F(Scenario, AFolderThatIsFetchedAnewDeletesNothing) {
  for (int i = 0; i < 5; ++i) put(in(a, "dir" + std::to_string(i) + "/f"), "1", 10);
  converge();
  const std::string tree = a.tree();
  const bool born = platform::identityOf(platform::pathOf(platform::wideOf(a.outside()))).back() != ':';
  if (runsUnderWine()) {  // which has nothing but numbers that are used again
    fs::rename(a.outside(), folder / "parked");
  } else {
    fs::copy(a.outside(), folder / "parked", fs::copy_options::recursive);
    fs::remove_all(a.outside());
  }
  for (const int fetched : {0, born ? 4 : 1}) {
    for (int i = 0; i < 5; ++i) fs::create_directories(a.outside() / ("dir" + std::to_string(i)));
    fs::copy_file(folder / "parked/.kelta", a.outside() / ".kelta");
    for (int i = 0; i < fetched; ++i) {
      const std::string dir = "dir" + std::to_string(i);
      for (const fs::directory_entry& entry : fs::directory_iterator(folder / "parked" / dir))
        fs::copy_file(entry.path(), a.outside() / dir / entry.path().filename());
    }
    a.cycle();
    EXPECT_FALSE(a.pair().ok());
    EXPECT_EQ(a.tree(), tree);
    fs::remove_all(a.outside());
    fs::create_directory(a.outside());
    a.start();
    a.pair().clearNotifications();
  }
}

TEST_F(Scenario, FoldersWithinEachOtherAreRefused) {
  put(in(a, "x"), "1", 10);
  a.cycle();
  put(in(a, ".kelta"), contentOf(a.outside() / ".kelta"), 0);
  EXPECT_EQ(a.cycle(), "");
  EXPECT_NE(a.notifications().find("are the folders of the pair swapped?"), std::string::npos);
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

// What a system makes by itself goes along, whether it is synchronised ("Thumbs.db") or not; a lock file tells that
// somebody works there.
TEST_F(Scenario, ADeletedFolderStaysOnlyForWhatSomebodyMade) {
  const struct {
    const char* name;
    bool known, stays;
  } table[] = {{".DS_Store", false, false}, {"desktop.ini", false, false}, {"Thumbs.db", false, false},
               {"Thumbs.db", true, false},  {"~$open.docx", false, true},  {"own.db", false, true}};
  int made = 0;
  for (const bool otherFirst : {true, false}) {
    for (const auto& row : table) {
      const std::string file = std::string("gone/sub/") + row.name;
      const std::string content = "made " + std::to_string(++made);
      put(in(a, "gone/sub/known"), "1", 10);
      if (row.known) put(in(b, file), "0", 10);
      converge();
      fs::remove_all(in(a, "gone"));
      put(in(b, file), content, 20);
      put(out("gone/sub") / "desktop.ini", "of a look of its own", 20);
      for (int i = 0; i < 6; ++i) ((i % 2 == 0) == otherFirst ? b : a).cycle();
      EXPECT_EQ(a.cycle() + b.cycle(), "") << row.name;
      for (const fs::path& place : {in(a, "gone/sub"), in(b, "gone"), out("gone")})
        EXPECT_EQ(fs::exists(place), row.stays) << row.name << otherFirst;
      EXPECT_EQ(a.bin().holds(content), !row.stays) << row.name << otherFirst;
      for (const Device* device : {&a, &b}) fs::remove_all(in(*device, "gone"));
      converge();
    }
  }
}

// Whoever notices it: the folder keeps the name, the file goes on under another, and the host hears of it once.
TEST_F(Scenario, AFileAndAFolderOfOneNameBothStay) {
  const auto synced = [&](Device& one, Device& two, const std::string& entry) {
    put(in(one, entry), "old", 10);
    for (int i = 0; i < 2; ++i) one.cycle() + two.cycle();
    fs::remove_all(in(one, "x"));
  };
  const struct {
    std::function<void(Device&, Device&)> story;
    const char* tree;
  } table[] = {
      {[&](Device& one, Device& two) {
         put(in(one, "x"), "file", 20);
         put(in(two, "x/in"), "inner", 30);
       },
       "x!=file@20 x/ x/in=inner@30"},
      {[&](Device& one, Device& two) {
         synced(one, two, "x");
         put(in(one, "x/in"), "inner", 20);
         put(in(two, "x"), "edited", 30);
       },
       "x!=edited@30 x/ x/in=inner@20"},
      {[&](Device& one, Device& two) {
         synced(one, two, "x/in");
         put(in(one, "x"), "file", 20);
         put(in(two, "x/new"), "inner", 30);
       },
       "x!=file@20 x/ x/new=inner@30"},
      // Both were uploaded before either was seen by the other device.
      {[&](Device& one, Device& two) {
         put(in(one, "x"), "file", 20);
         one.cycle();
         const fs::path archive = one.archive("x.kelta");
         fs::rename(archive, one.outside().parent_path() / archive.filename());
         put(in(two, "x/in"), "inner", 30);
         two.cycle();
         fs::rename(one.outside().parent_path() / archive.filename(), archive);
       },
       "x!=file@20 x/ x/in=inner@30"},
  };
  for (const bool subScans : {false, true}) {
    std::string order = "000111";
    for (int count = 0; count < 20; std::next_permutation(order.begin(), order.end()), ++count) {
      if (count % 3 != 0) continue;
      for (const auto& row : table) {
        const TempFolder place;
        Device one(place / "one", place / "outside");
        Device two(place / "two", place / "outside");
        row.story(one, two);
        for (const char turn : order + "0101") {  // to bring it about, and to settle it
          Device& device = turn == '0' ? one : two;
          std::vector<std::wstring> folders;
          for (const fs::path& root : {device.inside(), device.outside()})
            for (const fs::path& listed : {root, root / "x"}) folders.push_back(platform::wideOf(listed));
          if (subScans) device.pair().subScanForChanges(folders);
          if (subScans) device.pair().subResolve();
          if (!subScans) device.cycle();
        }
        EXPECT_EQ(one.cycle() + two.cycle(), "") << row.tree << subScans << order;
        EXPECT_EQ(withShortConflicts(one.tree()), row.tree) << subScans << order;
        EXPECT_EQ(one.tree(), two.tree());
        const std::string told = one.notifications() + two.notifications();
        EXPECT_NE(told.find("a folder has the name of the file x,"), std::string::npos) << told;
        EXPECT_EQ(told.find("a folder has the name"), told.rfind("a folder has the name")) << told;
        EXPECT_EQ(told.find("Could not"), std::string::npos) << told;
      }
    }
  }
  // Another device may have put it aside a moment ago.
  put(in(a, "y"), "file", 20);
  converge();
  fs::create_directories(a.outside() / "y");
  b.pair().scanSrcChanges();
  b.pair().scanDestChanges();
  a.cycle();
  b.pair().syncChanges();
  b.pair().endCycle();
  converge();
  EXPECT_EQ(withShortConflicts(b.tree()), "y!=file@20 y/");
}

TEST_F(Scenario, AFutureTimeIsToldOnceAndListed) {
  const auto isListed = [](Device& device, const char* name) {
    const std::string listed = platform::utf8(device.pair().waiting().asJSON());
    return listed.find(name + std::string("\",\"reason\":\"future-time\"")) != std::string::npos;
  };
  const auto isTold = [](Device& device) {
    const bool told = device.notifications().find("lies in the future") != std::string::npos;
    device.pair().clearNotifications();
    return told;
  };
  const std::int64_t now = a.clock().nowSeconds() - kEpoch;
  put(in(a, "x"), "1", now + 3 * 86400);
  put(in(a, "near"), "1", now + 80000);
  a.cycle();
  for (Device* device : {&a, &b}) {
    device->cycle();
    EXPECT_TRUE(isTold(*device));
    device->cycle();
    EXPECT_TRUE(!isTold(*device) && isListed(*device, "/x") && !isListed(*device, "/near"));
  }
  put(in(a, "x"), "2", now);
  a.cycle();
  EXPECT_TRUE(isListed(a, "/x")) << "not noticed yet";
  a.clock().advance(std::int64_t(3) * 86400 * 1000);
  a.cycle();
  EXPECT_FALSE(isListed(a, "/x"));
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
  // A device that met the folder beside the file's archive would take them for a clash.
  put(in(a, "y"), "file", 10);
  converge();
  fs::remove(in(a, "y"));
  put(in(a, "y/in"), "inner", 20);
  bool both = false;
  a.pair().setProgress([&](const std::wstring&, const std::wstring&, std::uint64_t, std::uint64_t) {
    both = both || (fs::exists(a.outside() / "y") && fs::exists(a.archive("y.kelta")));
  });
  for (Device* device : {&a, &b}) {  // whoever is told of the new folder first
    device->pair().subScanForChanges({platform::wideOf((device == &a ? a.inside() : b.outside()) / "y")});
    device->pair().subResolve();
  }
  EXPECT_FALSE(both);
  a.start();
  converge();
  EXPECT_EQ(b.tree(), "d=now a file@20 x/ x/inner=now inside@20 y/ y/in=inner@20");
  // Nor is a file gone that has another name now.
  put(in(a, "z"), "kept", 10);
  converge();
  fs::rename(in(a, "z"), in(a, "z2"));
  put(in(a, "z/in"), "inner", 20);
  converge();
  EXPECT_EQ(b.tree(), "d=now a file@20 x/ x/inner=now inside@20 y/ y/in=inner@20 z/ z/in=inner@20 z2=kept@10");
  EXPECT_FALSE(b.bin().holds("kept"));
  for (Device* device : {&a, &b}) {
    EXPECT_EQ(device->notifications().find("Could not"), std::string::npos) << device->notifications();
    EXPECT_EQ(device->notifications().find("Conflict"), std::string::npos) << device->notifications();
    EXPECT_EQ(device->notifications().find(".kelta"), std::string::npos) << device->notifications();
  }
}

// In a hurry, only what changed a moment ago is given time.
TEST_F(Scenario, ThePaceSaysWhichPausesAreKept) {
  const auto milliseconds = [&](int pace, std::int64_t age, int files) {
    const std::int64_t now = a.clock().nowMicroseconds();
    const fs::path dir = in(a, std::to_string(now));
    for (int i = 0; i < files; ++i) put(dir / std::to_string(i), "content", 0);
    platform::setLastWriteTime(dir, now * 1000 - age * 1000000);
    a.pair().setPace(pace);
    a.cycle();
    return (a.clock().nowMicroseconds() - now) / 1000;
  };
  EXPECT_GE(milliseconds(100, 9000, 600), 1500 + 4500 + 2 * 1000);
  EXPECT_EQ(milliseconds(0, 9000, 600), 0);
  const std::int64_t half = milliseconds(50, 9000, 10);
  EXPECT_GE(half, (1500 + 4500) / 2);
  EXPECT_LT(half, 1500 + 4500);
  EXPECT_EQ(milliseconds(0, 100, 1), 400);
  EXPECT_EQ(milliseconds(-7, 600, 1), 0);
  // What was deleted a moment ago may be about to come back.
  for (const char* const name : {"x", "y"}) put(in(a, name), "content", 0);
  a.cycle();
  for (const char* const name : {"x", "y"}) {
    const std::int64_t now = a.clock().nowMicroseconds();
    fs::remove(in(a, name));
    platform::setLastWriteTime(a.inside(), now * 1000 - 300 * 1000000);
    const std::vector<std::wstring> folders{platform::wideOf(a.inside())};
    if (*name == 'x') {
      a.cycle();
    } else {
      a.pair().subScanForChanges(folders);
      a.pair().subScanAgain(folders);
    }
    EXPECT_EQ((a.clock().nowMicroseconds() - now) / 1000, *name == 'x' ? 200 : 250);
  }
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
  for (const char* name : {".rid.kelta", ".kelta.kelta", "mine.kelta.kelta"})
    fs::copy_file(out("mine.kelta"), out(name));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(a.cycle(), "failed:rubbish");
  EXPECT_EQ(a.tree(), "mine=1@10");
  EXPECT_EQ(contentOf(out("rubbish.kelta")), "no archive");
  EXPECT_NE(a.notifications().find("Could not copy rubbish\""), std::string::npos) << a.notifications();
  EXPECT_NE(a.notifications().find("Quarantine for odd.kelta\""), std::string::npos) << a.notifications();
  for (const char* name : {"/odd.kelta\"", "/.rid.kelta\"", "/.kelta.kelta\"", "/mine.kelta.kelta\""})
    EXPECT_NE(platform::utf8(a.handler().getQuarantineAsJSON()).find(name), std::string::npos) << name;
}

TEST_F(Scenario, WithoutAKeyNothingIsWrittenAndNothingLost) {
  put(in(a, "x"), "1", 10);
  a.handler().clearAssets();
  EXPECT_EQ(a.cycle(), "failed:x");
  EXPECT_EQ(namesOf(a.outside()), "");
  a.handler().setAssetKey(L"main", testKey());
  a.cycle();
  b.handler().clearAssets();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(b.cycle(), "failed:x");
  const std::string reason = "\"Could not copy x\",\"more\":\"no key for the file's content\"}";
  EXPECT_EQ(b.notifications(), "{\"notifications\":[{\"type\":\"SYNC\",\"message\":" + reason + "]}");
  b.clock().advance(91000);
  b.cycle();
  EXPECT_NE(b.notifications().find("\"Quarantine for x\""), std::string::npos) << b.notifications();
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
  put(in(a, "x"), "0", 5);
  converge();
  for (const char* name : {"x", "y", "z"}) put(in(a, name), "1", 10);
  a.pair().scanSrcChanges();
  fs::remove_all(a.temp());
  put(a.temp(), "a file in the Temp folder's place", 10);
  const std::int64_t before = a.clock().nowMicroseconds();
  a.pair().syncChanges();
  EXPECT_EQ((a.clock().nowMicroseconds() - before) / 1000, 4 * 4000) << "all together";
  EXPECT_NE(a.notifications().find("Could not copy x"), std::string::npos);
  fs::remove(a.temp());
  a.pair().endCycle();
  fs::remove(in(a, "x"));
  EXPECT_EQ(a.cycle(), "encrypt:y.kelta encrypt:z.kelta delete:x.kelta");
  converge();
}

// The file is written to at every look that the engine takes at it, so no copy may count.
TEST_F(Scenario, AFileThatChangesWhileItIsCopiedIsCopiedAgain) {
  const auto clock = std::make_shared<HookClock>();
  Device c(folder / "c", folder / "outside-c", clock);
  const auto lookAgain = [&] {
    c.pair().subScanForChanges({platform::wideOf(c.inside())});
    c.pair().subResolve();
    const std::string listed = platform::utf8(c.pair().waiting().asJSON());
    const std::string start = "changing\",\"seconds\":";
    const std::size_t at = listed.find(start);
    return at == std::string::npos ? -1 : std::stoi(listed.substr(at + start.size()));
  };
  c.pair().setPace(0);
  put(in(c, "x"), std::string(300000, 'x'), 10);
  {
    const std::int64_t now = c.clock().nowSeconds() - kEpoch - 5;
    put(in(c, "held"), "content", now);
    fs::ofstream writer(in(c, "held"), std::ios::app);
    platform::setLastWriteTime(in(c, "held"), (kEpoch + now) * 1000000000);
    lookAgain();
    EXPECT_EQ(namesOf(c.outside()), "x.kelta") << "what a program writes to is left";
  }
  c.clock().advance(2000);
  lookAgain();
  {  // a program that sets an old time when it is done
    const std::int64_t now = c.clock().nowSeconds() - kEpoch - 5;
    put(in(c, "held"), "restored", now);
    fs::ofstream writer(in(c, "held"), std::ios::app);
    platform::setLastWriteTime(in(c, "held"), (kEpoch + now) * 1000000000);
    lookAgain();
  }
  platform::setLastWriteTime(in(c, "held"), (kEpoch + 5) * 1000000000);
  c.start();
  c.clock().advance(2000);
  c.pair().setPace(0);
  lookAgain();
  int writes = 0;
  clock->onLook = [&] {
    ++writes;
    put(in(c, "x"), std::string(300000, 'x') + std::to_string(writes), 10 + writes);
  };
  std::string distances;
  for (int i = 0; i < 8; ++i) {
    const int seconds = lookAgain();
    distances += std::to_string(seconds) + " ";
    EXPECT_EQ(lookAgain(), seconds) << "looked at before its time";
    clock->advance(seconds * 1000);
  }
  EXPECT_EQ(distances, "1 2 4 8 16 32 60 60 ");
  EXPECT_TRUE(c.bin().contents().empty());
  clock->onLook = nullptr;
  const std::string last = contentOf(in(c, "x"));
  for (int i = 0; i < 4; ++i) c.cycle();
  EXPECT_EQ(c.cycle(), "");
  Device d(folder / "d", folder / "outside-c");
  d.cycle();
  EXPECT_EQ(contentOf(in(d, "x")), last);
  EXPECT_EQ(contentOf(in(d, "held")), "restored");
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

// The folder of a cloud client that keeps times in steps of two seconds, rounded down or up once it has seen a file.
class CoarseTimes : public Scenario, public ::testing::WithParamInterface<std::tuple<bool, bool, int>> {
protected:
  CoarseTimes() { b.setNames(std::get<1>(GetParam())); }

  static void put(const fs::path& file, const std::string& content, std::int64_t time) {
    test::put(file, content, time);
    platform::setLastWriteTime(file, (kEpoch + time) * 1000000000 + std::get<2>(GetParam()));
  }
  std::string cycle(Device& device) {
    constexpr std::int64_t step = 2000000000;
    const std::string events = device.cycle();
    for (const fs::directory_entry& entry : fs::directory_iterator(device.outside())) {
      const std::int64_t time = platform::stampOf(entry.path()).nanoseconds;
      const std::int64_t up = std::get<0>(GetParam()) ? step - 1 : 0;
      platform::setLastWriteTime(entry.path(), (time + up) / step * step);
    }
    return events;
  }
  void quiet() {
    std::string events = "?";
    for (int round = 0; round < 4 && !events.empty(); ++round) events = cycle(a) + cycle(b);
    EXPECT_EQ(events, "") << "never quiet";
    EXPECT_EQ(contents(a), contents(b));
  }
  static std::multiset<std::string> contents(const Device& device) {
    std::multiset<std::string> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(device.inside()))
      if (entry.path().filename() != ".rid") found.insert(contentOf(entry.path()));
    return found;
  }
};

TEST_P(CoarseTimes, EndQuietAndLoseNothing) {
  put(in(a, "alike"), "alike", 21);
  put(in(b, "alike"), "alike", 21);
  put(in(a, "x"), "from a", 21);
  put(in(b, "x"), "from b", 21);
  put(in(a, "y"), "1", 21);
  quiet();
  auto kept = contents(a);
  for (const std::string& content : a.bin().contents()) kept.insert(content);
  EXPECT_TRUE(kept.count("from a") > 0 && kept.count("from b") > 0);
  EXPECT_EQ(contents(a).count("alike"), 1U);
  const auto bin = a.bin().contents().size();
  put(in(b, "y"), "2", 25);
  quiet();
  put(in(a, "y"), "3", 27);
  quiet();
  EXPECT_EQ(contents(a).count("3"), 1U);
  EXPECT_EQ(a.bin().contents().size(), bin) << "an edit that was carried over";
  fs::rename(in(b, "y"), in(b, "z"));
  quiet();
  EXPECT_EQ(contentOf(in(a, "z")), "3");
  for (const char* name : {"alike", "x", "z"}) fs::remove(in(a, name));
  quiet();
  EXPECT_EQ(contents(b).count("alike") + contents(b).count("3"), 0U) << "came back";
}

TEST_F(Scenario, EditsOneSecondApartAreNoTie) {
  for (const std::int64_t fraction : {0, 300000000}) {
    for (const int time : {20, 21}) {
      const std::string name = std::to_string(time) + "." + std::to_string(fraction);
      for (Device* device : {&a, &b}) {
        put(in(*device, name), device == &a ? "older " + name : "newer " + name, 0);
        const std::int64_t seconds = kEpoch + time + (device == &a ? 0 : 1);
        platform::setLastWriteTime(in(*device, name), seconds * 1000000000 + fraction);
      }
      converge();
      EXPECT_EQ(contentOf(in(a, name)), "newer " + name);
      EXPECT_TRUE(a.bin().holds("older " + name));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Table, CoarseTimes,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool(), ::testing::Values(0, 400000000)));

// As editors do that save by writing a draft and renaming it.
TEST_F(Scenario, ADraftTakesTheFilesPlaceWithinOneSecond) {
  const std::int64_t second = a.clock().nowSeconds() - kEpoch - 2;
  const auto save = [&](const char* name, const char* content, std::int64_t milliseconds) {
    put(in(a, name), content, second);
    platform::setLastWriteTime(in(a, name), (kEpoch + second) * 1000000000 + milliseconds * 1000000);
  };
  a.pair().setPace(0);
  save("x", "first", 200);
  a.cycle();
  b.cycle();
  save("draft", "other", 300);
  fs::rename(in(a, "draft"), in(a, "x"));
  a.pair().subScanForChanges({platform::wideOf(a.inside())});
  a.pair().subResolve();
  b.cycle();
  EXPECT_EQ(contentOf(in(b, "x")), "other");
  for (Device* device : {&a, &b}) device->clock().advance(100);
  save("x", "third", 1300);  // not newer than the time under which the draft was given on
  EXPECT_EQ(a.cycle(), "encrypt:x.kelta");
  EXPECT_LE(platform::stampOf(out("x.kelta")).nanoseconds, a.clock().nowMicroseconds() * 1000);
  b.clock().advance(9000);
  EXPECT_EQ(b.cycle(), "decrypt:x");
  EXPECT_EQ(contentOf(in(b, "x")), "third");
  EXPECT_EQ(a.cycle(), "");
  if (namesByDefault()) return;  // they change with the key, and a device that had the former one cannot tell
  // Its times differ, then its archive's hash does, and then its name.
  EXPECT_TRUE(b.changeKey(L"another key"));
  b.setNames(true);
  EXPECT_TRUE(b.resetNames());
  a.handler().setAssetKey(L"main", L"another key");
  fs::remove(in(a, "x"));
  a.cycle();
  EXPECT_EQ(namesOf(a.outside()) + a.tree(), "");
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
