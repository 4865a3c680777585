// SPDX-License-Identifier: Apache-2.0
// What is renamed on one device is renamed on the other: the archive keeps its bytes, nothing is encrypted or
// decrypted.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "SyncPair0/RenameMatch.h"
#include "support/Device.h"

namespace Kelta {
namespace test {
namespace {

using Lines = std::vector<std::string>;

const std::string kLarge(5200000, 'x');  // more than the content hash covers

/// Commands on one device's Inside: "put FILE CONTENT TIME", "mv FROM TO", "rm ENTRY", "cp FROM TO", "mkdir FOLDER",
/// "fill FOLDER COUNT"; a content that begins with "X" is a large one.
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
      if (verb == "put") put(entry, second[0] == 'X' ? kLarge + second : second == "-" ? "" : second, time);
      if (verb == "mv") fs::rename(entry, root_ / second);
      if (verb == "rm") fs::remove_all(entry);
      if (verb == "cp") copyTree(entry, root_ / second);
      if (verb == "mkdir") fs::create_directories(entry);
      for (int i = 0; verb == "fill" && i < std::stoi(second); ++i) {
        put(entry / std::to_string(i % 10) / std::to_string(i), std::to_string(i), 10);
      }
    }
  }

private:
  static void copyTree(const fs::path& from, const fs::path& to) {
    for (fs::recursive_directory_iterator it(from), end; it != end; ++it) {
      const auto stamp = platform::stampOf(it->path());
      const fs::path copy = to / it->path().lexically_relative(from);
      if (stamp.kind == platform::Kind::file) put(copy, contentOf(it->path()), stamp.seconds() - kEpoch);
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
  std::string expected;  ///< the tree in the end; "|" parts what may stand instead
  int writes;            ///< archives written, and files decrypted, by both devices together; -1: any number
  int renames = -1;      ///< carried out as such, -1: any number
};

std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.name; }

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
    {"a chain in one cycle", {"put a A 10", "put b B 20"}, {"mv b c", "mv a b", "put b A 30"}, {}, "b=A@30 c=B@20", -1},
    {"case of a file", {"put name 1 10"}, {"mv name NAME"}, {}, "NAME=1@10", 0, 2},
    {"case of a folder", {"put dir/f 1 10"}, {"mv dir Dir"}, {}, "Dir/ Dir/f=1@10", 0, 2},
    {"renamed, then edited", {"put x 1 10"}, {"mv x y", "put y 2 20"}, {}, "y=2@20", 2},
    {"touched", {"put x 1 10", "put o 2 20"}, {"mv x y", "put y 1 30", "mv o p", "put p 2 5"}, {}, "p=2@5 y=1@30", 0},
    {"edited on the other side", {"put x 1 10"}, {"mv x y"}, {"put x 2 20"}, "x=2@20 y=1@10", -1},
    {"deleted on the other side", {"put x 1 10"}, {"mv x y"}, {"rm x"}, "y=1@10", -1},
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
  static std::string tree(const Device& device) {
    std::string text = device.tree();
    for (auto at = text.find(kLarge); at != std::string::npos; at = text.find(kLarge)) text.erase(at, kLarge.size());
    return text;
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
  Script(a).run(row.a);
  Script(b).run(row.b);
  const std::string events = converge(std::get<1>(GetParam()));
  EXPECT_NE(("|" + row.expected + "|").find("|" + tree(a) + "|"), std::string::npos) << tree(a) << "\n" << events;
  if (row.writes >= 0) {
    EXPECT_EQ(writesIn(events), row.writes) << events;
  }
  if (row.renames >= 0) {
    EXPECT_EQ(countOf(events, "rename:"), static_cast<std::size_t>(row.renames)) << events;
  }
  EXPECT_EQ(events.find("failed"), std::string::npos) << events;
  a.start();
  b.start();
  EXPECT_EQ(a.cycle() + b.cycle(), "") << "after a restart";
}

INSTANTIATE_TEST_SUITE_P(Table, Renames, ::testing::Combine(::testing::ValuesIn(kRows), ::testing::Bool()));

}  // namespace
}  // namespace test
}  // namespace Kelta
