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
      {"/r//./a/../b\t10\thash\n/r/b\t11\th\n", 1},  // one path
      {"/../b\t10\thash\n" + good, 1},               // no path
      {good + "/r/\xC3\xBC \xF0\x9F\x98\x80\t1\t+" + std::string(32, '0') + "\n", 2},
  };
  for (const auto& row : table) EXPECT_EQ(load(row.text).size(), row.records) << row.text.substr(0, 60);
  EXPECT_EQ(load(good)[L"/r/a"], (StateRecord{L"10", L"hash"}));
  EXPECT_EQ(load("/r/a\t10\thash\r\n/r/b\t0\t\r\n"), (StateList{{L"/r/a", {L"10", L"hash"}}, {L"/r/b", {L"0", L""}}}));
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
}

TEST_F(State, AHostEditsRecordsOfWhatAScanWouldTakeAlone) {
  put(a.inside() / "x", "1", 10);
  a.cycle();
  put(a.inside() / "y", "1", 10);
  put(a.inside() / "archive.kelta", "1", 10);
  put(a.outside() / "foreign.txt", "1", 10);
  put(a.outside() / ".sid", "main\n", 10);
  const std::wstring in = platform::wideOf(a.inside());
  const std::wstring out = platform::wideOf(a.outside());
  const std::string before = file(0) + file(1);
  for (const std::wstring& path :
       {in, out, in + L"/.rid", out + L"/.kelta", out + L"/.sid", out + L"/foreign.txt", in + L"/archive.kelta",
        in + L"/missing", in + L"//y", in + L"/./y", in + L"/y/", in + L"/../inside/y", in + L"//x", in + L"/./x",
        in + L"/x/", in + L"/x\ty", std::wstring(L"/elsewhere/y"), std::wstring(L"y"), std::wstring()}) {
    EXPECT_FALSE(a.pair().stateInsertRecord(path)) << platform::utf8(path);
    EXPECT_FALSE(a.pair().stateRemoveRecord(path)) << platform::utf8(path);
  }
  EXPECT_EQ(file(0) + file(1), before);
  EXPECT_TRUE(a.pair().stateInsertRecord(in + L"\\y"));
  EXPECT_NE(file(0).find("/y\t"), std::string::npos);
  EXPECT_TRUE(a.pair().stateRemoveRecord(in + L"/y"));
  EXPECT_FALSE(a.pair().stateRemoveRecord(in + L"/y"));
  EXPECT_EQ(file(0).find("/y\t"), std::string::npos);
}

// Read by half, it would tell deletions that nobody made.
TEST_F(State, WhatCannotBeReadIsKeptAsideAndBothSidesAreMerged) {
  for (const std::string name : {"state_0", "state_1", "roots"}) {
    Device b(folder / name, folder / (name + "-outside"));
    put(b.inside() / "x", "1", 10);
    put(b.inside() / "y", "1", 10);
    b.cycle();
    fs::remove(b.inside() / "x");
    const fs::path file = b.state() / ("Kelta_sync_" + name + ".txt");
    fs::remove(file);
    put(file / "content", "unread", 0);
    b.start();
    EXPECT_NE(b.notifications().find("\"ERROR\",\"message\":\"The state could not be read"), std::string::npos) << name;
    EXPECT_EQ(b.cycle(), "decrypt:x") << name;
    EXPECT_EQ(b.cycle(), "") << name;
    EXPECT_EQ(b.tree(), "x=1@10 y=1@10") << name;
    EXPECT_EQ(contentOf(file.parent_path() / (file.filename().string() + ".unread1") / "content"), "unread");
    EXPECT_TRUE(fs::is_regular_file(file)) << name;
  }
  put(a.inside() / "x", "1", 10);
  a.cycle();
  const std::string whole = file(0);
  for (const std::string& damage : {std::string(), std::string(20, '\0'), whole.substr(0, whole.size() / 2)}) {
    put(a.state() / "Kelta_sync_state_0.txt", damage, 0);
    a.start();
    EXPECT_NE(a.notifications().find("The state was not whole"), std::string::npos) << damage;
    EXPECT_EQ(a.cycle(), "");
  }
  fs::remove(a.state() / "Kelta_sync_state_1.txt");
  a.start();
  EXPECT_NE(a.notifications().find("The state was not whole"), std::string::npos) << "one is missing";
  EXPECT_EQ(a.cycle(), "");
  put(a.state() / "Kelta_sync_renames.txt/content", "unread", 0);
  fs::remove(a.inside() / "x");
  a.start();
  EXPECT_EQ(a.cycle(), "delete:x.kelta") << "the records are whole";
  fs::remove(a.state() / "Kelta_sync_shares.txt");
  put(a.state() / "Kelta_sync_shares.txt/content", "unread", 0);
  a.start();
  EXPECT_NE(a.notifications().find("Which keys the shares had cannot be read"), std::string::npos);
}

// Time 0: what is there is not what the other side has, though both may carry one time.
TEST_F(State, ARecordOfUnseenContentOutlivesDamage) {
  put(a.inside() / "x", "1", 10);
  a.cycle();
  const std::wstring x = genericForm(platform::wideOf(a.inside() / "x"));
  for (const bool damaged : {false, true}) {
    put(a.inside() / "x", damaged ? "3" : "2", 10);
    a.pair().setState(a.pair().srcStateList, x, 0);
    a.pair().writeStateList(a.pair().srcStateList, platform::wideOf(a.state() / "Kelta_sync_state_0.txt"));
    if (damaged) put(a.state() / "Kelta_sync_state_0.txt", file(0) + "no record\n", 0);
    a.start();
    EXPECT_EQ(a.pair().srcStateList[x][0], L"0");
    EXPECT_EQ(a.cycle(), "encrypt:x.kelta");
  }
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
