// SPDX-License-Identifier: Apache-2.0
// What is renamed on one device is renamed on the other: the archive keeps its bytes, nothing is encrypted or
// decrypted.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "SyncPair0/RenameMatch.h"
#include "archive/Archive.h"
#include "support/Device.h"

namespace Kelta {
namespace test {
namespace {

using Lines = std::vector<std::string>;

const std::string kLarge(5200000, 'x');  // more than the content hash covers
const std::string kHead(5120000, 'x');   // just that

/// Commands on one device's Inside: "put FILE CONTENT TIME", "mv FROM TO", "rm ENTRY", "cp FROM TO", "mkdir FOLDER"; a
/// content that begins with "X" is a large one, "H" what is hashed of it, "-" is none.
class Script {
public:
  explicit Script(const Device& device) : root_(device.inside()) {}

  void run(const Lines& commands) {
    for (const std::string& command : commands) {
      std::istringstream words(command);
      std::string verb, first, second;
      std::int64_t time = 0;
      words >> verb >> first >> second >> time;
      const fs::path entry = root_ / first;
      if (second == "H") second = kHead;
      if (verb == "put") put(entry, second[0] == 'X' ? kLarge + second : second == "-" ? "" : second, time);
      if (verb == "mv") fs::rename(entry, root_ / second);
      if (verb == "rm") fs::remove_all(entry);
      if (verb == "cp") copyTree(entry, root_ / second);
      if (verb == "mkdir") fs::create_directories(entry);
    }
  }

private:
  static void copyTree(const fs::path& from, const fs::path& to) {
    for (fs::recursive_directory_iterator it(from), end; it != end; ++it) {
      const auto stamp = platform::stampOf(it->path());
      const fs::path copy = to / it->path().lexically_relative(from);
      if (stamp.kind != platform::Kind::file) continue;
      fs::remove(copy);  // a hidden one cannot be written over everywhere
      put(copy, contentOf(it->path()), stamp.seconds() - kEpoch);
    }
  }
  fs::path root_;
};

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

struct Row {
  const char* name;
  Lines start;           ///< on device a, synchronised before anything else
  Lines a, b;            ///< then on each device
  std::string expected;  ///< the tree in the end; empty: not looked at
  int writes;            ///< archives written, and files decrypted, by both devices together; -1: any number
  int renames = -1;      ///< carried out as such, -1: any number
};

std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.name; }

// Where case does not matter, not every system renames by case alone in one step; then it is a copy.
const int kCaseWrites = platform::samePath(L"a", L"A") ? -1 : 0;

const Row kRows[] = {
    {"a file", {"put x 1 10"}, {"mv x y"}, {}, "y=1@10", 0, 2},
    {"a file to another folder", {"put x 1 10", "put d/f f 10"}, {"mv x d/x"}, {}, "d/ d/f=f@10 d/x=1@10", 0, 2},
    {"a file to a new folder, renamed", {"put x 1 10"}, {"mkdir n/m", "mv x n/m/y"}, {}, "n/ n/m/ n/m/y=1@10", 0, 2},
    {"a folder", {"put d/e/f 1 10", "put d/g 2 10"}, {"mv d r"}, {}, "r/ r/e/ r/e/f=1@10 r/g=2@10", 0, 2},
    {"a folder into another", {"put d/f 1 10", "put t/g 2 10"}, {"mv d t/d"}, {}, "t/ t/d/ t/d/f=1@10 t/g=2@10", 0, 2},
    {"a folder and what is in it",
     {"put d/e/f 1 10", "put d/g 2 10"},
     {"mv d r", "mv r/e r/s", "mv r/s/f r/s/h", "mv r/g top"},
     {},
     "r/ r/s/ r/s/h=1@10 top=2@10",
     0},
    {"a folder out of a renamed one, another into it",
     {"put d/e/f 1 10", "put d/g 2 10", "put o/p 3 10"},
     {"mv d r", "mv r/e e", "mv o r/o"},
     {},
     "e/ e/f=1@10 r/ r/g=2@10 r/o/ r/o/p=3@10",
     0},
    {"a folder, and a new file in it",
     {"put d/x 1 10", "put d/e/y 2 10"},
     {"mv d r", "put r/n N 20"},
     {},
     "r/ r/e/ r/e/y=2@10 r/n=N@20 r/x=1@10",
     2},
    {"names exchanged",
     {"put x 1 10", "put y 2 20", "put d/f 3 10", "put e/f 4 20"},
     {"mv x t", "mv d u", "sync", "mv y x", "mv e d", "sync", "mv t y", "mv u e"},
     {},
     "d/ d/f=4@20 e/ e/f=3@10 x=2@20 y=1@10",
     0,
     12},
    {"a chain in one cycle", {"put a A 10", "put b B 20"}, {"mv b c", "mv a b", "put b A 30"}, {}, "b=A@30 c=B@20", -1},
    {"case of a file", {"put name 1 10"}, {"mv name t", "mv t NAME"}, {}, "NAME=1@10", kCaseWrites},
    {"case of a folder", {"put dir/f 1 10"}, {"mv dir t", "mv t Dir"}, {}, "Dir/ Dir/f=1@10", kCaseWrites},
    {"renamed, then edited", {"put x 1 10"}, {"mv x y", "put y 2 20"}, {}, "y=2@20", 2},
    {"touched", {"put x 1 10", "put o 2 20"}, {"mv x y", "put y 1 30", "mv o p", "put p 2 5"}, {}, "p=2@5 y=1@30", 0},
    {"edited on the other side", {"put x 1 10"}, {"mv x y"}, {"put x 2 20"}, "x=2@20 y=1@10", -1},
    {"deleted on the other side", {"put x 1 10"}, {"mv x y"}, {"rm x"}, "y=1@10", -1},
    {"a restored copy of a folder, an older file in it",
     {"put d/s/x 2 20", "put d/y 3 10"},
     {"mv d r", "put r/s/x 1 5"},
     {},
     "r/ r/s/ r/s/x=2@20 r/y=3@10",
     -1},
    {"differently on both sides", {"put x 1 10"}, {"mv x y"}, {"mv x z"}, "y=1@10 z=1@10", -1},
    {"alike on both sides", {"put x 1 10"}, {"mv x y"}, {"mv x y"}, "y=1@10", 0},
    {"a folder alike on both sides", {"put d/x 1 10"}, {"mv d e"}, {"mv d e"}, "e/ e/x=1@10", 0},
    {"a folder differently on both sides", {"put d/x 1 10"}, {"mv d e"}, {"mv d f"}, "e/ e/x=1@10 f/ f/x=1@10", -1},
    {"a folder with changes below it on the other side",
     {"put d/edit 1 10", "put d/del 2 10", "put d/s/same 3 10", "put d/s/move 4 10"},
     {"mv d r"},
     {"put d/edit E 20", "rm d/del", "put d/new N 20", "mv d/s/move d/moved"},
     "r/ r/edit=E@20 r/moved=4@10 r/new=N@20 r/s/ r/s/same=3@10",
     4},
    {"a copied folder",
     {"put d/x 1 10", "put d/e/y 2 10"},
     {"cp d c"},
     {},
     "c/ c/e/ c/e/y=2@10 c/x=1@10 d/ d/e/ d/e/y=2@10 d/x=1@10",
     4},
    {"what is in a folder copied into another, which is renamed",
     {"put d/x 1 10", "put e/y 2 10"},
     {"cp d e", "sync", "put d/x 3 30", "sync", "rm d", "mv e r"},
     {},
     "r/ r/x=1@10 r/y=2@10",
     -1},
    {"a copied folder, and the first renamed",
     {"put d/x 1 10"},
     {"cp d c", "mv d r"},
     {},
     "c/ c/x=1@10 r/ r/x=1@10",
     2},
    {"another large file of the same beginning",
     {"put old XA 10", "put keep XK 10"},
     {"rm old", "put same XB 10", "mv keep kept"},
     {},
     "kept=XK@10 same=XB@10",
     2},
    {"a newer large file of the same beginning", {"put old XA 10"}, {"rm old", "put new XBB 20"}, {}, "new=XBB@20", 2},
    {"an older large file of the same beginning", {"put old XA 10"}, {"rm old", "put new XBB 5"}, {}, "new=XBB@5", 2},
    {"the beginning of a large file", {"put old XA 10"}, {"rm old", "put part H 20"}, {}, "part=H@20", 2},
    {"empty files", {"put x - 10"}, {"mv x y"}, {}, "y=@10", 2, 0},
    {"to a name that is taken", {"put x 1 10"}, {"mv x y"}, {"put y 2 20"}, "y=2@20", -1},
    {"back again",
     {"put x 1 10", "put d/f 2 10"},
     {"mv x y", "mv y x", "mv d e", "mv e d"},
     {},
     "d/ d/f=2@10 x=1@10",
     0,
     0},
};

class Renames : public ::testing::TestWithParam<std::tuple<Row, bool>> {
protected:
  Renames() : a(folder / "a", folder / "outside"), b(folder / "b", folder / "outside") {}

