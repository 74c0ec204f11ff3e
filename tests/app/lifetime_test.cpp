// SPDX-License-Identifier: MIT
#include <thread>

#include "routing/audio_play_through.h"
#include "tests/app/app_test.h"
#include "tests/memory_host/memory_controls.h"

namespace record_audio {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LifetimeTest : public AppTest {
 protected:
  // The end of the process. What others may still hold is left to them.
  void end() {
    app->applicationWillTerminate();
    machine.application.delegate = nullptr;
    const std::weak_ptr<AppDelegate> weak = app;
    app.reset();
    EXPECT_TRUE(weak.expired());
    machine.timeline.entries.clear();
  }
};

TEST_F(LifetimeTest, APermissionAnswerAfterTheEndDoesNothing) {
  machine.capture.authorization = platform::AuthorizationStatus::kNotDetermined;
  launch();
  end();
  std::thread([&] { machine.capture.pendingRequests[0](true); }).join();
  machine.runLoop.settle();
  EXPECT_THAT(machine.timeline.entries, IsEmpty());
}

TEST_F(LifetimeTest, AQueuedPermissionAnswerDoesNotKeepTheDelegate) {
  machine.capture.authorization = platform::AuthorizationStatus::kNotDetermined;
  launch();
  machine.capture.pendingRequests[0](true);
  end();
  machine.runLoop.settle();
  EXPECT_THAT(machine.timeline.entries, IsEmpty());
}

TEST_F(LifetimeTest, DoneAfterTheEndDoesNothing) {
  launchIntoPreferences();
  const auto preferences = app->preferences();
  end();
  preferences->onDoneClicked();
  EXPECT_THAT(machine.timeline.entries, IsEmpty());
}

TEST_F(LifetimeTest, AWaiterThatAnswersAfterTheEndIsIgnored) {
  useSource(3);
  plugLoopbackDriver();
  launch();
  end();
  machine.runLoop.advance(3);
  EXPECT_THAT(machine.timeline.entries, ElementsAre("default output 20"));
}

TEST_F(LifetimeTest, AnActivationAfterTheEndDoesNothing) {
  launchAndRecord();
  const auto notification = machine.userNotificationCenter.delivered.back();
  machine.runLoop.advance(10);
  app->stopRecord();
  app->removeAllPreviousNotifications();
  end();
  machine.userNotificationCenter.activate(
      notification, platform::UserNotificationActivationType::kActionButtonClicked);
  EXPECT_THAT(machine.timeline.entries, IsEmpty());
}

TEST_F(LifetimeTest, ARemoteStopThatIsStillPendingAtTheEndDoesNothing) {
  launch();
  app->stop();
  end();
  machine.runLoop.advance(60);
  EXPECT_THAT(machine.timeline.entries, IsEmpty());
}

TEST_F(LifetimeTest, ARemoteStopThatIsQueuedAtTheEndDoesNothing) {
  launch();
  app->stop();
  confirmStart();
  app->internalStop();
  app->removeAllPreviousNotifications();
  end();
  machine.runLoop.settle();
  EXPECT_THAT(machine.timeline.entries, IsEmpty());
}

TEST_F(LifetimeTest, ARecoveryThatEndsAfterTheDelegateTellsNobody) {
  platform::RecordingFindings findings;
  findings.contents = platform::RecordingFindings::Contents::kM4a;
  machine.interruptedRecordings.add("Audio_recording_old", findings);
  launchIntoPreferences();
  machine.dispatch.main->runAll();
  end();
  machine.runLoop.settle();
  EXPECT_FALSE(machine.fileManager.fileExists("/tmp-of-memory/Audio_recording_old"));
  EXPECT_THAT(machine.userNotificationCenter.delivered, IsEmpty());
}

TEST_F(LifetimeTest, TheLevelMeterOfAWindowThatOutlivesTheDelegateListens) {
  const auto level = std::make_shared<memory_host::MemoryLevelIndicator>();
  machine.interfaceLoader.recipe = [&](const std::string&, platform::InterfaceOwner& owner) {
    owner.connectOutlet("audioLevel", level);
    return window = std::make_shared<memory_host::MemoryWindow>();
  };
  launchIntoPreferences();
  const auto preferences = app->preferences();
  end();
  machine.runLoop.advance(2);
  ASSERT_FALSE(machine.capture.monitoringSessions.empty());
  EXPECT_TRUE(machine.capture.monitoringSessions.back()->running);
}

TEST_F(LifetimeTest, ASessionThatReportsAfterTheEndIsIgnored) {
  launch();
  const auto session = machine.capture.sessions.back();
  end();
  session->reportStarted();
  session->reportError("late");
  EXPECT_THAT(machine.timeline.entries, IsEmpty());
}

TEST_F(LifetimeTest, TheRunLoopKeepsTheDelegateWhileOneOfItsTimersIsPending) {
  launch();
  app->showNotificationError();
  app->applicationWillTerminate();
  machine.application.delegate = nullptr;
  const std::weak_ptr<AppDelegate> weak = app;
  app.reset();
  EXPECT_FALSE(weak.expired());
  machine.runLoop.advance(10);
  EXPECT_TRUE(weak.expired());
}

TEST_F(LifetimeTest, TheBlinkTimerKeepsTheDelegate) {
  launchAndRecord();
  machine.runLoop.advance(11);
  ASSERT_EQ(machine.runLoop.scheduledIntervals_s(), std::vector<double>{1.0});
  app->applicationWillTerminate();
  machine.application.delegate = nullptr;
  const std::weak_ptr<AppDelegate> weak = app;
  app.reset();
  EXPECT_FALSE(weak.expired());
  machine.runLoop.clear();
  EXPECT_TRUE(weak.expired());
}

TEST_F(LifetimeTest, TheWaiterGoesBeforeThePreferences) {
  useSource(3);
  plugLoopbackDriver();
  loopbackAppears = false;
  launch();
  const std::weak_ptr<PreferencesWindowController> preferences = app->preferences();
  int hides = 0;
  machine.audioHardware.onWrite = [&](platform::AudioObjectID object,
                                      const platform::AudioObjectPropertyAddress&) {
    if (object != kLoopbackControl) return;
    ++hides;
    EXPECT_FALSE(preferences.expired());
  };
  app->applicationWillTerminate();
  machine.application.delegate = nullptr;
  machine.runLoop.clear();
  EXPECT_EQ(hides, 0);
  app.reset();
  EXPECT_EQ(hides, 1);
  EXPECT_TRUE(preferences.expired());
}

TEST_F(LifetimeTest, TheRecordersCallbackKeepsTheDelegateUntilTheEnd) {
  launch();
  const std::weak_ptr<AppDelegate> weak = app;
  app.reset();
  ASSERT_FALSE(weak.expired());
  weak.lock()->applicationWillTerminate();
  machine.application.delegate = nullptr;
  EXPECT_TRUE(weak.expired());
}

TEST_F(LifetimeTest, DestructionLeavesThePlayThroughRecordAlone) {
  launchAndRecordSystemAudio();
  app->removeAllPreviousNotifications();
  AudioPlayThrough* const record = app->audioPlayThrough();
  const auto session = machine.capture.sessions.back();
  app->applicationWillTerminate();
  machine.runLoop.clear();
  machine.application.delegate = nullptr;
  app.reset();
  EXPECT_TRUE(machine.audioUnits.graphRunning());
  delete record;
  EXPECT_FALSE(machine.audioUnits.graphRunning());
}

// A provider that reports its destruction.
class ObservedProvider : public suite::ToolDataClientProvider {
 public:
  explicit ObservedProvider(std::function<void()> onEnd) : onEnd_(std::move(onEnd)) {}
  ~ObservedProvider() override { onEnd_(); }
  void setToolStatus(int) override {}
  void setToolIcon(const platform::ImagePtr&) override {}
  void setMenuIcon(const platform::ImagePtr&) override {}
  void setMenuText(const std::string&) override {}

