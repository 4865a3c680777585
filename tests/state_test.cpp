// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "support/Device.h"

namespace Kelta {
namespace test {
namespace {

class State : public ::testing::Test {
protected:
  State() : a(folder / "a", folder / "outside") {}

  std::string file(int index) const {
    return contentOf(a.state() / ("Kelta_sync_state_" + std::to_string(index) + ".txt"));
  }
  StateList load(const std::string& text) {
    const fs::path path = folder / "lines.txt";
    put(path, text, 0);
    StateList list;
    a.pair().loadStateFromDisk(platform::wideOf(path), list);
    return list;
  }

  TempFolder folder;
  Device a;
};

TEST_F(State, LinesThatAreNoRecordsAreSkippedAndAnOverlongOneEndsTheFile) {
  const std::string good = "/r/a\t10\thash\n";
  const auto longLine = [](std::size_t characters) { return std::string(characters - 5, 'p') + "\t1\thh\n"; };
  const struct {
    std::string text;
    std::size_t records;
  } table[] = {
      {"", 0},
      {good, 1},
      {good + "/r/b\t-5\t", 2},                      // no line end, no hash
      {good + "/r/b\t12", 1},                        // cut in the middle
      {"/r/b\tten\thash\n" + good, 1},               // no number
      {"/r/b\t99999999999999999999\t\n" + good, 1},  // no time
      {"\t10\thash\n\n" + good, 1},                  // no path
      {"/r/b\t10\thash\tmore\n" + good, 1},
      {std::string("/r\0b\t10\thash\n", 13) + good, 1},
      {"/r/\xFF\t10\thash\n" + good, 1},
      {longLine(2047) + good, 2},
      {good + longLine(2048) + "/r/c\t1\th\n", 1},
      {good + std::string(300000, 'x'), 1},
      {good + "/r/\xC3\xBC \xF0\x9F\x98\x80\t1\t+" + std::string(32, '0') + "\n", 2},
  };
  for (const auto& row : table) EXPECT_EQ(load(row.text).size(), row.records) << row.text.substr(0, 60);
  EXPECT_EQ(load(good)[L"/r/a"], (StateRecord{L"10", L"hash"}));
}

TEST_F(State, IsWrittenOnlyWhenSomethingHappened) {
  put(a.inside() / "x", "1", 10);
  a.cycle();
  const std::string inside = file(0);
  EXPECT_EQ(inside, platform::utf8((a.inside() / "x").generic_path()) + "\t" + std::to_string(kEpoch + 10) +
                        "\tc4ca4238a0b923820dcc509a6f75849b\n");
  EXPECT_NE(file(1).find("x.kelta\t" + std::to_string(kEpoch + 10) + "\t"), std::string::npos);

  // A record edited in memory alone is not reason enough.
  a.pair().setState(a.pair().srcStateList, platform::wideOf(a.inside() / "x"), kEpoch + 11);
  a.pair().writeState();
  EXPECT_EQ(file(0), inside);

  const std::wstring y = platform::wideOf(a.inside() / "y");
  EXPECT_FALSE(a.pair().stateInsertRecord(y)) << "not there";
  put(a.inside() / "y", "1", 10);
  EXPECT_TRUE(a.pair().stateInsertRecord(y));
  EXPECT_NE(file(0).find("/y\t"), std::string::npos);
  EXPECT_TRUE(a.pair().stateRemoveRecord(y));
  EXPECT_FALSE(a.pair().stateRemoveRecord(y));
  EXPECT_EQ(file(0).find("/y\t"), std::string::npos);
  EXPECT_FALSE(a.pair().stateInsertRecord(L"/elsewhere/y"));
}

// Folders whose names begin alike, and characters that sort before the separator.
TEST_F(State, OperationsOnAFolderTouchNothingBesideIt) {
  StateList list;
  for (const wchar_t* key : {L"/r/d", L"/r/d!", L"/r/d-1/x", L"/r/d/x", L"/r/d/y/z", L"/r/d0", L"/r/da/x", L"/r/e"}) {
    list[key] = {L"1", L"h"};
  }
  StateList moved = list;
  a.pair().updateStateListByParent(L"/r/d", L"/r/f/", moved);
  EXPECT_EQ(moved.size(), list.size());
  EXPECT_EQ(moved.count(L"/r/f/x") + moved.count(L"/r/f/y/z") + moved.count(L"/r/d-1/x") + moved.count(L"/r/d"), 4u);
  a.pair().delState(list, L"\\r\\d");
  std::wstring keys;
  for (const auto& entry : list) keys += entry.first + L" ";
  EXPECT_EQ(platform::utf8(keys), "/r/d! /r/d-1/x /r/d0 /r/da/x /r/e ");
  a.pair().delState(list, L"");
  EXPECT_EQ(list.size(), 5u);
}

// Records without a counterpart would let a file that is merely missing here pass for deleted.
TEST_F(State, RecordsOfOneSideAloneAreDropped) {
  put(a.inside() / "x", "1", 10);
  put(a.inside() / "y", "1", 10);
  a.cycle();
  std::string outside = file(1);
  outside.erase(0, outside.find('\n') + 1);
  put(a.state() / "Kelta_sync_state_1.txt", outside, 0);
  fs::remove(a.inside() / "x");
  a.start();
  EXPECT_EQ(a.pair().srcStateList.size(), 1u);
  EXPECT_EQ(a.cycle(), "decrypt:x");
}

TEST_F(State, TheFirstStartTakesForKnownOnlyWhatAgrees) {
  Device b(folder / "b", folder / "outside");
  put(a.inside() / "same", "1", 10);
  put(a.inside() / "older", "1", 10);
  put(a.inside() / "dir/only a", "1", 10);
  a.cycle();
  put(b.inside() / "same", "1", 10);
  put(b.inside() / "older", "2", 5);
  put(b.inside() / "only b", "1", 10);
  fs::create_directories(b.inside() / "dir");
  fs::remove(b.state() / "Kelta_sync_state_0.txt");
  b.start();
  EXPECT_EQ(b.pair().srcStateList.size(), 2u) << "same, dir";
  EXPECT_EQ(b.pair().destStateList.size(), 2u);
  b.cycle();
  a.cycle();
  EXPECT_EQ(a.tree(), b.tree());
  EXPECT_EQ(a.tree(), "dir/ dir/only a=1@10 older=1@10 only b=1@10 same=1@10");
}

}  // namespace
}  // namespace test
}  // namespace Kelta
