// SPDX-License-Identifier: Apache-2.0
// Several devices change the same things: who wins, and where the other version is found.
#include <gtest/gtest.h>

#include <algorithm>

#include "CryptoSyncCopyHandler/CloudNames.h"
#include "CryptoSyncCopyHandler/ConflictName.h"
#include "support/Device.h"

namespace Kelta {
namespace test {
namespace {

class Conflicts : public ::testing::Test {
protected:
  Conflicts() : a(folder / "a", folder / "outside"), b(folder / "b", folder / "outside") {}

  void quiet(std::vector<Device*> devices, int rounds = 6) {
    std::string events = "?";
    for (; !events.empty() && rounds > 0; --rounds) {
      events.clear();
      for (Device* device : devices) events += device->cycle();
    }
    EXPECT_EQ(events, "") << "never quiet";
    for (Device* device : devices) {
      EXPECT_EQ(device->tree(), a.tree());
      EXPECT_EQ(device->leftovers(), "");
    }
  }
  void quiet() { quiet({&a, &b}); }
  fs::path in(const Device& device, const std::string& entry) { return device.inside() / entry; }
  fs::path out(const std::string& entry) { return a.archive(entry); }
  /// A version of a file tells which file it is of, since the recycle bin may name it otherwise.
  static void putVersion(const fs::path& file, const std::string& version, std::int64_t time) {
    put(file, version + " of " + platform::utf8(file.filename()) + ".", time);
  }
  static std::string versionIn(const fs::path& file) {
    const std::string content = contentOf(file);
    return content.substr(0, content.find(" of "));
  }
  /// Where the versions of a file are: "its content !conflict copy bin:thrown away".
  std::string versionsOf(const std::string& name) {
    std::multiset<std::string> plain, copies, bin;
    for (const fs::directory_entry& entry : fs::directory_iterator(a.inside())) {
      const std::string file = withShortConflicts(platform::utf8(entry.path().filename()));
      if (file == name) plain.insert(versionIn(entry.path()));
      if (file == name + "!") copies.insert("!" + versionIn(entry.path()));
    }
    for (const std::string& content : a.bin().contents()) {
      const std::size_t end = content.find(" of " + name + ".");
      if (end != std::string::npos) bin.insert("bin:" + content.substr(0, end));
    }
    std::string text;
    for (const auto* part : {&plain, &copies, &bin})
      for (const std::string& version : *part) text += (text.empty() ? "" : " ") + version;
    return text;
  }

