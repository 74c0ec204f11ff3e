// The driver as a process: its start, its end, its guard.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "driver/installed_paths.h"
#include "tests/driver/driver_fixture.h"

namespace driver_test {
namespace {

using std::chrono::steady_clock;
using test_support::ChildProcess;
using test_support::waitUntil;

TEST_F(DriverTest, AKilledDriverGivesTheSoundBackAndIsSucceeded) {
  control().setDefaultSink(kSpeaker);
  const auto player = playSomething();
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  const pid_t killed = driverPid().value();
  const auto start = steady_clock::now();
  ASSERT_EQ(kill(killed, SIGKILL), 0);
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
  EXPECT_TRUE(waitUntilHeardOn(kSpeaker));
  std::printf("killed driver to sound and choice restored: %.1f ms\n",
              std::chrono::duration<double, std::milli>(steady_clock::now() - start).count());
  // The successor serves, but not the request that was made of its predecessor.
  ASSERT_TRUE(waitUntil([&] { return driverPid().value_or(killed) != killed; }));
  EXPECT_TRUE(deviceIsHidden());
  takeBack(*asker);
  askAgain(*asker);
}

TEST_F(DriverTest, AKilledGuardIsReplaced) {
  const pid_t driver = driverPid().value();
  ASSERT_TRUE(waitUntil([&] { return guardOf(driver).has_value(); }));
  // A guard that dies within its first second is not replaced, lest they die forever.
  ASSERT_TRUE(waitUntil([&, since = steady_clock::now()] {
    return steady_clock::now() - since > std::chrono::milliseconds(1200);
  }));
  const pid_t guard = guardOf(driver).value();
  ASSERT_EQ(kill(guard, SIGKILL), 0);
  EXPECT_TRUE(waitUntil([&] { return guardOf(driver).value_or(guard) != guard; }));
  EXPECT_EQ(driverPid(), driver);
}

TEST_F(DriverTest, EndsWithItsDaemon) {
  const pid_t driver = driverPid().value();
  const pid_t guard = guardOf(driver).value();
  server().killDaemon();
  EXPECT_TRUE(waitUntil([&] { return !isAlive(driver) && !isAlive(guard); }));
}

TEST_F(DriverTest, SigtermRestoresAndHidesFirst) {
  control().setDefaultSink(kSpeaker);
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  const pid_t driver = driverPid().value();
  const pid_t guard = guardOf(driver).value();
  ASSERT_EQ(kill(driver, SIGTERM), 0);
  EXPECT_TRUE(waitUntil([&] { return !isAlive(driver) && !isAlive(guard); }));
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
  EXPECT_TRUE(deviceIsHidden());
  EXPECT_EQ(driverPid(), std::nullopt);
}

TEST_F(DriverTest, ASecondOneLeavesTheFirstAlone) {
  const pid_t first = driverPid().value();
  const auto second = startDriver();
  EXPECT_EQ(second->waitForExit(std::chrono::seconds(5)), 0);
  EXPECT_EQ(driverPid(), first);
}

TEST_F(DriverlessTest, OfTwoThatStartInTheSameMomentOneStays) {
  for (int round = 0; round < 5; ++round) {
    const auto first = startDriver();
    const auto second = startDriver();
    ASSERT_TRUE(waitUntil([&] { return first->isRunning() != second->isRunning(); }));
    const auto& loser = first->isRunning() ? second : first;
    const auto& winner = first->isRunning() ? first : second;
    EXPECT_EQ(loser->waitForExit(std::chrono::seconds(5)), 0);
    EXPECT_TRUE(waitUntil([&] { return driverPid() == winner->pid(); }));
    EXPECT_TRUE(winner->isRunning());
    winner->terminate();
    ASSERT_TRUE(waitUntil([this] { return !driverPid().has_value(); }));
  }
}

TEST_F(DriverlessTest, CleansUpWhatADriverLeftThatDiedWithItsGuard) {
  control().setDefaultSink(kSpeaker);
  auto driver = startDriver();
  ASSERT_TRUE(waitUntil([this] { return driverPid().has_value(); }));
  auto asker = startAsker();
  makeLoopbackTheDefault();
  const pid_t guard = guardOf(driver->pid()).value();
  ASSERT_EQ(kill(guard, SIGSTOP), 0);
  driver->kill();
  ASSERT_EQ(kill(guard, SIGKILL), 0);
  ASSERT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  asker.reset();
  // The sound is the user's again, only the choice is still wrong.
  ASSERT_TRUE(waitUntil([this] { return usedDefault() != loopback::kLoopbackDeviceUID; }));
  ASSERT_EQ(configuredDefault(), loopback::kLoopbackDeviceUID);
  driver = startDriver();
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
  driver->terminate();
}

TEST_F(DriverlessTest, CleansAStaleChoiceThatNobodyRemembersAnAlternativeTo) {
  control().setMetadata(loopback::kConfiguredDefaultSinkKey,
                        R"({"name":"com.vantrel.loopbackdevice"})");
  const auto driver = startDriver();
  EXPECT_TRUE(waitUntil(
      [this] { return !control().metadata(loopback::kConfiguredDefaultSinkKey).has_value(); }));
  EXPECT_TRUE(waitForUsedDefault(kHeadphones));
  driver->terminate();
}

TEST_F(DriverlessTest, ARequestOlderThanTheDriverDoesNotCount) {
  ChildProcess asker({{LOOPBACK_ASKER}, {}, {}});
  ASSERT_TRUE(waitUntil([this] { return requestsOf(loopback::kLoopbackRequestShowText) == 1; }));
  const auto driver = startDriver();
  ASSERT_TRUE(waitUntil([this] { return driverPid().has_value(); }));
  control().synchronize();
  EXPECT_TRUE(deviceIsHidden());
  driver->terminate();
}

TEST_F(DriverlessTest, KeepsNoDescriptorThatTheDaemonLeaked) {
  int leaked[2];
  ASSERT_EQ(pipe(leaked), 0);
  ASSERT_EQ(fcntl(leaked[0], F_SETFD, FD_CLOEXEC), 0);
  const auto driver = startDriver();
  close(leaked[1]);
  ASSERT_TRUE(waitUntil([this] { return driverPid().has_value(); }));
  pollfd end{.fd = leaked[0], .events = POLLIN, .revents = 0};
  ASSERT_EQ(poll(&end, 1, 5000), 1);
  EXPECT_NE(end.revents & POLLHUP, 0);
  close(leaked[0]);
  driver->terminate();
}

TEST_F(DriverlessTest, BlockedSignalsOfTheDaemonDoNotReachIt) {
  sigset_t signals;
  sigset_t before;
  sigfillset(&signals);
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &signals, &before), 0);
  const auto driver = startDriver();
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
  ASSERT_TRUE(waitUntil([this] { return driverPid().has_value(); }));
  driver->sendSignal(SIGTERM);
  EXPECT_EQ(driver->waitForExit(std::chrono::seconds(5)), 0);
}

TEST(DriverCommandLine, SaysItsVersionAndRefusesWhatItDoesNotKnow) {
  EXPECT_EQ(outputOf(std::string(LOOPBACK_DRIVER) + " --version"),
            std::string(loopback::kDriverVersion) + "\n");
  ChildProcess unknown({{LOOPBACK_DRIVER, "--what"}, {}, {}});
  EXPECT_EQ(unknown.waitForExit(std::chrono::seconds(5)), 2);
}

TEST(DriverCommandLine, WithoutADaemonItEndsWithAMessage) {
  ChildProcess driver({{LOOPBACK_DRIVER, "--remote", "/nonexistent/pipewire-0"}, {}, {}});
  EXPECT_EQ(driver.waitForExit(std::chrono::seconds(5)), 1);
}

}  // namespace
}  // namespace driver_test
