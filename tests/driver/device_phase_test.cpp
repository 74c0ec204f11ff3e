// SPDX-License-Identifier: MIT
#include "driver/device_phase.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using loopback::DevicePhase;
using loopback::mayFollow;

constexpr std::array kAll = {DevicePhase::kStarting, DevicePhase::kHidden, DevicePhase::kShowing,
                             DevicePhase::kShown, DevicePhase::kLeaving};

TEST(DevicePhase, EveryPhaseLeadsBackToTheHiddenDevice) {
  for (const DevicePhase from : kAll) {
    std::set<DevicePhase> reached = {from};
    for (std::size_t i = 0; i < kAll.size(); ++i) {
      for (const auto& [before, after] : loopback::kDevicePhaseChanges) {
        if (reached.contains(before)) reached.insert(after);
      }
    }
    EXPECT_TRUE(reached.contains(DevicePhase::kHidden)) << static_cast<int>(from);
  }
}

TEST(DevicePhase, TheDeviceIsNeverTakenAwayWithoutPuttingTheDefaultsBack) {
  for (const DevicePhase from : kAll) {
    const bool isLast = from == DevicePhase::kLeaving || from == DevicePhase::kStarting;
    EXPECT_EQ(mayFollow(from, DevicePhase::kHidden), isLast) << static_cast<int>(from);
  }
}

TEST(DevicePhase, ADeviceThatLeavesIsShownOnlyOnceItHasBeenKept) {
  EXPECT_FALSE(mayFollow(DevicePhase::kLeaving, DevicePhase::kShown));
  EXPECT_TRUE(mayFollow(DevicePhase::kLeaving, DevicePhase::kShowing));
}

TEST(DevicePhase, StartsOnce) {
  for (const DevicePhase from : kAll) EXPECT_FALSE(mayFollow(from, DevicePhase::kStarting));
}

}  // namespace
