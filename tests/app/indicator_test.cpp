// SPDX-License-Identifier: MIT
#include "tests/app/app_test.h"

namespace record_audio {
namespace {

using ::testing::ElementsAre;

class IndicatorTest : public AppTest {};

TEST_F(IndicatorTest, TheDockIconAndTheToolIconBlinkEverySecond) {
  launchAndRecord();
  EXPECT_EQ(machine.application.iconName, "ActiveIcon.icns");
  EXPECT_THAT(
      during([&] { machine.runLoop.advance(1); }),
      ElementsAre("setApplicationIconImage NSApplicationIcon", "toolIcon ", "menuText 00:01"));
  EXPECT_THAT(during([&] { machine.runLoop.advance(1); }),
              ElementsAre("setApplicationIconImage ActiveIcon.icns", "toolIcon KorvelIconOn",
                          "menuText 00:02"));
}

TEST_F(IndicatorTest, AMissingImageIsShownAsNone) {
  machine.application.missingImages = {"ActiveIcon.icns", "KorvelIconOn"};
  launchAndRecord();
  EXPECT_EQ(machine.application.iconName, "");
  EXPECT_EQ(provider().toolIcon, "");
}

struct RunningTime {
  double seconds;
  const char* text;
};

class RunningTimeTest : public IndicatorTest, public ::testing::WithParamInterface<RunningTime> {};

TEST_P(RunningTimeTest, IsShownInWholeSeconds) {
  launchAndRecord();
  // Jumps to the moment: each tick computes the text again.
  machine.clock.now_ns += static_cast<std::uint64_t>(GetParam().seconds * 1e9);
  app->timerBlinkerMethod(nullptr);
  EXPECT_EQ(provider().menuText, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Moments, RunningTimeTest,
    ::testing::Values(RunningTime{0, "00:00"}, RunningTime{0.999, "00:00"}, RunningTime{1, "00:01"},
                      RunningTime{59.999, "00:59"}, RunningTime{61, "01:01"},
                      RunningTime{3599, "59:59"}, RunningTime{3599.999, "59:59"},
                      RunningTime{3600, "01:00:00"}, RunningTime{3661, "01:01:01"},
                      RunningTime{359999, "99:59:59"}, RunningTime{360000, "100:00:00"}));

TEST_F(IndicatorTest, ASkippedTickLeavesTheRunningTimeRight) {
  launchAndRecord();
  machine.clock.now_ns += 5'500'000'000;
  machine.runLoop.settle();
  EXPECT_EQ(provider().menuText, "00:05");
  machine.runLoop.advance(1);
  EXPECT_EQ(provider().menuText, "00:06");
}

TEST_F(IndicatorTest, TheBundleCarriesTheActiveIconWhileRecording) {
  launchAndRecord();
  app->stopRecord();
  using Change = memory_host::MemoryWorkspace::IconChange;
  EXPECT_THAT(machine.workspace.icons,
              ElementsAre(Change{"ActiveIcon.icns", kBundlePath, 0}, Change{"", kBundlePath, 0}));
}

// The icon is only decoration; a recording must not fail because of it.
TEST_F(IndicatorTest, ABundleIconThatCannotBeSetIsIgnored) {
  machine.workspace.setIconResult = false;
  launchAndRecord();
  EXPECT_EQ(app->status().at("state"), "recording");
  EXPECT_EQ(provider().status, 1);
}

TEST_F(IndicatorTest, StopShowsTheOwnIconWhateverTheBlinkPhase) {
  for (const double seconds : {2.2, 3.2}) {
    AppTest::machine.timeline.entries.clear();
    if (!app->running()) {
      launch();
    } else {
      app->startRecorder();
    }
    confirmStart();
    machine.runLoop.advance(seconds);
    app->stopRecord();
    EXPECT_EQ(machine.application.iconName, "NSApplicationIcon") << seconds;
    EXPECT_EQ(provider().toolIcon, "");
    EXPECT_EQ(provider().menuIcon, "MenuIcon");
    EXPECT_EQ(provider().menuText, "");
    EXPECT_EQ(provider().status, 0);
    machine.runLoop.advance(2);
    EXPECT_EQ(machine.application.iconName, "NSApplicationIcon") << "blinks on after the stop";
  }
}

// The process quits right after an error, so nobody sees it for long.
TEST_F(IndicatorTest, TheMenuKeepsItsLastTextAfterAnError) {
  launchAndRecord();
  machine.runLoop.advance(7);
  failRecording();
  machine.runLoop.advance(5);
  EXPECT_EQ(provider().menuText, "00:07");
  EXPECT_EQ(provider().menuIcon, "MenuIconOn");
  EXPECT_EQ(provider().toolIcon, "");
  EXPECT_EQ(machine.application.iconName, "NSApplicationIcon");
  EXPECT_EQ(machine.workspace.icons.back().image, "");
  EXPECT_EQ(provider().status, 0);
}

TEST_F(IndicatorTest, TheToolStatusFollowsLaunchRecordingAndEnd) {
  launch();
  EXPECT_EQ(provider().status, 1);
  confirmStart();
  EXPECT_EQ(provider().status, 1);
  clickDock();
  EXPECT_EQ(provider().status, 0);
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
  EXPECT_EQ(provider().status, 0);
}

}  // namespace
}  // namespace record_audio
