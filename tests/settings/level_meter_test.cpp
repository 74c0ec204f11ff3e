// SPDX-License-Identifier: MIT
#include "settings/level_meter.h"

#include <atomic>
#include <cmath>
#include <limits>
#include <thread>
#include <utility>

#include "tests/settings/preferences_fixture.h"

namespace record_audio {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

constexpr const char* kQueue = "com.vantrel.korvel.RecordAudio.LevelQueue";

class LevelMeterTest : public PreferencesTest {
 protected:
  LevelMeterTest() { machine_.capture.connect("mic", "Mic"); }

  auto& sessions() { return machine_.capture.monitoringSessions; }
  std::string heard() {
    const auto inputs = sessions().back()->inputs();
    return inputs.at(0)->device()->uniqueID();
  }
  [[nodiscard]] bool isListening() const {
    for (const auto& session : machine_.capture.monitoringSessions) {
      if (session->running) return true;
    }
    return false;
  }
  void deliver(const std::vector<std::vector<float>>& planes) {
    machine_.capture.dataOutputs.back()->deliver(memory_host::floatSampleBuffer(planes));
    machine_.runLoop.settle();
  }
  void step(int count = 1) {
    for (int i = 0; i < count; ++i) machine_.runLoop.advance(LevelMeter::kInterval_s + 1e-9);
  }
  void second() { machine_.runLoop.advance(1.1); }
  memory_host::MemoryLevelIndicator& indicator() { return *shown().audioLevel; }
};

TEST_F(LevelMeterTest, ListensToTheChosenDeviceWhileTheWindowIsVisible) {
  const auto controller = makeController();
  controller->window();
  EXPECT_THAT(sessions(), IsEmpty());
  controller->showWindow();
  ASSERT_THAT(sessions(), SizeIs(1));
  EXPECT_EQ(heard(), "mic");
  EXPECT_TRUE(sessions()[0]->running);
  EXPECT_THAT(sessions()[0]->outputs(), SizeIs(1));
  EXPECT_FALSE(indicator().hidden);
}

TEST_F(LevelMeterTest, ListensAtOnceInAWindowThatIsVisibleAndNotKey) {
  const auto controller = makeController();
  controller->window()->orderFront();
  EXPECT_TRUE(isListening());
}

TEST_F(LevelMeterTest, NeverPostsANotificationThatARecorderWouldTakeForItsOwn) {
  const auto controller = showController();
  EXPECT_THAT(machine_.capture.sessions, IsEmpty());
}

TEST_F(LevelMeterTest, StopsAtOnceWhenTheWindowIsHidden) {
  const auto controller = showController();
  deliver({{0.5F}});
  step();
  shown().window->orderOut();
  EXPECT_FALSE(isListening());
  EXPECT_EQ(indicator().level(), 0);
  EXPECT_EQ(machine_.runLoop.timerCount(), 0U);
  EXPECT_TRUE(machine_.capture.dataOutputs.back()->delegate.expired()) << "nothing measures";
}

TEST_F(LevelMeterTest, StopsAtOnceOnDoneBeforeTheWindowSaysThatItIsHidden) {
  const auto controller = showController();
  shown().window->setDelegate({});
  shown().clickDone();
  EXPECT_FALSE(isListening());
}

TEST_F(LevelMeterTest, RestsWhileTheWindowIsCoveredAndComesBackAtOnce) {
  const auto controller = showController();
  deliver({{0.5F}});
  step();
  shown().window->setCovered(true);
  EXPECT_FALSE(isListening());
  EXPECT_EQ(machine_.runLoop.timerCount(), 0U) << "nothing may wake up meanwhile";
  machine_.runLoop.advance(60);
  EXPECT_FALSE(isListening());
  shown().window->setCovered(false);
  EXPECT_TRUE(isListening());
  EXPECT_THAT(sessions(), SizeIs(2));
  deliver({{0.25F}});
  step();
  EXPECT_EQ(indicator().level(), 0.25F);
}

TEST_F(LevelMeterTest, DoesNotBeginInAWindowThatIsShownBehindOthers) {
  const auto controller = makeController();
  controller->window();
  shown().window->setCovered(true);
  controller->showWindow();
  EXPECT_FALSE(isListening());
  shown().window->setCovered(false);
  EXPECT_TRUE(isListening());
  shown().window->setCovered(true);
  shown().window->orderOut();
  shown().window->setCovered(false);
  EXPECT_FALSE(isListening()) << "hidden";
}

TEST_F(LevelMeterTest, StopsAtOnceOnDoneAndWithTheController) {
  auto controller = showController();
  shown().clickDone();
  EXPECT_FALSE(isListening());
  controller->showWindow();
  EXPECT_TRUE(isListening());
  controller.reset();
  EXPECT_FALSE(isListening());
  machine_.runLoop.advance(5);
}

TEST_F(LevelMeterTest, ListensAgainWhenTheWindowIsShownAgain) {
  const auto controller = showController();
  shown().window->orderOut();
  controller->showWindow();
  EXPECT_TRUE(isListening());
  EXPECT_THAT(sessions(), SizeIs(2));
  deliver({{0.5F}});
  step();
  EXPECT_FLOAT_EQ(indicator().level(), 0.5F);
}

TEST_F(LevelMeterTest, DoesNotOpenTheDeviceWithoutAccess) {
  using platform::AuthorizationStatus;
  for (const auto status : {AuthorizationStatus::kNotDetermined, AuthorizationStatus::kRestricted,
                            AuthorizationStatus::kDenied}) {
    machine_.capture.authorization = status;
    const auto controller = showController();
    machine_.runLoop.advance(10);
    EXPECT_TRUE(indicator().hidden);
  }
  EXPECT_THAT(sessions(), IsEmpty());
  EXPECT_THAT(machine_.capture.pendingRequests, IsEmpty());
}

TEST_F(LevelMeterTest, DoesNotOpenTheDeviceWithoutAThread) {
  machine_.dispatch.hasThreads = false;
  const auto controller = showController();
  EXPECT_FALSE(isListening());
  EXPECT_TRUE(indicator().hidden);
  EXPECT_THAT(machine_.suite.logLines.at(0), testing::HasSubstr("there is no thread to spare"));
}

TEST_F(LevelMeterTest, OpensTheDeviceOnceAccessIsGrantedAndReleasesItOnceWithdrawn) {
  machine_.capture.authorization = platform::AuthorizationStatus::kDenied;
  const auto controller = showController();
  machine_.capture.authorization = platform::AuthorizationStatus::kAuthorized;
  shown().window->becomeKey();
  EXPECT_TRUE(isListening());
  machine_.capture.authorization = platform::AuthorizationStatus::kDenied;
  second();
  EXPECT_FALSE(isListening());
}

TEST_F(LevelMeterTest, NeverListensWhileARecordingRuns) {
  bool recording = true;
  const auto controller = makeController();
  controller->setRecordingProbe([&] { return recording; });
  controller->showWindow();
  machine_.runLoop.advance(10);
  EXPECT_THAT(sessions(), IsEmpty());
  recording = false;
  second();
  EXPECT_TRUE(isListening());
}

TEST_F(LevelMeterTest, ReleasesTheDeviceWithinOneStepWhenARecordingStarts) {
  bool recording = false;
  const auto controller = makeController();
  controller->setRecordingProbe([&] { return recording; });
  controller->showWindow();
  ASSERT_TRUE(isListening());
  recording = true;
  step();
  EXPECT_FALSE(isListening());
  EXPECT_TRUE(indicator().hidden);
}

TEST_F(LevelMeterTest, AcceptsAProbeAfterTheWindowWasShown) {
  const auto controller = showController();
  controller->setRecordingProbe([] { return true; });
  step();
  EXPECT_FALSE(isListening());
}

TEST_F(LevelMeterTest, FollowsTheChoice) {
  machine_.capture.connect("usb", "USB");
  const auto controller = showController();
  EXPECT_EQ(heard(), "mic");
  shown().pickAudioSource(2);
  EXPECT_EQ(heard(), "usb");
  EXPECT_FALSE(sessions()[0]->running);
  shown().pickAudioSource(6);
  EXPECT_FALSE(isListening());
  EXPECT_TRUE(indicator().hidden);
  shown().pickAudioSource(0);
  EXPECT_EQ(heard(), "mic");
  EXPECT_TRUE(isListening());
}

TEST_F(LevelMeterTest, FollowsDevicesThatComeAndGo) {
  stored() = {{"AudioSourceType", 2}, {"AudioSourceID", "usb"}};
  const auto controller = showController();
  EXPECT_EQ(heard(), "mic");
  machine_.capture.connect("usb", "USB");
  EXPECT_EQ(heard(), "usb");
  machine_.capture.disconnect("usb");
  EXPECT_EQ(heard(), "mic");
  machine_.capture.disconnect("mic");
  EXPECT_FALSE(isListening());
}

TEST_F(LevelMeterTest, FollowsTheDefaultInputWithinASecond) {
  machine_.capture.connect("usb", "USB");
  const auto controller = showController();
  machine_.capture.defaultAudioID = "usb";
  second();
  EXPECT_EQ(heard(), "usb");
}

TEST_F(LevelMeterTest, LooksForANewDefaultInputAfterExactlyASecond) {
  machine_.capture.connect("usb", "USB");
  machine_.clock.now_ns = 3'600'000'000'000;
  for (const auto& [late_ms, device] : {std::pair{999, "mic"}, std::pair{1000, "usb"}}) {
    machine_.capture.defaultAudioID = "mic";
    const auto controller = showController();
    machine_.capture.defaultAudioID = "usb";
    machine_.clock.now_ns += static_cast<std::uint64_t>(late_ms) * 1'000'000;
    machine_.runLoop.settle();
    EXPECT_EQ(heard(), device) << late_ms;
  }
}

TEST_F(LevelMeterTest, LooksForANewDefaultInputOnlyOnceASecond) {
  machine_.capture.connect("usb", "USB");
  const auto controller = showController();
  second();
  machine_.capture.defaultAudioID = "usb";
  machine_.runLoop.advance(0.5);
  EXPECT_EQ(heard(), "mic");
  machine_.runLoop.advance(0.5);
  EXPECT_EQ(heard(), "usb");
}

TEST_F(LevelMeterTest, KeepsItsSessionWhenNothingChanged) {
  const auto controller = showController();
  machine_.capture.connect("usb", "USB");
  shown().window->becomeKey();
  machine_.runLoop.advance(5);
  EXPECT_THAT(sessions(), SizeIs(1));
}

TEST_F(LevelMeterTest, ShowsThePeakOfAllChannels) {
  const auto controller = showController();
  deliver({{0.1F, -0.25F, 0.2F}, {0.0F, 0.125F, -0.5F}});
  step();
  EXPECT_FLOAT_EQ(indicator().level(), 0.5F);
}

TEST_F(LevelMeterTest, ShowsNothingOfTheChannelsOfAnEarlierBuffer) {
  const auto controller = showController();
  const auto stereo = memory_host::floatSampleBuffer({{0.1F}, {0.9F}});
  machine_.capture.dataOutputs.back()->deliver(stereo);
  machine_.runLoop.settle();
  step(100);
  EXPECT_EQ(indicator().level(), 0);
  deliver({{0.1F}});
  step();
  EXPECT_FLOAT_EQ(indicator().level(), 0.1F);
}

TEST_F(LevelMeterTest, ShowsNothingOfAnEarlierBufferForOneThatCannotBeRead) {
  const auto controller = showController();
  const auto loud = memory_host::floatSampleBuffer({{0.9F}});
  machine_.capture.dataOutputs.back()->deliver(loud);
  machine_.runLoop.settle();
  step(100);
  const auto unreadable = memory_host::floatSampleBuffer({{0.1F}});
  unreadable->listStatus = -1;
  machine_.capture.dataOutputs.back()->deliver(unreadable);
  machine_.runLoop.settle();
  step();
  EXPECT_EQ(indicator().level(), 0);
}

TEST_F(LevelMeterTest, ShowsNothingOfABufferWithoutSamples) {
  const auto controller = showController();
  deliver({{}});
  step();
  EXPECT_THAT(indicator().levels, IsEmpty());
}

TEST_F(LevelMeterTest, ShowsTheHighestPeakSinceTheLastStep) {
  const auto controller = showController();
  deliver({{0.75F}});
  deliver({{0.25F}});
  step();
  EXPECT_FLOAT_EQ(indicator().level(), 0.75F);
}

TEST_F(LevelMeterTest, ShowsNothingAboveFullScaleAndNothingThatIsNotANumber) {
  const auto controller = showController();
  deliver({{4.0F, std::numeric_limits<float>::infinity()}});
  step();
  EXPECT_EQ(indicator().level(), 1.0F);
  deliver({{std::nanf(""), 0.0F}});
  step(100);
  EXPECT_EQ(indicator().level(), 0.0F);
  EXPECT_THAT(indicator().levels, Each(AllOf(Ge(0.0F), Le(1.0F))));
}

TEST_F(LevelMeterTest, FallsSmoothlyToNothing) {
  const auto controller = showController();
  deliver({{1.0F}});
  step(120);
  const auto& levels = indicator().levels;
  ASSERT_THAT(levels, SizeIs(testing::Gt(30U)));
  EXPECT_EQ(levels.front(), 1.0F);
  EXPECT_EQ(levels.back(), 0.0F);
  const float perStep =
      std::exp(-static_cast<float>(LevelMeter::kInterval_s / LevelMeter::kDecay_s));
  for (std::size_t i = 1; i + 1 < levels.size(); ++i) {
    EXPECT_NEAR(levels[i] / levels[i - 1], perStep, 1e-5);
  }
}

TEST_F(LevelMeterTest, HasFallenByTwoThirdsAfterItsDecayTime) {
  const auto controller = showController();
  deliver({{1.0F}});
  step();
  machine_.runLoop.advance(LevelMeter::kDecay_s);
  EXPECT_NEAR(indicator().level(), 1.0 / 3, 0.06);
}

TEST_F(LevelMeterTest, RisesAtOnce) {
  const auto controller = showController();
  deliver({{0.1F}});
  step();
  deliver({{0.9F}});
  step();
  EXPECT_FLOAT_EQ(indicator().level(), 0.9F);
}

TEST_F(LevelMeterTest, DrawsNothingForSilence) {
  const auto controller = showController();
  for (int i = 0; i < 100; ++i) {
    deliver({{0.0F, 0.0001F}});
    step();
  }
  EXPECT_THAT(indicator().levels, IsEmpty());
}

TEST_F(LevelMeterTest, DrawsFromSeventyTwoDecibelsBelowFullScaleOn) {
  constexpr float kFaintest = 1.0F / 4096;
  const auto controller = showController();
  deliver({{std::nextafter(kFaintest, 0.0F)}});
  step();
  EXPECT_THAT(indicator().levels, IsEmpty());
  deliver({{kFaintest}});
  step();
  EXPECT_THAT(indicator().levels, ElementsAre(kFaintest));
}

TEST_F(LevelMeterTest, IgnoresSamplesItCannotRead) {
  const auto controller = showController();
  auto unreadable = memory_host::floatSampleBuffer({{1.0F}});
  const auto deliverBuffer = [&] {
    machine_.capture.dataOutputs.back()->deliver(unreadable);
    machine_.runLoop.settle();
    step();
  };
  unreadable->listStatus = -1;
  deliverBuffer();
  unreadable->listStatus = 0;
  EXPECT_EQ(unreadable->listRequests, 1);
  unreadable->sizeStatus = -1;
  deliverBuffer();
  EXPECT_EQ(unreadable->listRequests, 1);
  unreadable->sizeStatus = 0;
  unreadable->description.formatList[0].mBitsPerChannel = 64;
  deliverBuffer();
  unreadable->description.formatList[0].mBitsPerChannel = 32;
  unreadable->description.formatList[0].mFormatFlags = platform::kAudioFormatFlagIsSignedInteger;
  deliverBuffer();
  unreadable->description.formatList.clear();
  deliverBuffer();
  EXPECT_THAT(indicator().levels, IsEmpty());
}

TEST_F(LevelMeterTest, ShowsNothingOfThePreviousDevice) {
  machine_.capture.connect("usb", "USB");
  const auto controller = showController();
  const auto earlier = machine_.capture.dataOutputs.back();
  shown().pickAudioSource(2);
  earlier->deliver(memory_host::floatSampleBuffer({{1.0F}}));
  machine_.runLoop.settle();
  step();
  EXPECT_EQ(indicator().level(), 0);
}

TEST_F(LevelMeterTest, GivesUpADeviceThatFailsUntilSomethingChanges) {
  const auto controller = showController();
  sessions().back()->running = false;
  machine_.runLoop.advance(10);
  EXPECT_THAT(sessions(), SizeIs(1));
  EXPECT_TRUE(indicator().hidden);
  shown().window->becomeKey();
  EXPECT_THAT(sessions(), SizeIs(2));
  EXPECT_FALSE(indicator().hidden);
}

TEST_F(LevelMeterTest, ADefaultInputThatFailsDoesNotBarTheNextOne) {
  machine_.capture.connect("usb", "USB");
  const auto controller = showController();
  sessions().back()->running = false;
  step();
  machine_.capture.defaultAudioID = "usb";
  second();
  EXPECT_TRUE(isListening());
  EXPECT_EQ(heard(), "usb");
}

TEST_F(LevelMeterTest, LogsOnceThatADeviceCannotBeOpened) {
  machine_.capture.inputError = "The device is busy";
  const auto controller = showController();
  machine_.runLoop.advance(10);
  EXPECT_FALSE(isListening());
  EXPECT_TRUE(indicator().hidden);
  EXPECT_GE(machine_.suite.logLines.size(), 1U);
  EXPECT_LE(machine_.suite.logLines.size(), 2U);  // when shown and when key
  EXPECT_THAT(machine_.suite.logLines[0], testing::HasSubstr("The device is busy"));
}

TEST_F(LevelMeterTest, SurvivesASessionThatRefusesInputOrOutput) {
  machine_.capture.refuseInput = true;
  const auto first = showController();
  machine_.capture.refuseInput = false;
  machine_.capture.refuseOutput = true;
  const auto second = showController();
  EXPECT_FALSE(isListening());
}

TEST_F(LevelMeterTest, SurvivesAHostThatCannotListen) {
  machine_.capture.canMonitor = false;
  const auto controller = showController();
  machine_.runLoop.advance(5);
  EXPECT_TRUE(indicator().hidden);
}

TEST_F(LevelMeterTest, OpensNothingForAWindowWithoutTheIndicator) {
  interface_.missingOutlets = {"audioLevel"};
  const auto controller = showController();
  machine_.runLoop.advance(5);
  EXPECT_THAT(sessions(), IsEmpty());
  EXPECT_EQ(machine_.runLoop.timerCount(), 0U);
}

TEST_F(LevelMeterTest, MeasuresOnAQueueOfItsOwn) {
  const auto controller = showController();
  EXPECT_NE(machine_.dispatch.queue(kQueue), nullptr);
  EXPECT_EQ(machine_.capture.dataOutputs.back()->queue, machine_.dispatch.queue(kQueue));
}

TEST_F(LevelMeterTest, IsFedFromAnotherThread) {
  const auto controller = showController();
  const auto output = machine_.capture.dataOutputs.back();
  std::atomic<bool> enough{false};
  std::thread queue([&] {
    platform::CaptureConnection connection;
    while (!enough.load()) {
      if (const auto tap = output->delegate.lock()) {
        tap->captureOutput(*output, memory_host::floatSampleBuffer({{0.5F}, {0.25F}}), connection);
      }
    }
  });
  for (int steps = 0; steps < 500 || indicator().level() < 0.5F; ++steps) step();
  shown().window->orderOut();
  enough.store(true);
  queue.join();
  EXPECT_EQ(indicator().level(), 0);
}

}  // namespace
}  // namespace record_audio
