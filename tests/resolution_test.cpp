// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/Resolution.h"

#include <gtest/gtest.h>

#include "SyncPair0/TimeSteps.h"

namespace Kelta {
namespace {

SyncObject change(bool deletion, std::int64_t time, bool isFolder = false) {
  return {deletion, time, L"/x", L"", isFolder, {}};
}

TEST(ResolutionTable, TheNewerChangeWinsADeletionLosesATie) {
  constexpr bool edit = false, gone = true;
  const struct {
    bool one, two;
    std::int64_t timeOne, timeTwo;
    Resolution expected;
  } table[] = {
      {edit, edit, 2, 1, Resolution::copyToTwo},   {edit, edit, 1, 2, Resolution::copyToOne},
      {edit, edit, 1, 1, Resolution::compare},     {edit, gone, 2, 1, Resolution::copyToTwo},
      {edit, gone, 1, 2, Resolution::deleteInOne}, {edit, gone, 1, 1, Resolution::copyToTwo},
      {gone, edit, 2, 1, Resolution::deleteInTwo}, {gone, edit, 1, 2, Resolution::copyToOne},
      {gone, edit, 1, 1, Resolution::copyToOne},   {gone, gone, 2, 1, Resolution::deleteInTwo},
      {gone, gone, 1, 2, Resolution::deleteInOne}, {gone, gone, 1, 1, Resolution::forgetBoth},
      {edit, edit, -1, 1, Resolution::copyToOne},  {edit, edit, 4102444800, 1, Resolution::copyToTwo},
  };
  for (const auto& row : table) {
    const SyncObject two = change(row.two, row.timeTwo);
    EXPECT_EQ(decideResolution(change(row.one, row.timeOne), &two), row.expected)
        << row.one << row.two << " " << row.timeOne << " " << row.timeTwo;
  }
  EXPECT_EQ(decideResolution(change(edit, 1), nullptr), Resolution::copyToTwo);
  EXPECT_EQ(decideResolution(change(gone, 1), nullptr), Resolution::deleteInTwo);
}

// Steps of two seconds beside more exact times; times in whole seconds are what they say.
TEST(ResolutionTable, ContentsDecideWhereTimesMayBeRounded) {
  constexpr std::int64_t tenth = 100000000;
  const struct {
    std::int64_t one, two;  // in tenths of a second
    Resolution expected;
    bool ordered;
  } table[] = {
      {200, 209, Resolution::compare, false},  {203, 212, Resolution::copyToOne, true},
      {200, 215, Resolution::compare, false},  {220, 201, Resolution::compare, false},
      {220, 200, Resolution::copyToTwo, true}, {200, 210, Resolution::compare, true},
      {210, 230, Resolution::copyToOne, true}, {210, 225, Resolution::copyToOne, true},
  };
  for (const auto& row : table) {
    SyncObject objects[2];
    for (int i = 0; i < 2; ++i) {
      objects[i].stamp = {platform::Kind::file, (i == 0 ? row.one : row.two) * tenth, 1};
      objects[i].timestamp = objects[i].stamp.seconds();
    }
    EXPECT_EQ(decideResolution(objects[0], &objects[1]), row.expected) << row.one << " " << row.two;
    EXPECT_EQ(tellOrder(objects[0].stamp, objects[1].stamp), row.ordered) << row.one << " " << row.two;
  }
  const platform::FileStamp step{platform::Kind::file, 220 * tenth, 1};
  for (int recorded = 18; recorded < 26; ++recorded)
    EXPECT_EQ(mayBeTimeOf(step, recorded), recorded >= 20 && recorded <= 23) << recorded;
}

// Whatever the times: a file must never take a folder's place unseen, nor the reverse.
TEST(ResolutionTable, AFileAndAFolderOfOneNameAreNeverCarriedOverEachOther) {
  for (const int time : {1, 2, 3}) {
    const SyncObject file = change(false, time);
    const SyncObject fileGone = change(true, time);
    EXPECT_EQ(decideResolution(change(false, 2, true), &file), Resolution::clash);
    EXPECT_EQ(decideResolution(change(true, 2, true), &file), Resolution::deleteInTwo);
    EXPECT_EQ(decideResolution(change(false, 2, true), &fileGone), Resolution::later);
    EXPECT_EQ(decideResolution(change(true, 2, true), &fileGone), Resolution::forgetBoth);
  }
}

}  // namespace
}  // namespace Kelta
