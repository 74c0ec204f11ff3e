// SPDX-License-Identifier: MIT
#include "tests/app/app_test.h"

namespace record_audio {
namespace {

using platform::TerminateReply;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class QuitTest : public AppTest {
 protected:
  void launchIdle() {
    launchAndRecord();
    app->stopRecord();
    app->removeAllPreviousNotifications();
  }
};

TEST_F(QuitTest, CanQuitWhenIdle) {
  launchIdle();
  EXPECT_TRUE(app->canQuit());
}

TEST_F(QuitTest, CannotQuitWhileRecording) {
  launchAndRecord();
  EXPECT_FALSE(app->canQuit());
  EXPECT_THAT(during([&] { app->tryToQuit(); }), IsEmpty());
}

TEST_F(QuitTest, CannotQuitWhileWaiting) {
  useSource(3);
  plugLoopbackDriver();
  launch();
  EXPECT_FALSE(app->canQuit());
  EXPECT_THAT(during([&] { app->tryToQuit(); }), IsEmpty());
}

TEST_F(QuitTest, CannotQuitWhileThePreferencesAreVisible) {
  launchIntoPreferences();
  EXPECT_FALSE(app->canQuit());
  EXPECT_THAT(during([&] { app->onQuit(); }), IsEmpty());
  window->orderOut();
  EXPECT_TRUE(app->canQuit());
}

TEST_F(QuitTest, TryToQuitHidesAndTerminates) {
  launchIdle();
  EXPECT_THAT(during([&] { app->tryToQuit(); }),
              ElementsAre(kHideFromDock, "terminate", kHideFromDock, "status 0", "event Quit"));
}

// The timer of the notification asks again.
TEST_F(QuitTest, TryToQuitOnlyHidesWhileANotificationIsPending) {
  launchIdle();
  app->showNotificationError();
  EXPECT_THAT(during([&] { app->tryToQuit(); }), ElementsAre(kHideFromDock));
}

TEST_F(QuitTest, TheNotificationOfTheLastRecordingDoesNotEndTheProgramUnderAStart) {
  launchAndRecord();
  clickDock();
  machine.runLoop.advance(9.9);
  clickDock();
  machine.runLoop.advance(0.2);
  ASSERT_FALSE(ended());
  confirmStart();
  EXPECT_FALSE(app->canQuit());
}

TEST_F(QuitTest, AProgramWhoseStartFailsStillQuits) {
  launchAndRecord();
  clickDock();
  machine.runLoop.advance(9.9);
  clickDock();
  machine.runLoop.advance(0.2);
  failRecording();
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(QuitTest, AQuitWhileRecordingSavesAndIsCompletedByTheNotification) {
  launchAndRecord();
  machine.runLoop.advance(20);
  const auto entries =
      during([&] { EXPECT_EQ(app->applicationShouldTerminate(), TerminateReply::kCancel); });
  EXPECT_EQ(entries.back(), kHideFromDock);
  EXPECT_EQ(machine.suite.eventNames(), (Entries{"Launch", "Start", "Stop"}));
  EXPECT_THAT(showingTexts(), ElementsAre(kSavedText));
  machine.runLoop.advance(9.9);
  EXPECT_FALSE(ended());
  machine.runLoop.advance(0.1);
  EXPECT_TRUE(ended());
}

TEST_F(QuitTest, AQuitWhileWaitingEndsTheWait) {
  useSource(3);
  plugLoopbackDriver();
  loopbackAppears = false;
  launch();
  EXPECT_EQ(app->applicationShouldTerminate(), TerminateReply::kCancel);
  EXPECT_EQ(app->audioWaiter(), nullptr);
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(QuitTest, AQuitWithOnlyThePreferencesOpenHidesThemAndEndsAtOnce) {
  launchIntoPreferences();
  window->journal.clear();
  EXPECT_THAT(during([&] { EXPECT_EQ(app->applicationShouldTerminate(), TerminateReply::kNow); }),
              ElementsAre(kHideFromDock));
  EXPECT_THAT(window->journal, ElementsAre("orderOut"));
}

TEST_F(QuitTest, AQuitWithThePreferencesOpenWaitsForAPendingNotification) {
  launchIntoPreferences();
  app->showNotificationError();
  EXPECT_EQ(app->applicationShouldTerminate(), TerminateReply::kCancel);
  EXPECT_FALSE(window->visible);
  machine.runLoop.advance(10);
  EXPECT_TRUE(ended());
}

TEST_F(QuitTest, AQuitDoesNotLoadTheWindowToHideIt) {
  launchIdle();
  EXPECT_EQ(app->applicationShouldTerminate(), TerminateReply::kNow);
  EXPECT_FALSE(windowLoaded());
}

// A window that cannot be hidden keeps the application.
class StubbornWindow : public memory_host::MemoryWindow {
 public:
  void orderOut() override {}
};

TEST_F(QuitTest, AQuitIsRefusedWhileTheWindowStaysVisible) {
  machine.interfaceLoader.recipe = [&](const std::string&, platform::InterfaceOwner&) {
    return window = std::make_shared<StubbornWindow>();
  };
  launchIntoPreferences();
  EXPECT_THAT(
      during([&] { EXPECT_EQ(app->applicationShouldTerminate(), TerminateReply::kCancel); }),
      IsEmpty());
}

TEST_F(QuitTest, TheEndTurnsTheToolInactiveAndLogsTheQuit) {
  launchIdle();
  EXPECT_THAT(during([&] { app->applicationWillTerminate(); }),
              ElementsAre("status 0", "event Quit"));
  EXPECT_EQ(lastEvent().details, std::nullopt);
}

}  // namespace
}  // namespace record_audio