 private:
  std::function<void()> onEnd_;
};

class ObservedSuite : public suite::KorvelCommon {
 public:
  ObservedSuite(suite::CEP& events, std::function<void()> onProviderEnd)
      : events_(events), onProviderEnd_(std::move(onProviderEnd)) {}
  std::shared_ptr<suite::ToolDataClientProvider> createToolDataClientProvider() override {
    return std::make_shared<ObservedProvider>(onProviderEnd_);
  }
  suite::CEP& CEP() override { return events_; }

 private:
  suite::CEP& events_;
  std::function<void()> onProviderEnd_;
};

TEST_F(LifetimeTest, ThePreferencesGoBeforeTheProviderAndTheRecorderAfterIt) {
  int ends = 0;
  ObservedSuite observed(machine.suite, [&] {
    ++ends;
    auto& center = machine.notificationCenter;
    EXPECT_EQ(center.observerCount(platform::kCaptureDeviceWasConnectedNotification), 0U);
    EXPECT_EQ(center.observerCount(platform::kCaptureSessionDidStartRunningNotification), 1U);
  });
  suite::Suite services{observed, machine.suite, machine.suite};
  auto tool = AppDelegate::create({machine.host, services});
  tool->applicationDidFinishLaunching();
  EXPECT_EQ(
      machine.notificationCenter.observerCount(platform::kCaptureDeviceWasConnectedNotification),
      1U);
  tool->applicationWillTerminate();
  EXPECT_EQ(ends, 0);
  tool.reset();
  EXPECT_EQ(ends, 1);
}

}  // namespace
}  // namespace record_audio
