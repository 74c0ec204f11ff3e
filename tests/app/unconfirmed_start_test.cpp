// SPDX-License-Identifier: MIT
#include "tests/app/app_test.h"

// A start that the recorder has accepted and not confirmed, and what a request to end it leaves.

namespace record_audio {
namespace {

using platform::Dictionary;
using ::testing::Contains;
using ::testing::Not;

constexpr double kGrace_s = AppDelegate::kUnconfirmedStartGrace_s;

class UnconfirmedStartTest : public AppTest {
 protected:
  std::string state() const {
    std::string text;
    platform::stringValue(app->status().at("state"), &text);
    return text;
  }
  // Nothing limits the wait for a confirmation any more.
  void expectNoLimit() {
    EXPECT_THAT(machine.runLoop.scheduledIntervals_s(), Not(Contains(kGrace_s)));
  }
  // Starts, asks for the end, and lets the time for the confirmation pass.
  void giveUpAStart() {
    launch();
    EXPECT_TRUE(app->stop());
    machine.runLoop.advance(kGrace_s);
    ASSERT_EQ(state(), "idle");
  }
};

TEST_F(UnconfirmedStartTest, ItsStopIsLoggedWithTheTimeSinceTheStart) {
  giveUpAStart();
  EXPECT_EQ(lastEvent().name, "Stop");
  EXPECT_EQ(lastEvent().details, (Dictionary{{"Duration", std::int64_t{12000}}}));
}

TEST_F(UnconfirmedStartTest, TheNextClickStartsAfreshAndIsNotEnded) {
  giveUpAStart();
  clickDock();
  EXPECT_EQ(state(), "starting");
  confirmStart();
  machine.runLoop.advance(2 * kGrace_s);
  EXPECT_EQ(state(), "recording");
}

TEST_F(UnconfirmedStartTest, OnlyTheFirstRequestSetsTheLimitAndItEndsOnce) {
  launch();
  EXPECT_TRUE(app->stop());
  EXPECT_TRUE(app->cancel());
  const auto intervals = machine.runLoop.scheduledIntervals_s();
  EXPECT_EQ(std::ranges::count(intervals, kGrace_s), 1);
  EXPECT_EQ(machine.runLoop.repeatingTimerCount(), 0U);
}

TEST_F(UnconfirmedStartTest, AClickThatTakesTheStopBackLiftsTheLimit) {
  launch();
  clickDock();
  clickDock();
  expectNoLimit();
  machine.runLoop.advance(2 * kGrace_s);
  EXPECT_EQ(state(), "starting");
}

TEST_F(UnconfirmedStartTest, AStopAfterOneThatWasTakenBackHasALimitAgain) {
  launch();
  clickDock();
  clickDock();
  clickDock();
  machine.runLoop.advance(kGrace_s);
  EXPECT_EQ(state(), "idle");
}

TEST_F(UnconfirmedStartTest, TheConfirmationLiftsTheLimit) {
  launch();
  app->stop();
  confirmStart();
  machine.runLoop.settle();
  expectNoLimit();
}

TEST_F(UnconfirmedStartTest, AnErrorLiftsTheLimit) {
  launch();
  app->stop();
  failRecording();
  expectNoLimit();
}

TEST_F(UnconfirmedStartTest, ItsEndSaysNothingOfAnEarlierRecordingThatWasNotSaved) {
  launchAndRecord();
  machine.fileManager.failMove = "read-only";
  clickDock();
  EXPECT_NE(machine.userNotificationCenter.delivered.back()->details, "");
  clickDock();
  app->stop();
  machine.runLoop.advance(kGrace_s);
  ASSERT_EQ(state(), "idle");
  EXPECT_EQ(machine.userNotificationCenter.delivered.back()->details, "");
}

}  // namespace
}  // namespace record_audio
