// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/loopback_state.h"

#include <gtest/gtest.h>

namespace linux_host {
namespace {

constexpr std::uint32_t kDriver = 30;
constexpr std::uint32_t kOwn = 57;

class LoopbackStateTest : public testing::Test {
 protected:
  LoopbackStateTest() { state.ownClientIs(kOwn); }
  void answer(const std::string& granted) { state.driverIs(kDriver, "1.0.3", granted); }
  LoopbackState state;
};

TEST_F(LoopbackStateTest, TheOldestDriverServes) {
  EXPECT_EQ(state.driverVersion(), std::nullopt);
  state.driverIs(31, "2.0.0", "none");
  state.driverIs(30, "1.0.3", "none");
  EXPECT_EQ(state.driverVersion(), "1.0.3");
  state.driverGone(30);
  EXPECT_EQ(state.driverVersion(), "2.0.0");
  state.driverGone(31);
  EXPECT_EQ(state.driverVersion(), std::nullopt);
}

TEST_F(LoopbackStateTest, ARequestIsGrantedByTheAnswerToItsOwnNumber) {
  answer("none");
  state.request(true, 3);
  for (const char* other : {"none", "", "57", "57:2", "57:30", "157:3", "3:57", "58:3", "57 :3"}) {
    answer(other);
    EXPECT_FALSE(state.isGranted()) << other;
  }
  answer("8:1 57:3 60");
  EXPECT_TRUE(state.isGranted());
  state.request(false, 4);
  EXPECT_FALSE(state.isGranted()) << "taken back";
  state.request(true, 5);
  EXPECT_FALSE(state.isGranted()) << "the answer to the first is none to the second";
}

TEST_F(LoopbackStateTest, WithoutAnAnswerTheDeviceCountsAsGranted) {
  EXPECT_TRUE(state.isGranted());
  state.request(true, 1);
  EXPECT_TRUE(state.isGranted()) << "no driver";
  state.driverIs(kDriver, "1.0.3", std::nullopt);
  EXPECT_TRUE(state.isGranted()) << "a driver that does not answer";
}

TEST_F(LoopbackStateTest, TheDeviceLeavesWhenNobodyElseUsesIt) {
  EXPECT_FALSE(state.isLeaving()) << "nobody can say";
  answer("none");
  EXPECT_TRUE(state.isLeaving());
  answer("60:1");
  EXPECT_FALSE(state.isLeaving());
  answer("57:1");
  state.request(true, 1);
  EXPECT_FALSE(state.isLeaving());
  state.request(false, 2);
  EXPECT_TRUE(state.isLeaving()) << "the driver has not heard of it yet";
  answer("57:1 60:1");
  EXPECT_FALSE(state.isLeaving()) << "somebody else has it";
}

}  // namespace
}  // namespace linux_host