  TempFolder folder;
  Device a;
  Device b;
};

// Both devices have "0" of time 10 where one of them edits or deletes. The three results are for a change of b that is
// older than a's, as old, and newer; a deletion is as old as what it deletes.
TEST_F(Conflicts, EveryPairOfChangesEndsEqualAndLosesNothing) {
  const struct {
    std::string a, b;
    const char* older;
    const char* equal;
    const char* newer;
  } table[] = {
      {"nothing", "nothing", "0", "0", "0"},
      {"nothing", "edit", "B", "B", "B"},
      {"nothing", "delete", "bin:0", "bin:0", "bin:0"},
      {"nothing", "add", "B", "B", "B"},
      {"edit", "nothing", "A", "A", "A"},
      {"edit", "edit", "A bin:B", "A !B", "B bin:A"},
      {"edit", "delete", "A", "A", "A"},
      {"edit", "add", "A bin:B", "A !B", "B bin:A"},
      {"delete", "nothing", "bin:0", "bin:0", "bin:0"},
      {"delete", "edit", "B", "B", "B"},
      {"delete", "delete", "", "", ""},
      {"delete", "add", "B", "B", "B"},
      {"add", "nothing", "A", "A", "A"},
      {"add", "edit", "A bin:B", "A !B", "B bin:A"},
      {"add", "delete", "A", "A", "A"},
      {"add", "add", "A bin:B", "A !B", "B bin:A"},
  };
  const auto known = [](const std::string& one, const std::string& two) {
    return one == "edit" || one == "delete" || two == "edit" || two == "delete" || one == two;
  };
  const auto nameOf = [](std::size_t row, int age) {
    return "row" + std::to_string(10 * row + 100) + "-" + std::to_string(age);
  };
  std::size_t row = 0;
  for (const auto& entry : table) {
    for (int age = 0; age < 3; ++age)
      if (known(entry.a, entry.b) && entry.a + entry.b != "addadd") putVersion(in(a, nameOf(row, age)), "0", 10);
    ++row;
  }
  quiet();
  const auto change = [&](const std::string& what, const fs::path& file, const char* content, int time) {
    if (what == "delete" || what == "add") fs::remove(file);
    if (what == "edit" || what == "add") putVersion(file, content, time);
  };
  row = 0;
  for (const auto& entry : table) {
    for (int age = 0; age < 3; ++age) {
      const int againstDeletion[] = {5, 10, 60};
      const int timeA = entry.b == "delete" ? againstDeletion[2 - age] : 50;
      const int timeB = entry.a == "delete" ? againstDeletion[age] : 40 + 10 * age;
      change(entry.a, in(a, nameOf(row, age)), "A", timeA);
      change(entry.b, in(b, nameOf(row, age)), "B", timeB);
    }
    ++row;
  }
  quiet();
  const std::string told = a.notifications() + b.notifications();
  row = 0;
  for (const auto& entry : table) {
    const char* const expected[] = {entry.older, entry.equal, entry.newer};
    for (int age = 0; age < 3; ++age) {
      const std::string versions = versionsOf(nameOf(row, age));
      EXPECT_EQ(versions, expected[age]) << entry.a << " " << entry.b << " " << age;
      const std::string words = "the other version of " + nameOf(row, age) + " was put into the recycle bin";
      EXPECT_EQ(told.find(words) != std::string::npos, versions.find(" bin:") != std::string::npos) << words;
    }
    ++row;
  }
}

TEST(ConflictName, StaysInItsFolder) {
  const std::wstring file = L"/my.docs/fifteen letters.kelta_conflict";
  EXPECT_EQ(conflictNameOf(file, 0).substr(0, file.size() + 1), file + L".");
  const std::wstring copy = conflictNameOf(L"/a", 0);
  EXPECT_EQ(conflictNameOf(copy, 60).substr(0, 12), L"/a.19700101-");
  EXPECT_EQ(conflictNameOf(copy, 60).size(), copy.size());
}

// A deletion and a change of equal time meet when the records of the two sides differ.
TEST_F(Conflicts, ADeletionLosesATie) {
  for (const char* name : {"gone inside", "gone outside", "gone on both"}) put(in(a, name), "0", 10);
  quiet();
  const auto forget = [&](const fs::path& path) { EXPECT_TRUE(a.pair().stateRemoveRecord(platform::wideOf(path))); };
  forget(out("gone inside.kelta"));
  forget(in(a, "gone outside"));
  for (const char* name : {"gone inside", "gone on both"}) fs::remove(in(a, name));
  for (const char* name : {"gone outside", "gone on both"}) fs::remove(out(name + std::string(".kelta")));
  EXPECT_EQ(a.cycle(), "encrypt:gone outside.kelta decrypt:gone inside");
  quiet();
  EXPECT_EQ(a.tree(), "gone inside=0@10 gone outside=0@10");
  EXPECT_EQ(a.pair().srcStateList.count(platform::wideOf(in(a, "gone on both"))), 0u);
}

TEST_F(Conflicts, TheBinOfAVolumeThatIsTheInsideStaysHere) {
  const char* const bin = fs::path::preferred_separator == '/' ? ".Trash-1000" : "$RECYCLE.BIN";
  put(a.inside() / bin / "thrown away", "0", 10);
  put(a.inside() / "x", "0", 10);
  EXPECT_EQ(a.cycle(), "encrypt:x.kelta");
}

// On one device the whole folder goes, on the other something happens in it.
TEST_F(Conflicts, WhatIsAliveBelowADeletedFolderKeepsIt) {
  const struct {
    std::string file;
    bool removed;
    const char* left;
  } table[] = {
      {"", false, ""},
      {"x", true, ""},
      {"x", false, "d/ d/x=new@20"},
      {"sub/y", false, "d/ d/sub/ d/sub/y=new@20"},
      {"sub/added", false, "d/ d/sub/ d/sub/added=new@20"},
  };
  for (Device* deleter : {&a, &b}) {
    Device& other = deleter == &a ? b : a;
    for (const auto& row : table) {
      put(in(a, "d/x"), "0", 10);
      put(in(a, "d/sub/y"), "0", 10);
      quiet();
      fs::remove_all(in(*deleter, "d"));
      if (row.removed) fs::remove(in(other, "d/" + row.file));
      if (!row.removed && !row.file.empty()) put(in(other, "d/" + row.file), "new", 20);
      quiet();
      EXPECT_EQ(a.tree(), row.left) << row.file;
      fs::remove_all(in(a, "d"));
      quiet();
    }
  }
}

TEST_F(Conflicts, ThreeDevicesClashOnTwentyFiles) {
  Device c(folder / "c", folder / "outside");
  const std::vector<Device*> devices{&a, &b, &c};
  std::map<std::string, std::set<std::string>> written;
  for (int i = 0; i < 20; ++i) {
    const std::string name = "f" + std::to_string(i);
    const char* const versions[] = {"000", "012", "001", "011"};  // which devices agree
    for (int device = 0; device < 3; ++device) {
      const std::string content = name + " version " + versions[i % 4][device];
      put(in(*devices[static_cast<std::size_t>(device)], name), content, 10);
      written[name].insert(content);
    }
  }
  quiet(devices, 5);
  for (const auto& file : written) {
    std::set<std::string> found;
    std::size_t files = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(a.inside())) {
      const std::string name = platform::utf8(entry.path().filename());
      const std::string shortName = withShortConflicts(name);
      if (shortName != file.first && shortName.compare(0, file.first.size() + 1, file.first + "!") != 0) continue;
      EXPECT_LE(std::count(shortName.begin(), shortName.end(), '!'), 1) << name;
      found.insert(contentOf(entry.path()));
      ++files;
    }
    EXPECT_EQ(found, file.second);
    EXPECT_LE(files, 3u) << file.first;
    EXPECT_EQ(files == 1, file.second.size() == 1) << file.first;
  }
  EXPECT_EQ(c.notifications().find("ERROR"), std::string::npos);
  EXPECT_NE(c.notifications().find("Conflict: the version of f1 from here was kept as f1."), std::string::npos);
}

// What a killed run left behind, step by step, with and without a record of the plain name.
TEST_F(Conflicts, AConflictCopyThatWasCutShortIsCompleted) {
  const std::string suffix = ".20240501-101500-12ab.kelta_conflict";
  for (const bool known : {false, true}) {
    for (const std::string stoppedAfter : {"move", "place", "everything"}) {
      const std::string name = std::string(known ? "known-" : "new-") + stoppedAfter;
      if (known) putVersion(in(a, name), "0", 1);
      quiet();
      putVersion(in(a, name), "from a", 10);
      putVersion(in(b, name), "from b", 10);
      a.cycle();
      fs::rename(b.state(), folder / "parked");
      fs::create_directory(b.state());
      for (const fs::directory_entry& entry : fs::directory_iterator(folder / "parked"))
        if (fs::is_regular_file(entry)) fs::copy_file(entry, b.state() / entry.path().filename());
      b.start();
      if (stoppedAfter == "everything") {
        b.cycle();
      } else {
        fs::rename(in(b, name), in(b, name + suffix));
        if (stoppedAfter == "place") putVersion(in(b, name), "from a", 10);
      }
      fs::remove_all(b.state());
      fs::rename(folder / "parked", b.state());
      b.start();
      quiet();
      EXPECT_EQ(versionsOf(name), "from a !from b");
    }
  }
}

TEST_F(Conflicts, WhatCannotBecomeAConflictCopyIsLeftAloneAndTold) {
  const std::size_t folderLength = std::max(in(b, "").size(), out("").size());
  // An archive's suffix fits, a conflict copy's does not. With its dot the name looks like no encrypted one.
  const std::string longName = "l." + std::string(238 - folderLength, 'l');
  put(in(a, longName), "from a", 10);
  put(in(b, longName), "from b", 10);
  a.cycle();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(b.cycle(), "failed:" + longName);
  EXPECT_EQ(contentOf(in(a, longName)) + contentOf(in(b, longName)), "from afrom b");
  EXPECT_NE(platform::utf8(b.handler().getQuarantineAsJSON()).find("Path too long for a conflict copy"),
            std::string::npos);
  const std::string told = b.notifications();
  EXPECT_NE(told.find("Quarantine, path too long: l"), std::string::npos);
  EXPECT_EQ(told.find("Quarantine, path too long: l"), told.rfind("Quarantine, path too long: l"));
  EXPECT_NE(told.find("Could not copy l"), std::string::npos);
  put(in(b, longName), "from a", 10);
  quiet();
  EXPECT_EQ(b.handler().getQuarantineAsJSON(), L"{\"quarantined\":[]}");
}

TEST_F(Conflicts, AConflictCopyMakesNoOther) {
  const std::string name = "x.20240501-101500-12ab.kelta_conflict";
  put(in(a, name), "from a", 10);
  put(in(b, name), "from b", 10);
  quiet();
  EXPECT_EQ(a.tree(), name + "=from a@10");
  EXPECT_TRUE(a.bin().holds("from b"));
}

TEST_F(Conflicts, AReadOnlyFileBecomesAConflictCopyAsWell) {
  for (Device* device : {&a, &b}) putVersion(in(*device, "x"), device == &a ? "from a" : "from b", 10);
  fs::permissions(in(b, "x"), fs::owner_read);
  quiet();
  EXPECT_EQ(versionsOf("x"), "from a !from b");
}

TEST(CloudNames, TheAddedTextMovesBeforeTheExtension) {
  const struct {
    const char* archive;
    const char* plain;  // empty: nothing was added, or it stands where it should
  } table[] = {
      {"x.txt (Ann's conflicted copy 2024-05-01).kelta", "x (Ann's conflicted copy 2024-05-01).txt"},
      {"x.txt (conflicted copy 2024-05-01 101500) (Ann's conflicted copy 2024-05-02).kelta",
       "x (conflicted copy 2024-05-01 101500) (Ann's conflicted copy 2024-05-02).txt"},
      {"x.txt.kelta (Ann's conflicted copy 2024-05-01)", "x (Ann's conflicted copy 2024-05-01).txt"},
      {"x.txt (SFConflict ann@home 2024-05-01-10-15-00).kelta", "x (SFConflict ann@home 2024-05-01-10-15-00).txt"},
      {"x.txt (Case Conflict 1).kelta", "x (Case Conflict 1).txt"},
      {"x.txt_conflict-20240501-101500.kelta", "x_conflict-20240501-101500.txt"},
      {"x.txt.sync-conflict-20240501-101500-ABCDEFG.kelta", "x.sync-conflict-20240501-101500-ABCDEFG.txt"},
      {"x.txt [Conflict 1].kelta", "x [Conflict 1].txt"},
      {"a.tar.gz (1).kelta", "a.tar (1).gz"},
      {"x.txt-DESKTOP-1A2B3C4.kelta", "x-DESKTOP-1A2B3C4.txt"},
      {"x.txt.Conflict.kelta", "x.Conflict.txt"},
      {"x.txt.kelta.Conflict", "x.Conflict.txt"},
      {"x.txt.20240501-101500-12ab.kelta_conflict (1).kelta", "x.txt.20240501-101500-12ab (1).kelta_conflict"},
      {"x.txt.kelta", ""},
      {"x (conflicted copy).txt.kelta", ""},
      {"no extension (conflicted copy).kelta", ""},
      {"Mr. Smith (conflicted copy).kelta", ""},
      {".hidden (conflicted copy).kelta", ""},
      {"x.kelta (conflicted copy).kelta", ""},
      {"x.txt (conflicted copy)", ""},
      {"(conflicted copy).kelta", ""},
      {"x.txt (conflict of interest).kelta", ""},
      {"x.txt [conflict of interest].kelta", ""},
      {"x (1).txt.kelta", ""},
      {"x (1).kelta", ""},
      {"Makefile.am 2.kelta", ""},
  };
  for (const auto& row : table) {
    CloudCopy copy;
    std::wstring archive;
    ASSERT_TRUE(platform::wideFromUtf8(row.archive, archive));
    const bool read = readCloudCopy(
        archive, [](const std::wstring& name) { return name.substr(0, name.size() - 6); }, copy);
    EXPECT_EQ(read ? platform::utf8(copy.plainName()) : "", row.plain) << row.archive;
  }
}

TEST_F(Conflicts, WhatACloudClientKeptTwiceArrivesUnderDistinctNames) {
  put(in(a, "x.txt"), "first", 10);
  put(in(a, "dir (conflicted copy)/y.txt (1)"), "the user's own name", 10);
  quiet();
  const std::string before = a.tree();
  Device c(folder / "c", folder / "cloud");
  int time = 20;
  for (const char* name : {"x.txt (Ann's conflicted copy).kelta", "x.txt.kelta (Ann's conflicted copy)",
                           "x.txt_conflict-20240501-101500.kelta", "x.txt (1).kelta", "y.txt (1).kelta"}) {
    ++time;
    put(in(c, "x.txt"), "kept " + std::to_string(time), time);
    c.cycle();
    fs::rename(folder / "cloud/x.txt.kelta", out(name));
    a.handler().recordQuarantine(out(name), L"of the name it has now", L"path-issue");
    fs::remove(in(c, "x.txt"));
    c.cycle();
  }
  a.pair().scanDestChanges();
  EXPECT_EQ(a.handler().getQuarantineAsJSON().find(L"/outside/x"), std::wstring::npos) << "has another name now";
  put(out("z.txt (conflicted copy).kelta"), "no archive", 10);
  put(out("z.txt.kelta (conflicted copy)"), "no archive", 10);
  for (int round = 0; round < 4; ++round) {
    a.cycle();
    b.cycle();
  }
  EXPECT_EQ(a.cycle() + b.cycle(), "failed:z.txt (conflicted copy)failed:z.txt (conflicted copy)");
  const auto expected = [&](const std::string& one, const std::string& two) {
    return before.substr(0, before.rfind(' ')) + " x (1).txt=kept 24@24 x (Ann's conflicted copy) (2).txt=kept " + two +
           " x (Ann's conflicted copy).txt=kept " + one +
           " x.txt=first@10 x_conflict-20240501-101500.txt=kept 23@23 y.txt (1)=kept 25@25";
  };
  const bool firstFirst = a.tree().find("copy).txt=kept 21@21") != std::string::npos;
  EXPECT_EQ(a.tree(), firstFirst ? expected("21@21", "22@22") : expected("22@22", "21@21"));
  EXPECT_EQ(a.tree(), b.tree());
  EXPECT_TRUE(fs::exists(out("z.txt.kelta (conflicted copy)")));
}

TEST_F(Conflicts, ACloudCopyTakesTheNameOfNoOtherFile) {
  put(in(a, "x.txt"), "cloud", 10);
  quiet();
  putVersion(in(a, "x (1).txt"), "own", 50);
  fs::copy_file(out("x.txt.kelta"), out("x.txt (1).kelta"));
  platform::setLastWriteTime(out("x.txt (1).kelta"), (kEpoch + 20) * 1000000000);
  quiet();
  EXPECT_NE(a.tree().find("x (1).txt=own of"), std::string::npos) << a.tree();
  EXPECT_NE(a.tree().find("=cloud@20"), std::string::npos) << a.tree();
  EXPECT_EQ(versionsOf("x (1).txt"), "own");
}

}  // namespace
}  // namespace test
}  // namespace Kelta
