// SPDX-License-Identifier: MIT
#include "routing/audio_waiter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <any>
#include <memory>
#include <vector>

#include "tests/routing/routing_machine.h"

namespace record_audio {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AudioWaiterTest : public testing::Test, protected routing_test::RoutingMachine {
 protected:
  ~AudioWaiterTest() override { host.runLoop.clear(); }

  std::shared_ptr<AudioWaiter> wait(std::any object = {}) {
    return AudioWaiter::initWithObject(host.environment, std::move(object),
                                       [this](bool success, const std::any& given) {
                                         results.push_back(success);
                                         objects.push_back(given);
                                       });
  }
  // From now on the capture framework lists the device.
  void deviceAppears() { host.capture.connect(kLoopbackDeviceUID, "Computer (loopback)"); }
  void poll(int times) {
    for (int i = 0; i < times; ++i) host.runLoop.advance(0.01);
  }

  std::vector<bool> results;
  std::vector<std::any> objects;
};

TEST_F(AudioWaiterTest, IsPollingAtOnceWithTheDeviceShown) {
  const auto waiter = wait();
  EXPECT_EQ(control(), kShow);
  EXPECT_NE(waiter->timerCheck(), nullptr);
  EXPECT_EQ(waiter->counter(), 0);
  EXPECT_THAT(host.runLoop.scheduledIntervals_s(), ElementsAre(0.01));
  EXPECT_THAT(results, IsEmpty());
}

TEST_F(AudioWaiterTest, RemembersTheOutputFromBeforeAnythingWasSwitched) {
  host.audioHardware.onWrite = [this](platform::AudioObjectID object,
                                      const platform::AudioObjectPropertyAddress&) {
    // A driver that takes over as soon as it is shown.
    if (object == kControlID) host.audioHardware.setDefaultOutput(kLoopbackID);
  };
  const auto waiter = wait();
  EXPECT_EQ(waiter->output(), kSpeakersID);
}

TEST_F(AudioWaiterTest, TheOutputIsTheLoopbackIfThatWasTheDefaultAlready) {
  host.audioHardware.setDefaultOutput(kLoopbackID);
  EXPECT_EQ(wait()->output(), kLoopbackID);
}

TEST_F(AudioWaiterTest, SucceedsAtTheFirstPollWhenTheDeviceIsAlreadyListed) {
  deviceAppears();
  const auto waiter = wait();
  host.runLoop.advance(0.009);
  EXPECT_THAT(results, IsEmpty());
  host.runLoop.advance(0.001);
  EXPECT_THAT(results, ElementsAre(true));
  EXPECT_EQ(host.audioHardware.defaultOutput(), kLoopbackID);
  EXPECT_EQ(waiter->timerCheck(), nullptr);
  EXPECT_EQ(waiter->counter(), 0);
  EXPECT_EQ(control(), kShow);
  EXPECT_EQ(host.runLoop.timerCount(), 0U);
}

TEST_F(AudioWaiterTest, SucceedsAsSoonAsTheDeviceAppearsAndReportsOnce) {
  const auto waiter = wait();
  poll(50);
  EXPECT_EQ(waiter->counter(), 50);
  EXPECT_EQ(host.audioHardware.defaultOutput(), kSpeakersID);
  deviceAppears();
  poll(300);
  EXPECT_THAT(results, ElementsAre(true));
  EXPECT_EQ(waiter->counter(), 50);
}

TEST_F(AudioWaiterTest, PassesTheObjectOn) {
  deviceAppears();
  const auto waiter = wait(std::string("mine"));
  poll(1);
  EXPECT_EQ(std::any_cast<std::string>(objects.at(0)), "mine");
}

TEST_F(AudioWaiterTest, GivesUpWithThe201stUnsuccessfulPollAndHidesTheDevice) {
  const auto waiter = wait(7);
  poll(200);
  EXPECT_EQ(waiter->counter(), 200);
  EXPECT_THAT(results, IsEmpty());
  EXPECT_EQ(control(), kShow);
  poll(1);
  EXPECT_THAT(results, ElementsAre(false));
  EXPECT_EQ(std::any_cast<int>(objects.at(0)), 7);
  EXPECT_EQ(waiter->counter(), 200);
  EXPECT_EQ(waiter->timerCheck(), nullptr);
  EXPECT_EQ(control(), kHide);
  EXPECT_EQ(host.audioHardware.defaultOutput(), kSpeakersID);
  poll(300);
  EXPECT_EQ(results.size(), 1U);
}

TEST_F(AudioWaiterTest, TheDeviceIsHiddenBeforeTheFailureIsReported) {
  std::uint32_t controlAtReport = 0;
  const auto waiter = AudioWaiter::initWithObject(
      host.environment, {}, [&](bool, const std::any&) { controlAtReport = control(); });
  poll(201);
  EXPECT_EQ(controlAtReport, kHide);
}

// The capture framework has it, so it can be recorded; the hardware may list it a moment later.
TEST_F(AudioWaiterTest, ADeviceWithoutAnIdStillSucceedsButLeavesTheDefaultAlone) {
  unloadDriver();
  deviceAppears();
  const auto waiter = wait();
  poll(1);
  EXPECT_THAT(results, ElementsAre(true));
  EXPECT_EQ(host.audioHardware.defaultOutput(), kSpeakersID);
  for (const auto& call : host.audioHardware.calls) {
    EXPECT_NE(call.kind, memory_host::MemoryAudioHardware::CallKind::kHardwareSet);
  }
}

// The device can still be recorded, and the user can choose it as the output.
TEST_F(AudioWaiterTest, ARefusedSwitchOfTheDefaultStillSucceeds) {
  deviceAppears();
  host.audioHardware.fail(platform::kAudioObjectSystemObject,
                          platform::kAudioHardwarePropertyDefaultOutputDevice,
                          platform::kAudioObjectPropertyScopeGlobal, -1,
                          memory_host::MemoryAudioHardware::FailOn::kWrite);
  const auto waiter = wait();
  poll(1);
  EXPECT_THAT(results, ElementsAre(true));
}

TEST_F(AudioWaiterTest, SucceedsWithoutACallback) {
  deviceAppears();
  const auto waiter = AudioWaiter::initWithObject(host.environment, {}, nullptr);
  poll(1);
  EXPECT_EQ(waiter->timerCheck(), nullptr);
  EXPECT_EQ(host.audioHardware.defaultOutput(), kLoopbackID);
}

TEST_F(AudioWaiterTest, AReleasedWaiterGoesOnPollingUntilItSucceeds) {
  std::weak_ptr<AudioWaiter> waiter = wait();
  EXPECT_FALSE(waiter.expired());
  poll(20);
  deviceAppears();
  poll(1);
  EXPECT_THAT(results, ElementsAre(true));
  EXPECT_EQ(host.audioHardware.defaultOutput(), kLoopbackID);
  EXPECT_TRUE(waiter.expired());
  EXPECT_EQ(control(), kShow);
}

TEST_F(AudioWaiterTest, AReleasedWaiterGoesOnPollingUntilItGivesUp) {
  std::weak_ptr<AudioWaiter> waiter = wait();
  poll(200);
  EXPECT_FALSE(waiter.expired());
  poll(1);
  EXPECT_THAT(results, ElementsAre(false));
  EXPECT_TRUE(waiter.expired());
}

TEST_F(AudioWaiterTest, TheOwnerMayReleaseItInTheCallback) {
  deviceAppears();
  std::shared_ptr<AudioWaiter> owned;
  platform::AudioDeviceID outputInCallback = 0;
  owned = AudioWaiter::initWithObject(host.environment, {}, [&](bool, const std::any&) {
    outputInCallback = owned->output();
    owned.reset();
  });
  const std::weak_ptr<AudioWaiter> waiter = owned;
  poll(1);
  EXPECT_EQ(outputInCallback, kSpeakersID);
  EXPECT_TRUE(waiter.expired());
  EXPECT_EQ(control(), kShow);
}

TEST_F(AudioWaiterTest, TheOwnerMayStartANewWaitInTheCallback) {
  deviceAppears();
  std::shared_ptr<AudioWaiter> second;
  const auto first = AudioWaiter::initWithObject(host.environment, {},
                                                 [&](bool, const std::any&) { second = wait(); });
  poll(2);
  EXPECT_THAT(results, ElementsAre(true));
  EXPECT_EQ(second->output(), kLoopbackID);
}

TEST_F(AudioWaiterTest, AWaiterThatEndsWhilePollingInvalidatesItsTimerAndHidesTheDevice) {
  auto waiter = wait();
  // The run loop releases an invalid timer's action, and so the waiter.
  waiter->timerCheck()->invalidate();
  poll(1);
  EXPECT_EQ(control(), kShow);
  const platform::TimerPtr timer = host.runLoop.scheduledTimer(1, {}, true, [](const auto&) {});
  waiter->setTimerCheck(timer);
  waiter.reset();
  EXPECT_FALSE(timer->isValid());
  EXPECT_EQ(control(), kHide);
  EXPECT_THAT(results, IsEmpty());
}

TEST_F(AudioWaiterTest, AWaiterWhoseWaitHasEndedHidesNothingWhenDestroyed) {
  deviceAppears();
  auto waiter = wait();
  poll(1);
  const std::size_t calls = host.audioHardware.calls.size();
  waiter.reset();
  EXPECT_EQ(host.audioHardware.calls.size(), calls);
}

// The suite's interface has these setters; this tool does not call them.
TEST_F(AudioWaiterTest, ItsPropertiesCanBeSet) {
  const auto waiter = wait();
  waiter->setOutput(5);
  waiter->setCounter(200);
  bool called = false;
  waiter->setOnWaitFinished([&](bool, const std::any&) { called = true; });
  EXPECT_EQ(waiter->output(), 5U);
  poll(1);
  EXPECT_TRUE(called);
  EXPECT_THAT(results, IsEmpty());
}

}  // namespace
}  // namespace record_audio