  /// What both devices told until neither had anything to do.
  std::string converge(bool bFirst = false) {
    std::string events;
    for (int round = 0; round < 6; ++round) {
      const std::string now = bFirst ? b.cycle() + " " + a.cycle() : a.cycle() + " " + b.cycle();
      if (now == " ") break;
      EXPECT_LT(round, 5) << "never quiet: " << now;
      events += now + " ";
    }
    EXPECT_EQ(tree(a), tree(b));
    EXPECT_EQ(a.leftovers() + b.leftovers(), "");
    return events;
  }
  /// Runs commands on a device; a "sync" among them lets both devices converge.
  std::string run(const Device& device, const Lines& commands) {
    std::string events;
    auto start = commands.begin();
    for (auto end = start; end != commands.end(); start = end == commands.end() ? end : end + 1) {
      end = std::find(start, commands.end(), "sync");
      Script(device).run(Lines(start, end));
      if (end != commands.end()) events += converge();
    }
    return events;
  }
  /// The archives' bytes, whatever their names.
  std::multiset<std::string> archives() const {
    std::multiset<std::string> contents;
    for (fs::recursive_directory_iterator it(a.outside()), end; it != end; ++it)
      if (it->path().extension() == ".kelta") contents.insert(contentOf(it->path()));
    return contents;
  }
  static void expectOwnIdentifiers(const Device& device) {
    std::set<std::string> ids;
    for (fs::recursive_directory_iterator it(device.inside()), end; it != end; ++it) {
      if (it->path().filename() != ".rid") continue;
      EXPECT_TRUE(ids.insert(contentOf(it->path())).second) << it->path() << " is another folder's";
    }
  }
  static std::string tree(const Device& device) {
    std::string text = device.tree();
    for (auto at = text.find(kLarge); at != std::string::npos; at = text.find(kLarge)) text.erase(at, kLarge.size());
    const auto head = text.find(kHead);
    return head == std::string::npos ? text : text.replace(head, kHead.size(), "H");
  }
  static int writesIn(const std::string& events) {
    return static_cast<int>(countOf(events, "encrypt:") + countOf(events, "decrypt:"));
  }

