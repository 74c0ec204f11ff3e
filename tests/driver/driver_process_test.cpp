// SPDX-License-Identifier: MIT
// The driver as a process: its start, its end, its guard.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "driver/installed_paths.h"
#include "tests/base/temporary_folder.h"
#include "tests/driver/driver_fixture.h"

namespace driver_test {
namespace {

using std::chrono::steady_clock;
using test_support::ChildProcess;
using test_support::PrivatePipeWire;
using test_support::waitUntil;

// In the state folder.
constexpr char kChoiceFile[] = "/com.vantrel.loopbackdevice/configured-default";

TEST_F(DriverTest, AKilledDriverGivesTheSoundBackAndIsReplaced) {
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
  // The successor serves, but ignores the request to its predecessor.
  ASSERT_TRUE(waitUntil([&] { return driverPid().value_or(killed) != killed; }));
  EXPECT_TRUE(deviceIsHidden());
  takeBack(*asker);
  askAgain(*asker);
}

TEST_F(DriverTest, AKilledGuardIsReplaced) {
  const pid_t driver = driverPid().value();
  const pid_t guard = awaitGuardOf(driver);
  // A guard that dies within its first second is not replaced; otherwise this could go on forever.
  ASSERT_TRUE(waitUntil([&, since = steady_clock::now()] {
    return steady_clock::now() - since > std::chrono::milliseconds(1200);
  }));
  ASSERT_EQ(kill(guard, SIGKILL), 0);
  EXPECT_TRUE(waitUntil([&] { return guardOf(driver).value_or(guard) != guard; }));
  EXPECT_EQ(driverPid(), driver);
}

TEST_F(DriverTest, EndsWithItsDaemon) {
  const pid_t driver = driverPid().value();
  const pid_t guard = awaitGuardOf(driver);
  server().killDaemon();
  EXPECT_TRUE(waitUntil([&] { return !isAlive(driver) && !isAlive(guard); }));
}

TEST_F(DriverTest, SigtermRestoresAndHidesFirst) {
  control().setDefaultSink(kSpeaker);
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  const pid_t driver = driverPid().value();
  const pid_t guard = awaitGuardOf(driver);
  ASSERT_EQ(kill(driver, SIGTERM), 0);
  EXPECT_TRUE(waitUntil([&] { return !isAlive(driver) && !isAlive(guard); }));
  // Lets this test receive everything that the daemon has done so far.
  control().synchronize();
  EXPECT_TRUE(deviceIsHidden());
  EXPECT_EQ(driverPid(), std::nullopt);
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
}

TEST_F(DriverTest, ASecondOneLeavesTheFirstAlone) {
  const pid_t first = driverPid().value();
  const auto second = startDriver();
  EXPECT_EQ(second->waitForExit(std::chrono::seconds(5)), 0);
  EXPECT_EQ(driverPid(), first);
}

TEST_F(DriverlessTest, OfTwoThatStartAtTheSameTimeOneStays) {
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
  ASSERT_TRUE(waitUntil([this] {
    return base_test::contentsOf(server().stateHome() + kChoiceFile).find(kSpeaker) !=
           std::string::npos;
  }));
  const pid_t guard = awaitGuardOf(driver->pid());
  ASSERT_EQ(kill(guard, SIGSTOP), 0);
  driver->kill();
  ASSERT_EQ(kill(guard, SIGKILL), 0);
  ASSERT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  asker.reset();
  // The sound is on the user's output again; only the choice is still wrong.
  ASSERT_TRUE(waitUntil([this] { return usedDefault() != loopback::kLoopbackDeviceUID; }));
  ASSERT_EQ(configuredDefault(), loopback::kLoopbackDeviceUID);
  driver = startDriver();
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
  driver->terminate();
}

TEST_F(DriverlessTest, AChoiceFileThatCannotBeReadOrWrittenDelaysNothing) {
  const std::string file = server().stateHome() + kChoiceFile;
  std::filesystem::create_directories(std::filesystem::path(file).parent_path());
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo((file + ".new").c_str(), 0600), 0);
  control().setDefaultSink(kSpeaker);
  const auto driver = startDriver();
  ASSERT_TRUE(waitUntil([this] { return driverPid().has_value(); }));
  auto asker = startAsker();
  makeLoopbackTheDefault();
  asker.reset();
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  driver->terminate();
}

TEST_F(DriverlessTest, CleansAStaleChoiceWithoutARememberedAlternative) {
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
  // Nor does it after a newer asker has come and gone.
  startAsker().reset();
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  EXPECT_EQ(requestsOf(loopback::kLoopbackRequestShowText), 1);
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

// The lowest descriptor that the process does not have.
rlim_t lowestFreeDescriptorOf(pid_t pid) {
  const std::string folder = "/proc/" + std::to_string(pid) + "/fd/";
  rlim_t lowest = 0;
  while (std::filesystem::is_symlink(folder + std::to_string(lowest))) ++lowest;
  return lowest;
}

TEST_F(DriverlessTest, EndsWhereNoDescriptorIsLeft) {
  // A leak checker needs descriptors of its own.
  const base_test::Environment environment{{"ASAN_OPTIONS", "detect_leaks=0"}};
  const auto driver = startDriver();
  ASSERT_TRUE(waitUntil([this] { return driverPid().has_value(); }));
  rlimit limit{};
  ASSERT_EQ(prlimit(driver->pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
  limit.rlim_cur = lowestFreeDescriptorOf(driver->pid());
  ASSERT_EQ(prlimit(driver->pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  driver->sendSignal(SIGTERM);
  EXPECT_EQ(driver->waitForExit(std::chrono::seconds(5)), 0);
  EXPECT_TRUE(waitUntil([this] { return !driverPid().has_value(); })) << "none succeeds it";
}

// A second session on the same computer, of another user if the test has the right to switch users.
class OtherSession {
 public:
  explicit OtherSession(const PrivatePipeWire& first) : directory_(first.directory() + "-other") {
    // The programs must be where the other user can run them.
    outputOf("mkdir -p " + directory_ + "/state && cp -r " + first.configHome() + " " + directory_ +
             "/config && cp " LOOPBACK_DRIVER " " LOOPBACK_ASKER " " + directory_);
    std::ofstream(directory_ + "/config/pipewire/pipewire.conf.d/90-loopback.conf")
        << "context.exec = [ { path = \"" << directory_ << "/loopback-driver\" args = \"\" } ]\n";
    outputOf("sed s:" + first.directory() + ":" + directory_ + ":g " + first.directory() +
             "/bus.conf >" + directory_ + "/bus.conf");
    if (geteuid() == 0) outputOf("chown -R 65534:65534 " + directory_);
    bus_ = start(
        {"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + directory_ + "/bus.conf"});
    daemon_ = start({"pipewire"});
    if (!waitUntil([this] {
          return test_support::socketAnswers(socket()) &&
                 test_support::socketAnswers(directory_ + "/bus");
        })) {
      throw std::runtime_error("the other session does not start");
    }
    manager_ = start({"wireplumber"});
  }
  ~OtherSession() {
    for (auto* child : {&manager_, &daemon_, &bus_}) (*child)->terminate();
    std::filesystem::remove_all(directory_);
  }
  OtherSession(const OtherSession&) = delete;
  OtherSession& operator=(const OtherSession&) = delete;

  [[nodiscard]] std::string socket() const { return directory_ + "/pipewire-0"; }
  std::unique_ptr<ChildProcess> startAsker() { return start({directory_ + "/loopback-asker"}); }

 private:
  std::unique_ptr<ChildProcess> start(std::vector<std::string> program) {
    if (geteuid() == 0) {
      program.insert(program.begin(),
                     {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    }
    return std::make_unique<ChildProcess>(ChildProcess::Command{
        std::move(program),
        {"XDG_RUNTIME_DIR=" + directory_, "PIPEWIRE_RUNTIME_DIR=" + directory_,
         "XDG_CONFIG_HOME=" + directory_ + "/config", "XDG_STATE_HOME=" + directory_ + "/state",
         "DBUS_SESSION_BUS_ADDRESS=unix:path=" + directory_ + "/bus", "HOME=" + directory_},
        directory_ + "/log"});
  }

  std::string directory_;
  std::unique_ptr<ChildProcess> bus_;
  std::unique_ptr<ChildProcess> daemon_;
  std::unique_ptr<ChildProcess> manager_;
};

std::unique_ptr<test_support::PipeWireControl> controlOf(const std::string& socket) {
  const std::string before = std::getenv("PIPEWIRE_REMOTE");
  setenv("PIPEWIRE_REMOTE", socket.c_str(), 1);
  auto control = std::make_unique<test_support::PipeWireControl>();
  setenv("PIPEWIRE_REMOTE", before.c_str(), 1);
  return control;
}

TEST_F(DriverTest, TwoSessionsAtOnceDoNotDisturbEachOther) {
  OtherSession session(server());
  const auto other = controlOf(session.socket());
  const auto isConfigured = [&other](const std::string& name) {
    const auto value = other->metadata(loopback::kConfiguredDefaultSinkKey);
    return value && value->find('"' + name + '"') != std::string::npos;
  };
  const auto isShown = [&other] { return other->hasNode(loopback::kLoopbackDeviceUID); };
  other->createSink("others speaker");
  other->setDefaultSink("others speaker");
  ASSERT_TRUE(waitUntil([&other] {
    const auto clients = other->clientProperties();
    return std::any_of(clients.begin(), clients.end(), [](const auto& client) {
      return client.contains(loopback::kLoopbackDriverKey);
    });
  }));
  control().setDefaultSink(kSpeaker);

  const auto asker = startAsker();
  makeLoopbackTheDefault();
  const auto othersAsker = session.startAsker();
  ASSERT_TRUE(waitUntil(isShown));
  other->setDefaultSink(loopback::kLoopbackDeviceUID);
  const auto othersDevice = other->nodeId(loopback::kLoopbackDeviceUID);

  asker->kill();
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
  EXPECT_TRUE(isConfigured(loopback::kLoopbackDeviceUID));
  EXPECT_EQ(other->nodeId(loopback::kLoopbackDeviceUID), othersDevice);

  const auto again = startAsker();
  othersAsker->kill();
  EXPECT_TRUE(waitUntil([&] { return !isShown() && isConfigured("others speaker"); }));
  EXPECT_TRUE(deviceIsShown());
}

TEST(DriverCommandLine, SaysItsVersionAndRefusesWhatItDoesNotKnow) {
  EXPECT_EQ(outputOf(std::string(LOOPBACK_DRIVER) + " --version"),
            std::string(loopback::kDriverVersion) + "\n");
  ChildProcess unknown({{LOOPBACK_DRIVER, "--what"}, {}, {}});
  EXPECT_EQ(unknown.waitForExit(std::chrono::seconds(5)), 2);
}

TEST(DriverCommandLine, WithoutADaemonItEndsWithAMessage) {
  const base_test::TemporaryFolder folder;
  ChildProcess driver(
      {{LOOPBACK_DRIVER, "--remote", "/nonexistent/pipewire-0"}, {}, folder / "output"});
  EXPECT_EQ(driver.waitForExit(std::chrono::seconds(5)), 1);
  EXPECT_THAT(base_test::contentsOf(folder / "output"), testing::HasSubstr("PipeWire"));
}

}  // namespace
}  // namespace driver_test
