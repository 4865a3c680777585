// SPDX-License-Identifier: Apache-2.0
// The user, another device or the cloud client acting at the worst moment, and volumes that come and go.
#include <gtest/gtest.h>

#include "archive/zip/ArchiveEngine.h"
#include "support/Device.h"

namespace Kelta {
namespace test {
namespace {

class Adversity : public ::testing::Test {
protected:
  Adversity()
      : clock(std::make_shared<HookClock>()),
        a(folder / "a", folder / "outside", clock),
        b(folder / "b", folder / "outside") {}
  void converge() {
    for (int i = 0; i < 6 && !(a.cycle() + b.cycle()).empty(); ++i) {
    }
    EXPECT_EQ(a.tree(), b.tree());
  }
  fs::path in(const Device& d, const std::string& e) { return d.inside() / e; }
  fs::path out(const std::string& e) { return a.outside() / e; }
  TempFolder folder;
  std::shared_ptr<HookClock> clock;
  Device a;
  Device b;
};

// User edits the target during the pause before/between attempts
TEST_F(Adversity, TargetEditedDuringARetryPause) {
  put(in(a, "x"), "0", 1);
  converge();
  put(in(b, "x"), "from b", 10);
  b.cycle();
  a.pair().scanSrcChanges();
  a.pair().scanDestChanges();
  const fs::path parked = folder / "parked";
  fs::rename(a.temp(), parked);
  put(a.temp(), "access error", 0);
  clock->onPause = [&](std::int64_t ms) {
    if (ms != 1000 || fs::is_directory(a.temp())) return;
    fs::remove(a.temp());
    fs::rename(parked, a.temp());
    put(in(a, "x"), "saved by the user", 500);
  };
  a.pair().syncChanges();
  EXPECT_EQ(contentOf(in(a, "x")), "saved by the user");
}
TEST_F(Adversity, TargetEditedWhileTheRunningSecondIsWaitedOut) {
  put(in(a, "x"), "0", 1);
  converge();
  put(in(b, "x"), "from b", clock->nowSeconds() - kEpoch - 5);
  b.cycle();
  const std::int64_t now = clock->nowSeconds();
  platform::setLastWriteTime(out("x.kelta"), now * 1000000000);
  a.pair().scanSrcChanges();
  a.pair().scanDestChanges();
  const std::int64_t second = clock->nowSeconds();
  platform::setLastWriteTime(out("x.kelta"), second * 1000000000);
  clock->onPause = [&](std::int64_t) {
    put(in(a, "x"), "saved by the user", second + 1 - kEpoch);
    clock->onPause = nullptr;
  };
  a.pair().syncChanges();
  EXPECT_EQ(contentOf(in(a, "x")), "saved by the user");
}

// Edit right behind the placement, within two seconds of the source's time: time put back
TEST_F(Adversity, AnEditRightAfterThePlacementIsSeen) {
  put(in(b, "x"), "from b", 10);
  b.cycle();
  clock->onLook = [&] {
    if (!fs::exists(in(a, "x"))) return;
    clock->onLook = nullptr;
    put(in(a, "x"), "edited by the user at once", 11);
  };
  a.cycle();
  clock->onLook = nullptr;
  converge();
  EXPECT_EQ(contentOf(in(b, "x")), "edited by the user at once");
}
// The source goes between the scan and the copy, or while it is copied, for good or for a folder: nothing has failed
TEST_F(Adversity, ASourceDeletedBeforeItsCopyTravelsAsADeletion) {
  for (const std::string when : {"before", "during", "for a folder"}) {
    SCOPED_TRACE(when);
    put(in(a, "x"), "0", 1);
    converge();
    put(in(a, "x"), "edited", 10);
    a.pair().scanSrcChanges();
    a.pair().scanDestChanges();
    const auto go = [&] {
      fs::remove(in(a, "x"));
      if (when == "for a folder") fs::create_directory(in(a, "x"));
    };
    if (when == "before") go();
    clock->onLook = [&] {
      if (fs::is_regular_file(in(a, "x")) && !a.leftovers().empty()) go();
    };
    a.pair().syncChanges();
    clock->onLook = nullptr;
    a.pair().endCycle();
    ASSERT_FALSE(fs::is_regular_file(in(a, "x")));
    EXPECT_EQ(a.notifications().find("Could not"), std::string::npos) << a.notifications();
    EXPECT_EQ(a.pair().srcStateList.size() + a.pair().destStateList.size(), 2U) << "known until it is carried over";
    EXPECT_EQ(a.cycle().substr(0, 14), "delete:x.kelta");
    EXPECT_EQ(b.cycle().substr(0, 8), "delete:x");
    fs::remove_all(in(a, "x"));
    converge();
  }
}
TEST_F(Adversity, AFileLockedInOnePassAndCopiedAfterTheNextIsToldOnce) {
  put(in(a, "x"), "1", 10);
  put(in(a, "y"), "1", 10);
  auto held = std::make_unique<HeldFile>(in(a, "x"));
  clock->onPause = [&](std::int64_t) { held.reset(); };
  EXPECT_EQ(a.cycle(), "encrypt:x.kelta encrypt:y.kelta");
  clock->onPause = nullptr;
  const std::string told = a.notifications();
  EXPECT_EQ(told.find("Could not"), std::string::npos) << told;
  EXPECT_EQ(told.find("Encrypted x"), told.rfind("Encrypted x")) << told;
}
TEST_F(Adversity, ACopyRemovedRightAfterThePlacementIsNotForgotten) {
  put(in(a, "x"), "from a", 10);
  clock->onLook = [&] {
    if (!fs::exists(out("x.kelta"))) return;
    clock->onLook = nullptr;
    fs::remove(out("x.kelta"));
  };
  a.cycle();
  clock->onLook = nullptr;
  for (int i = 0; i < 3; ++i) a.cycle();
  EXPECT_EQ(fs::exists(in(a, "x")), fs::exists(out("x.kelta")));
}

// Archive given up for want of a key is overwritten / deleted / never healed
class GivenUp : public Adversity {
protected:
  void SetUp() override {
    put(in(a, "x"), "0", 1);
    converge();
    a.handler().clearAssets();
    a.handler().setAssetKey(L"other", std::wstring(64, L'3'));
    a.handler().setAssetKey(L"main", testKey());
    put(in(a, "x"), "a's precious work", 20);
    a.cycle();
    b.cycle();
    b.clock().advance(91000);
    b.cycle();
    ASSERT_NE(platform::utf8(b.handler().getQuarantineAsJSON()).find("no-key"), std::string::npos);
    archive = contentOf(out("x.kelta"));
  }
  std::string archive;
};
TEST_F(GivenUp, IsNeitherOverwrittenNorDeleted) {
  put(in(b, "x"), "edit of the old version", 30);
  for (int i = 0; i < 2; ++i) b.cycle();
  EXPECT_TRUE(contentOf(out("x.kelta")) == archive);
  fs::remove(in(b, "x"));
  b.cycle();
  EXPECT_TRUE(contentOf(out("x.kelta")) == archive);
}
TEST_F(GivenUp, IsQuietUntilTheKeyComes) {
  b.cycle();
  EXPECT_EQ(b.cycle(), "");
  EXPECT_EQ(b.tree(), "x=0@1");
  b.start();
  b.handler().setAssetKey(L"other", std::wstring(64, L'3'));
  for (int i = 0; i < 3; ++i) b.cycle();
  EXPECT_EQ(b.tree(), "x=a's precious work@20");
}
TEST_F(GivenUp, ComesWithTheKeyWithoutARestart) {
  b.handler().setAssetKey(L"other", std::wstring(64, L'3'));
  for (int i = 0; i < 3; ++i) b.cycle();
  EXPECT_EQ(b.tree(), "x=a's precious work@20");
}
TEST_F(Adversity, ANewFileComesWithTheKeyWithoutARestart) {
  a.handler().clearAssets();
  a.handler().setAssetKey(L"other", std::wstring(64, L'3'));
  put(in(a, "x"), "new", 20);
  a.cycle();
  b.cycle();
  b.clock().advance(91000);
  b.cycle();
  b.handler().setAssetKey(L"other", std::wstring(64, L'3'));
  for (int i = 0; i < 3; ++i) b.cycle();
  EXPECT_EQ(b.tree(), "x=new@20");
}
TEST_F(Adversity, ForeignEntriesAreNotUnpacked) {
  put(in(a, "x"), "genuine", 10);
  a.cycle();
  // a bomb beside the genuine content: unencrypted entry added with the update function
  const fs::path bomb = folder / "bomb";
  {
    std::ofstream s(standard(bomb), std::ios::binary);
    std::string mb(1 << 20, '\0');
    for (int i = 0; i < 300; ++i) s << mb;
  }
  zip::ArchiveEngine engine;
  zip::EntryOptions options;
  options.setCompression(zip::kDeflated, 9);
  engine.addFile(bomb, "bomb", options);
  engine.setWriteFlags(zip::ArchiveEngine::kReplaceTarget);
  engine.updateArchive(out("x.kelta"));
  platform::setLastWriteTime(out("x.kelta"), (kEpoch + 50) * 1000000000);
  std::uintmax_t most = 0;
  clock->onLook = [&] {
    std::uintmax_t sum = 0;
    boost::system::error_code e;
    for (fs::recursive_directory_iterator it(a.temp(), e), end; !e && it != end; it.increment(e))
      if (fs::is_regular_file(it->path(), e)) sum += fs::file_size(it->path(), e);
    most = std::max(most, sum);
  };
  a.cycle();
  clock->onLook = nullptr;
  EXPECT_LT(most, 10000000u);
}

// Roots and subfolders
TEST_F(Adversity, AReplacedRootWithItsOwnMarkerIsNoMassDeletion) {
  // First start on the bare mount point: the engine marks it.
  Device c(folder / "c", folder / "outside-c");
  c.cycle();
  fs::rename(c.inside(), folder / "bare");
  fs::create_directory(c.inside());  // the volume
  put(in(c, "one"), "1", 10);
  put(in(c, "dir/two"), "2", 10);
  c.start();
  c.cycle();
  ASSERT_EQ(namesOf(c.outside()), "dir/ dir/two.kelta one.kelta");
  fs::rename(c.inside(), folder / "volume");  // unmounted
  fs::rename(folder / "bare", c.inside());
  c.start();
  c.cycle();
  EXPECT_EQ(namesOf(c.outside()), "dir/ dir/two.kelta one.kelta");
}
TEST_F(Adversity, AMountPointThatIsMarkedLikeTheOutsideIsNoMassDeletion) {
  Device c(folder / "c", folder / "outside-c");
  c.cycle();
  fs::rename(c.outside(), folder / "bare");
  fs::create_directory(c.outside());  // the volume
  put(in(c, "one"), "1", 10);
  c.start();
  c.cycle();
  ASSERT_EQ(namesOf(c.outside()), "one.kelta");
  fs::rename(c.outside(), folder / "volume");  // unmounted
  fs::rename(folder / "bare", c.outside());
  EXPECT_EQ(c.cycle(), "");
  EXPECT_FALSE(c.pair().ok());
  c.start();
  EXPECT_EQ(c.cycle(), "encrypt:one.kelta") << "merged";
  fs::rename(c.outside(), folder / "bare");
  fs::rename(folder / "volume", c.outside());
  EXPECT_EQ(c.cycle(), "");
  EXPECT_TRUE(c.pair().ok());
  EXPECT_EQ(c.tree(), "one=1@10");
}
// The Outside's marker: one for all devices, whoever placed it, and whatever a cloud client does to it
TEST_F(Adversity, TheOutsidesMarkerIsTheSameEverywhere) {
  const std::string text = "This folder holds encrypted files. Deleting this file does no harm.\n";
  fs::remove(out(".kelta"));
  put(out(".kelta"), text + "1234-56-789-10-\n", 0);  // of an earlier version
  put(in(a, "top/x"), "1", 10);
  a.cycle();
  const std::string marker = contentOf(out(".kelta"));
  Device c(folder / "c", folder / "outside-c");
  put(in(c, "other"), "1", 10);
  c.cycle();
  EXPECT_EQ(contentOf(c.outside() / ".kelta"), marker);
  c.changeKey(std::wstring(64, L'5'));
  c.cycle();
  EXPECT_EQ(contentOf(c.outside() / ".kelta"), marker);

  // An earlier version's marker arrives together with a rename that leaves nothing where it was.
  for (const char* const name : {"renamed", "again"}) {
    fs::remove(out(".kelta"));
    put(out(".kelta"), text + "99-88-77-66-\n", 20);
    for (const char* copy :
         {".kelta (Ann's conflicted copy 2024-05-01)", " (conflicted copy).kelta", ".kelta-DESKTOP-1A2B3C4"})
      put(out(copy), text + "1-2-3-4-\n", 0);
    put(out(".kelta (1)"), "the user's", 0);
    fs::rename(out(treeOf(a.inside()).substr(0, a.tree().find('/'))), out(name));
    a.cycle();
    EXPECT_TRUE(a.pair().ok());
    EXPECT_EQ(a.tree(), std::string(name) + "/ " + name + "/x=1@10");
    EXPECT_EQ(namesOf(a.outside()), std::string(".kelta (1) ") + name + "/ " + name + "/x.kelta");
    EXPECT_EQ(contentOf(out(".kelta")), marker);
    a.start();
  }
}
TEST_F(Adversity, NothingIsMarkedBeforeThereIsAKey) {
  fs::remove(out(".kelta"));
  a.handler().clearAssets();
  fs::create_directory(in(a, "d"));
  a.cycle();
  EXPECT_EQ(namesOf(a.outside()), "d/");
  EXPECT_FALSE(fs::exists(out(".kelta")));
  a.handler().setAssetKey(L"main", testKey());
  a.cycle();
  EXPECT_TRUE(fs::exists(out(".kelta")) && a.pair().ok());
}
TEST_F(Adversity, ASubfolderThatBecameALinkIsNoMassDeletion) {
  put(in(a, "dir/one"), "1", 10);
  put(in(a, "dir/sub/two"), "2", 10);
  a.cycle();
  fs::rename(in(a, "dir"), folder / "elsewhere");
  if (!makeLink(folder / "elsewhere", in(a, "dir"))) GTEST_SKIP() << "no symbolic links here";
  a.cycle();
  EXPECT_EQ(namesOf(a.outside()), "dir/ dir/one.kelta dir/sub/ dir/sub/two.kelta");
  fs::rename(folder / "elsewhere", folder / "unplugged");
  a.cycle();
  EXPECT_EQ(namesOf(a.outside()), "dir/ dir/one.kelta dir/sub/ dir/sub/two.kelta");
}

// Times that went backwards
TEST_F(Adversity, AnUnseenOlderVersionIsNotDeleted) {
  put(in(a, "x"), "old", 20);
  converge();
  fs::remove(in(b, "x"));
  b.cycle();
  put(in(b, "x"), "restored from a backup", 5);
  b.cycle();
  ASSERT_EQ(platform::stampOf(out("x.kelta")).seconds(), kEpoch + 5);
  fs::remove(in(a, "x"));
  a.cycle();
  EXPECT_TRUE(fs::exists(out("x.kelta"))) << "deleted a version that a never saw";
}
TEST_F(Adversity, AnUnseenOlderVersionIsNotOverwritten) {
  put(in(a, "x"), "old", 20);
  converge();
  put(in(b, "x"), "from b", 30);
  b.cycle();
  put(in(a, "x"), "put back from a backup", 5);  // cp -p
  a.cycle();
  EXPECT_TRUE(a.bin().holds("put back from a backup") || contentOf(in(a, "x")) == "put back from a backup");
}

// A locked target
TEST_F(Adversity, ALockedTargetIsNotReplaced) {
  put(in(a, "x"), "0", 1);
  converge();
  put(in(b, "x"), "from b", 10);
  b.cycle();
  {
    HeldFile held(in(a, "x"));
    a.cycle();
    held.write("UNSAVED WORK");
  }
  EXPECT_EQ(contentOf(in(a, "x")), "UNSAVED WORK");
}

// A conflict on a file that is in use, or is saved at that very moment, or whose folder takes no new name
class Clash : public Adversity {
protected:
  void SetUp() override {
    put(in(a, "x"), "from a", 10);
    put(in(b, "x"), "from b", 10);
    b.cycle();
  }
  void expectBothKept() {
    EXPECT_EQ(a.leftovers(), "");
    EXPECT_EQ(withShortConflicts(a.tree()), "x=from a@10");
    converge();
    EXPECT_EQ(withShortConflicts(a.tree()), "x!=from a@10 x=from b@10");
  }
};
TEST_F(Clash, AFileInUseIsLeftAlone) {
  {
    const HeldFile held(in(a, "x"));
    EXPECT_EQ(a.cycle(), "failed:x");
    EXPECT_NE(a.notifications().find("in use by another program"), std::string::npos);
  }
  expectBothKept();
}
TEST_F(Clash, AFileTakenIntoUseAtTheLastMomentIsLeftAlone) {
  a.pair().scanSrcChanges();
  a.pair().scanDestChanges();
  {
    const HeldFile held(in(a, "x"));
    a.pair().syncChanges();
    a.pair().endCycle();
  }
  expectBothKept();
}
TEST_F(Clash, AnEditAtTheLastMomentIsNewer) {
  int decryptions = 0;
  clock->onLook = [&] {
    if (!fs::exists(a.temp()) || namesOf(a.temp()).find("/Content") == std::string::npos) return;
    if (++decryptions != 2) return;  // the one behind the comparison
    put(in(a, "x"), "saved by the user", 30);
  };
  a.cycle();
  clock->onLook = nullptr;
  EXPECT_EQ(decryptions, 2);
  EXPECT_EQ(contentOf(in(a, "x")), "saved by the user");
  converge();
  EXPECT_EQ(b.tree(), "x=saved by the user@30");
}

// Subset scan skips siblings that sort between "d" and "d/"
TEST_F(Adversity, SubScanSeesDeletionsBesideAFolder) {
  put(in(a, "top/d/file"), "1", 10);
  put(in(a, "top/d.txt"), "1", 10);
  put(in(a, "top/d (copy)"), "1", 10);
  a.cycle();
  fs::remove(in(a, "top/d.txt"));
  fs::remove(in(a, "top/d (copy)"));
  a.pair().subScanForChanges({platform::wideOf(in(a, "top"))});
  a.pair().subResolve();
  EXPECT_EQ(namesOf(out("top")), "d/ d/file.kelta");
}
// A file that gave way to a folder of its name, seen as a watcher tells of it
TEST_F(Adversity, AFolderInAFilesPlaceKeepsItsRecords) {
  put(in(a, "x"), "file", 10);
  converge();
  fs::remove(in(a, "x"));
  put(in(a, "x/in"), "inner", 20);
  a.pair().subScanForChanges({platform::wideOf(a.inside()), platform::wideOf(in(a, "x"))});
  a.pair().subResolve();
  fs::remove_all(in(a, "x"));
  for (int i = 0; i < 3; ++i) a.cycle();
  EXPECT_EQ(namesOf(a.outside()), "");
  EXPECT_EQ(a.tree(), "");
}
// A new folder whose entries are copied before a scan has looked at it
TEST_F(Adversity, ACopiedFolderGetsItsOwnIdentifier) {
  put(in(a, "d/x"), "1", 10);
  a.cycle();
  fs::create_directory(in(a, "e"));
  for (const char* name : {".rid", "x"})
    fs::copy_file(in(a, std::string("d/") + name), in(a, std::string("e/") + name));
  a.pair().subScanForChanges({platform::wideOf(in(a, "e"))});
  a.pair().subResolve();
  a.cycle();
  const auto idOf = [&](const char* name) { return a.pair().getFolderRenameId(platform::wideOf(in(a, name))); };
  EXPECT_NE(idOf("d"), idOf("e"));
}
TEST_F(Adversity, AFolderThatGoesDuringTheResolutionIsKnownOnNoSide) {
  fs::create_directory(in(a, "d"));
  fs::create_directory(out("d"));
  a.pair().scanSrcChanges();
  a.pair().scanDestChanges();
  fs::remove(out("d"));
  a.pair().syncChanges();
  a.pair().endCycle();
  EXPECT_EQ(a.pair().srcStateList.size() + a.pair().destStateList.size(), 0u);
  a.cycle();
  EXPECT_EQ(namesOf(a.outside()), "d/");
}
// One-sided record
TEST_F(Adversity, ARecordRemovedByTheHostIsMergedAgain) {
  put(in(a, "x"), "1", 10);
  converge();
  EXPECT_TRUE(a.pair().stateRemoveRecord(platform::wideOf(in(a, "x"))));
  std::string events;
  for (int i = 0; i < 4; ++i) events = a.cycle();
  EXPECT_EQ(events, "");
  put(in(b, "x"), "2", 20);
  b.cycle();
  for (int i = 0; i < 3; ++i) events = a.cycle();
  EXPECT_EQ(events, "");
  EXPECT_EQ(contentOf(in(a, "x")), "2");
}
// Inside moved to a name of the same length
TEST_F(Adversity, AMovedInsideMerges) {
  Device c(folder / "home1", folder / "outside-c");
  put(in(c, "x"), "1", 10);
  c.cycle();
  fs::rename(folder / "home1", folder / "home2");
  Device d(folder / "home2", folder / "outside-c");
  std::string events;
  for (int i = 0; i < 3; ++i) events = d.cycle();
  EXPECT_EQ(events, "");
}
// Interrupted between the last child and the folder
TEST_F(Adversity, AFolderDeletionSurvivesAnInterruption) {
  put(in(a, "d/x"), "1", 10);
  converge();
  fs::remove_all(in(a, "d"));
  a.pair().interruption()->begin();
  a.pair().setProgress([&](const std::wstring&, const std::wstring&, std::uint64_t, std::uint64_t) {
    a.pair().interruption()->request();
  });
  EXPECT_THROW(a.pair().syncCycle(), boost::thread_interrupted);
  a.pair().interruption()->end();
  a.pair().endCycle();
  a.pair().setProgress({});
  for (int i = 0; i < 3; ++i) a.cycle();
  EXPECT_EQ(fs::exists(in(a, "d")), fs::exists(out("d")));
  a.start();
  a.cycle();
  EXPECT_FALSE(fs::exists(in(a, "d"))) << "came back";
}
// Leftovers of another host name
TEST_F(Adversity, PlaintextLeftByAKilledRunUnderAnotherHostName) {
  put(a.temp() / ".~kelsync-deadbeef-999999-01234567/content/Content", "plain text", 1);
  platform::setLastWriteTime(a.temp() / ".~kelsync-deadbeef-999999-01234567", (kEpoch + 1) * 1000000000);
  a.start();
  EXPECT_EQ(a.leftovers(), "");
}
// Names on the Outside that would lead elsewhere: one more separator, another folder, the folder above
TEST_F(Adversity, ANameThatIsNoNameStandsForNothing) {
  put(in(a, "d/x"), "1", 10);
  a.cycle();
  const std::string archive = contentOf(a.archive("d/x.kelta"));
  const std::string stem(43, 'A');
  for (const std::string& name :
       {"\\" + stem, "d\\" + stem, stem + "\\", "\\\\" + stem, std::string("."), std::string("..")}) {
    const fs::path planted = a.outside() / (name + ".kelta");
    if (planted.filename().size() == name.size() + 6) put(planted, archive, 20);
  }
  for (const bool names : {false, true}) {
    a.setNames(names);
    a.resetNames();
    EXPECT_EQ(a.cycle(), "");
  }
  EXPECT_EQ(a.tree(), "d/ d/x=1@10");
}
}  // namespace
}  // namespace test
}  // namespace Kelta