  TempFolder folder;
  Device a;
  Device b;
};

TEST_P(Renames, EndAlikeOnBothDevices) {
  const Row& row = std::get<0>(GetParam());
  Script(a).run(row.start);
  converge();
  const auto before = archives();
  std::string events = run(a, row.a);
  events += run(b, row.b);
  events += converge(std::get<1>(GetParam()));
  if (!row.expected.empty()) {
    EXPECT_EQ(tree(a), row.expected) << events;
  }
  if (row.writes >= 0) {
    EXPECT_EQ(writesIn(events), row.writes) << events;
  }
  if (row.writes == 0) {
    EXPECT_EQ(before, archives());
  }
  if (row.renames >= 0) {
    EXPECT_EQ(countOf(events, "rename:"), static_cast<std::size_t>(row.renames)) << events;
  }
  const bool mayFailOnce = kCaseWrites < 0 && std::string(row.name).find("case of") == 0;  // before it is a copy
  EXPECT_EQ(!mayFailOnce && events.find("failed") != std::string::npos, false) << events;
  expectOwnIdentifiers(a);
  expectOwnIdentifiers(b);
  a.start();
  b.start();
  EXPECT_EQ(a.cycle() + b.cycle(), "") << "after a restart";
}

INSTANTIATE_TEST_SUITE_P(Table, Renames, ::testing::Combine(::testing::ValuesIn(kRows), ::testing::Bool()));

class RenamesOnce : public Renames {};

TEST_P(RenamesOnce, AFolderOfManyIsOneMove) {
  for (int i = 0; i < 1000; ++i) {  // known from the first start on, with nothing to encrypt
    const std::string name = "d/" + std::to_string(i % 10) + "/" + std::to_string(i);
    put(a.inside() / name, "plain", 10);
    put(b.inside() / name, "plain", 10);
    put(a.outside() / (name + ".kelta"), "archive" + std::to_string(i), 10);
  }
  for (Device* device : {&a, &b}) {
    fs::remove_all(device->state());
    device->start();
  }
  EXPECT_EQ(converge(), "");
  fs::rename(a.inside() / "d", a.inside() / "r");
  EXPECT_EQ(a.cycle(), "rename:r");
  EXPECT_EQ(b.cycle(), "rename:r");
  converge();
}

// Whichever of the identical files is taken for which, none is copied, and each has its time.
TEST_P(RenamesOnce, IdenticalFilesOfWhichSomeMove) {
  for (int i = 0; i < 50; ++i) put(a.inside() / "d" / std::to_string(i), "same", 10 + i % 3);
  converge();
  const auto before = archives();
  for (int i = 0; i < 20; ++i) {
    fs::create_directories(a.inside() / "e");
    fs::rename(a.inside() / "d" / std::to_string(i), a.inside() / "e" / std::to_string(i < 10 ? i : 100 - i));
  }
  const std::string events = converge();
  EXPECT_EQ(writesIn(events), 0) << events;
  EXPECT_EQ(countOf(events, "rename:"), 40U);
  EXPECT_EQ(before, archives());
}

// A file in another's place whose time is not newer is no change to the scan. Only the place it left is seen.
TEST_P(RenamesOnce, AnOlderFileInAnothersPlaceIsSeenOnceItIsNewer) {
  put(a.inside() / "x", "older", 10);
  put(a.inside() / "y", "newer", 20);
  converge();
  fs::rename(a.inside() / "x", a.inside() / "y");
  a.cycle();
  b.cycle();
  EXPECT_EQ(a.tree() + " | " + b.tree(), "y=older@10 | y=newer@20");
  EXPECT_TRUE(b.bin().holds("older"));
  put(a.inside() / "y", "older", 30);
  converge();
  EXPECT_EQ(b.tree(), "y=older@30");
}

TEST_P(RenamesOnce, FoldersThatTheWatcherNames) {
  Script(a).run({"put d/x 1 10", "put d/s/y 2 10", "put o/z 3 10"});
  converge();
  Script(a).run({"mv d o/d", "mv o/z z"});
  const auto before = archives();
  const std::vector<std::wstring> folders{platform::wideOf(a.inside()), platform::wideOf(a.inside() / "o")};
  a.pair().subScanForChanges(folders);
  a.pair().subScanForChanges(folders);
  a.pair().subResolve();
  EXPECT_EQ(namesOf(a.outside()), "o/ o/d/ o/d/s/ o/d/s/y.kelta o/d/x.kelta z.kelta");
  EXPECT_EQ(before, archives());
  EXPECT_NE(a.notifications().find("Renamed z successfully."), std::string::npos);
  EXPECT_EQ(a.cycle(), "");
  const std::vector<std::wstring> outside{platform::wideOf(b.outside()), platform::wideOf(b.outside() / "o")};
  b.pair().subScanForChanges(outside);
  b.pair().subResolve();
  EXPECT_EQ(tree(b), tree(a));
  EXPECT_NE(b.notifications().find("Renamed z successfully."), std::string::npos);
  EXPECT_NE(b.notifications().find("Renamed d successfully."), std::string::npos);
  EXPECT_EQ(b.notifications().find("Deleted"), std::string::npos);
  EXPECT_EQ(writesIn(converge()), 0);
}

// Ended before the move, which another device's file of the new name makes look as if it were done.
TEST_P(RenamesOnce, AJournalThatAnotherDeviceOvertook) {
  Script(a).run({"put x mine 10"});
  converge();
  Script(a).run({"mv x y"});
  std::string line = "-";
  for (const fs::path& path : {a.inside() / "x", a.inside() / "y", a.outside() / "x.kelta", a.outside() / "y.kelta"})
    line += "\t" + platform::utf8(path.generic_path());
  put(a.state() / "Kelta_sync_renames.txt", line + "\n", 0);
  Script(b).run({"rm x", "put y other 20"});
  b.cycle();
  a.start();
  converge();
  EXPECT_EQ(tree(a), "y=other@20");
  EXPECT_TRUE(a.bin().holds("mine"));
}

TEST_P(RenamesOnce, ADamagedJournalLeadsNowhere) {
  Script(a).run({"put d/x 1 10"});
  converge();
  fs::rename(a.outside() / "d", a.outside() / "q");
  const fs::path beside = folder / "beside";
  fs::create_directories(beside);
  std::string line = "/";
  for (const fs::path& path : {a.inside() / "d", beside, a.outside() / "d", a.outside() / "q"})
    line += "\t" + platform::utf8(path.generic_path());
  put(a.state() / "Kelta_sync_renames.txt", line + "\n", 0);
  a.start();
  EXPECT_FALSE(fs::exists(beside / ".rid"));
  converge();
  EXPECT_EQ(tree(a), "q/ q/x=1@10");
}

// Another share has another key: what moves there is copied, what moves within one is not.
TEST_P(RenamesOnce, WithinAShareAndAcrossTwo) {
  for (const std::string share : {"one", "two"}) {
    put(a.outside() / share / ".sid", share, 0);
    for (Device* device : {&a, &b}) device->handler().setAssetKey(platform::wideOf(fs::path(share)), L"key of a share");
  }
  Script(a).run({"put one/d/x 1 10", "put one/y 2 10", "put one/z 3 10", "mkdir two"});
  converge();
  Script(a).run({"mv one/d two/d", "mv one/y two/y", "mv one/z one/t"});
  const std::string events = converge();
  EXPECT_EQ(tree(b), "one/ one/t=3@10 two/ two/d/ two/d/x=1@10 two/y=2@10");
  EXPECT_EQ(writesIn(events), 4) << events;
  EXPECT_EQ(countOf(events, "rename:"), 2U) << events;
  for (const char* archive : {"two/d/x.kelta", "two/y.kelta"}) {
    const std::string meta = archive::readEntry(a.archive(archive), "__KELASSET_.json", "");
    EXPECT_NE(meta.find("\"two\""), std::string::npos) << meta;
  }
}

INSTANTIATE_TEST_SUITE_P(Table, RenamesOnce, ::testing::Combine(::testing::Values(kRows[0]), ::testing::Values(false)));

// "from > to" in the order of the matches; a candidate is "hash key time", a folder's key ends in "/".
TEST(RenameTable, JoinsWhatBelongsTogether) {
  const auto candidates = [](const Lines& texts) {
    std::vector<RenameCandidate> made;
    for (const std::string& text : texts) {
      std::wistringstream words(platform::wideOf(pathFrom(text)));
      RenameCandidate candidate;
      words >> candidate.hash >> candidate.key >> candidate.time;
      candidate.isFolder = candidate.key.back() == L'/';
      if (candidate.isFolder) candidate.key.pop_back();
      made.push_back(candidate);
    }
    return made;
  };
  const struct {
    Lines deleted, added;
    std::string matches;
  } rows[] = {
      {{"1 a 5"}, {"1 b 5"}, "a>b"},
      {{"1 a 5"}, {"2 b 5"}, ""},
      {{"1 a 5"}, {"1 a/ 5"}, ""},
      {{"1 a 5"}, {"1 b 5", "1 c 5"}, "a>b"},
      {{"1 a 5", "1 z 5"}, {"1 q/z 9", "1 q/y 9"}, "a>q/y z>q/z"},
      {{"1 a/n 5", "1 b/n 6"}, {"1 c/n 6", "1 d/n 5"}, "b/n>c/n a/n>d/n"},
      {{"1 a 7", "1 b 5"}, {"1 c 5", "1 d 9"}, "b>c a>d"},
      {{"1 f 5", "2 x/y/ 5", "3 z/ 5", "4 x/ 5"},
       {"1 a 5", "2 b/y/ 5", "3 b/c/z/ 5", "4 b/ 5"},
       "x>b x/y>b/y z>b/c/z f>a"},
  };
  for (const auto& row : rows) {
    std::string matches;
    for (const RenameMatch& match : matchRenames(candidates(row.added), candidates(row.deleted))) {
      matches += (matches.empty() ? "" : " ") + platform::utf8(match.from) + ">" + platform::utf8(match.to);
    }
    EXPECT_EQ(matches, row.matches);
  }
}

}  // namespace
}  // namespace test
}  // namespace Kelta
