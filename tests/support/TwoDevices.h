// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include "Device.h"

namespace Kelta {
namespace test {

/// Two devices on one Outside; the first one's clock may be the test's own.
class TwoDevices : public ::testing::Test {
protected:
  explicit TwoDevices(const std::shared_ptr<VirtualClock>& clock = std::make_shared<VirtualClock>())
      : a(folder / "a", folder / "outside", clock), b(folder / "b", folder / "outside") {}

  /// Cycles on both devices until neither has anything to do.
  void converge() {
    for (int round = 0; round < 6; ++round) {
      const std::string events = a.cycle() + b.cycle();
      if (events.empty()) break;
      ASSERT_LT(round, 5) << "never quiet: " << events;
    }
    EXPECT_EQ(a.tree(), b.tree());
    EXPECT_EQ(a.leftovers() + b.leftovers(), "");
  }
  static fs::path in(const Device& device, const std::string& entry) { return device.inside() / pathFrom(entry); }
  /// An archive, under whatever name it has, or another entry of the Outside.
  fs::path out(const std::string& entry) { return a.archive(pathFrom(entry)); }

  TempFolder folder;
  Device a;
  Device b;
};

}  // namespace test
}  // namespace Kelta
