// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/Resolution.h"

#include <gtest/gtest.h>

namespace Kelta {
namespace {

SyncObject change(bool deletion, std::int64_t time, bool isFolder = false) {
  return {deletion, time, L"/x", L"", isFolder};
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
