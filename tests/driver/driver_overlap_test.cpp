// SPDX-License-Identifier: MIT
// Overlaps: a request during a removal, two drivers at once, and a client that claims to be one.

#include <csignal>

#include "tests/driver/driver_fixture.h"

namespace driver_test {
namespace {

using std::chrono::steady_clock;
using test_support::ChildProcess;
using test_support::waitUntil;

void letPass(std::chrono::milliseconds length) {
  const auto begin = steady_clock::now();
  waitUntil([&] { return steady_clock::now() - begin >= length; });
}

TEST_F(DriverTest, AnswersARequestWhenTheDeviceIsThere) {
  EXPECT_EQ(granted(), loopback::kLoopbackNoneGranted);
  auto asker = startAsker();
  EXPECT_TRUE(waitUntil([&] { return isGranted(*asker, 1); })) << granted();
  const ChildProcess another({{LOOPBACK_ASKER, "--without-numbers"}, {}, {}});
  EXPECT_TRUE(waitUntil([this] { return granted().find(' ') != std::string::npos; })) << granted();
  asker.reset();
  EXPECT_TRUE(waitUntil([this] { return granted().find_first_of(" :") == std::string::npos; }));
  EXPECT_NE(granted(), loopback::kLoopbackNoneGranted);
}

// A stream plays to the device and cannot be moved off it, so that the removal takes long.
TEST_F(DriverTest, ARequestDuringTheDepartureKeepsTheDevice) {
  control().setDefaultSink(kSpeaker);
  const auto asker = startAsker();
  const auto player = playSomething(loopback::kLoopbackDeviceUID);
  ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  makeLoopbackTheDefault();
  const auto device = control().nodeId(loopback::kLoopbackDeviceUID);
  asker->sendSignal(SIGUSR1);
  ASSERT_TRUE(waitUntil([this] { return granted() == loopback::kLoopbackNoneGranted; }));
  ASSERT_TRUE(deviceIsShown()) << "it has left before anybody could ask again";
  asker->sendSignal(SIGUSR2);
  ASSERT_TRUE(waitUntil([&] { return isGranted(*asker, 3); })) << granted();
  EXPECT_EQ(control().nodeId(loopback::kLoopbackDeviceUID), device);
  makeLoopbackTheDefault();
  letPass(std::chrono::milliseconds(500));  // longer than any removal
  EXPECT_TRUE(deviceIsShown());
  EXPECT_EQ(configuredDefault(), loopback::kLoopbackDeviceUID);
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
}

TEST_F(DriverTest, WhateverThePauseADeviceThatWasGrantedStays) {
  control().setDefaultSink(kSpeaker);
  const auto player = playSomething();
  const auto asker = startAsker();
  int request = 1;
  for (int pause_ms = 0; pause_ms <= 60; pause_ms += 5) {
    ASSERT_TRUE(waitUntil([&] { return isGranted(*asker, request); })) << granted();
    makeLoopbackTheDefault();
    ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID)) << "after " << pause_ms << " ms";
    asker->sendSignal(SIGUSR1);
    ASSERT_TRUE(waitUntil([&] { return requestsOf(loopback::kLoopbackRequestHideText) == 1; }));
    letPass(std::chrono::milliseconds(pause_ms));
    asker->sendSignal(SIGUSR2);
    request += 2;
  }
  ASSERT_TRUE(waitUntil([&] { return isGranted(*asker, request); })) << granted();
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
  EXPECT_TRUE(waitUntilHeardOn(kSpeaker));
}

TEST_F(DriverTest, AfterACrashTheNextRequestCountsAlthoughTheOldOneStillStands) {
  const auto asker = startAsker();
  const pid_t killed = driverPid().value();
  ASSERT_EQ(kill(killed, SIGKILL), 0);
  ASSERT_TRUE(waitUntil([&] { return driverPid().value_or(killed) != killed; }));
  ASSERT_TRUE(deviceIsHidden());
  askAgain(*asker);
  EXPECT_TRUE(waitUntil([&] { return isGranted(*asker, 2); })) << granted();
}

TEST_F(DriverTest, ASecondOneLeavesTheDefaultsOfARecordingAlone) {
  control().setDefaultSink(kSpeaker);
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  const auto second = startDriver();
  EXPECT_EQ(second->waitForExit(std::chrono::seconds(5)), 0);
  EXPECT_EQ(configuredDefault(), loopback::kLoopbackDeviceUID);
  EXPECT_EQ(usedDefault(), loopback::kLoopbackDeviceUID);
}

// The driver that leaves first has to put back the user's default, which takes a while.
TEST_F(DriverlessTest, OneThatStartsWhileAnotherLeavesServes) {
  for (int pause_ms = 0; pause_ms <= 300; pause_ms += 60) {
    const auto leaving = startDriver();
    ASSERT_TRUE(waitUntil([&] { return serves(*leaving); }));
    const auto asker = startAsker();
    const auto player = playSomething(loopback::kLoopbackDeviceUID);
    ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
    leaving->sendSignal(SIGTERM);
    letPass(std::chrono::milliseconds(pause_ms));
    const auto next = startDriver();
    EXPECT_TRUE(waitUntil([&] { return serves(*next); })) << "after " << pause_ms << " ms";
    EXPECT_EQ(leaving->waitForExit(std::chrono::seconds(5)), 0);
    asker->kill();
    next->terminate();
    ASSERT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  }
}

// Any client may carry the driver's key: here this test's own client, which is older than the
// driver.
TEST_F(DriverlessTest, AClientThatClaimsToBeADriverEndsNone) {
  const std::string own = std::to_string(getpid());
  control().setClientProperty(loopback::kLoopbackDriverKey, "9.9.9");
  const auto driver = startDriver();
  ASSERT_TRUE(waitUntil([&] { return serves(*driver); }));
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  const auto device = control().nodeId(loopback::kLoopbackDeviceUID);

  // It claims it again, and also claims the driver's process id.
  control().setClientProperty("pipewire.sec.pid", std::to_string(driver->pid()));
  control().setClientProperty(loopback::kLoopbackDriverKey, "1.0.3");
  const auto clients = control().clientProperties();
  EXPECT_TRUE(std::any_of(clients.begin(), clients.end(), [&](const auto& client) {
    const auto version = client.find(loopback::kLoopbackDriverKey);
    return version != client.end() && client.at("pipewire.sec.pid") == own;
  })) << "the daemon let a client choose its own process";

  letPass(std::chrono::milliseconds(1000));  // longer than a driver that yields lives
  EXPECT_TRUE(driver->isRunning());
  EXPECT_TRUE(serves(*driver));
  EXPECT_EQ(control().nodeId(loopback::kLoopbackDeviceUID), device);
  EXPECT_EQ(configuredDefault(), loopback::kLoopbackDeviceUID);
  driver->terminate();
}

}  // namespace
}  // namespace driver_test
