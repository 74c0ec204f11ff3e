// SPDX-License-Identifier: MIT
// The user's default output before, during and after.

#include <csignal>
#include <cstdio>

#include "tests/driver/driver_fixture.h"

namespace driver_test {
namespace {

using std::chrono::steady_clock;
using test_support::waitUntil;

double milliseconds(steady_clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

TEST_F(DriverTest, PutsBackExactlyWhatWasConfigured) {
  // Not the session manager's own preference, and formatted differently.
  control().setMetadata(loopback::kConfiguredDefaultSinkKey, R"({  "name":  "speaker"  })");
  ASSERT_TRUE(waitForUsedDefault(kSpeaker));
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_EQ(control().metadata(loopback::kConfiguredDefaultSinkKey), R"({  "name":  "speaker"  })");
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
}

TEST_F(DriverTest, LeavesNoChoiceWhereThereWasNone) {
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  EXPECT_TRUE(waitForUsedDefault(kHeadphones));
  EXPECT_EQ(control().metadata(loopback::kConfiguredDefaultSinkKey), std::nullopt);
}

TEST_F(DriverTest, KeepsTheChoiceThatTheUserMakesMeanwhile) {
  control().setDefaultSink(kSpeaker);
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  control().setDefaultSink(kHeadphones);
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  control().synchronize();
  EXPECT_EQ(configuredDefault(), kHeadphones);
  EXPECT_TRUE(waitForUsedDefault(kHeadphones));
}

TEST_F(DriverTest, DoesNotBecomeTheDefaultByItself) {
  control().setDefaultSink(kSpeaker);
  const auto player = playSomething();
  ASSERT_TRUE(waitUntilHeardOn(kSpeaker));
  const auto asker = startAsker();
  ASSERT_TRUE(waitUntilDeviceIsTakenNoteOf());
  EXPECT_EQ(usedDefault(), kSpeaker);
  EXPECT_EQ(configuredDefault(), kSpeaker);
  EXPECT_TRUE(waitUntilHeardOn(kSpeaker));
}

// A session manager prefers a device that was ever configured to one that never was.
TEST_F(DriverTest, DoesNotBecomeTheDefaultByItselfAfterEarlierRecordings) {
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  asker->sendSignal(SIGUSR1);
  ASSERT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  ASSERT_TRUE(waitForUsedDefault(kHeadphones));
  const auto player = playSomething();
  ASSERT_TRUE(waitUntilHeardOn(kHeadphones));
  asker->sendSignal(SIGUSR2);
  ASSERT_TRUE(waitUntil([this] { return deviceIsShown(); }));
  ASSERT_TRUE(waitUntilDeviceIsTakenNoteOf());
  EXPECT_TRUE(waitForUsedDefault(kHeadphones));
  EXPECT_EQ(control().metadata(loopback::kConfiguredDefaultSinkKey), std::nullopt);
  EXPECT_TRUE(waitUntilHeardOn(kHeadphones));
  // When configured, it still becomes the default, and the sound goes there.
  makeLoopbackTheDefault();
  EXPECT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitUntilHeardOn(kHeadphones));
  EXPECT_EQ(control().metadata(loopback::kConfiguredDefaultSinkKey), std::nullopt);
}

TEST_F(DriverTest, PlayingStreamsMoveToTheLoopbackAndBack) {
  control().setDefaultSink(kSpeaker);
  const auto player = playSomething();
  ASSERT_TRUE(waitUntilHeardOn(kSpeaker));
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  EXPECT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  asker->sendSignal(SIGUSR1);
  const auto hidden = steady_clock::now();
  EXPECT_TRUE(waitUntilHeardOn(kSpeaker));
  std::printf("sound back on the real device %.1f ms after the request to hide\n",
              milliseconds(steady_clock::now() - hidden));
}

TEST_F(DriverTest, AKilledAskerLeavesNothingBehind) {
  control().setDefaultSink(kSpeaker);
  const auto player = playSomething();
  double longest = 0;
  for (int round = 0; round < 10; ++round) {
    auto asker = startAsker();
    // At three moments: at once, while the default changes, after the sound has moved.
    if (round % 3 == 1) {
      control().setMetadata(loopback::kConfiguredDefaultSinkKey,
                            R"({"name":"com.vantrel.loopbackdevice"})");
    } else if (round % 3 == 2) {
      makeLoopbackTheDefault();
      ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
    }
    const auto killed = steady_clock::now();
    asker->sendSignal(SIGKILL);
    ASSERT_TRUE(waitUntil([this] { return deviceIsHidden(); }, std::chrono::seconds(1)));
    ASSERT_TRUE(waitForConfiguredDefault(kSpeaker));
    ASSERT_TRUE(waitForUsedDefault(kSpeaker));
    ASSERT_TRUE(waitUntilHeardOn(kSpeaker));
    longest = std::max(longest, milliseconds(steady_clock::now() - killed));
  }
  EXPECT_LT(longest, 1000);
  std::printf("killed asker to sound on the real device: at most %.1f ms\n", longest);
}

TEST_F(DriverTest, UndoesAChoiceOfTheHiddenDevice) {
  control().setDefaultSink(kSpeaker);
  control().setMetadata(loopback::kConfiguredDefaultSinkKey,
                        R"({"name":"com.vantrel.loopbackdevice"})");
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
}

class SessionManagerRestartTest : public DriverTest, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(EndedBy, SessionManagerRestartTest, testing::Values(SIGTERM, SIGKILL),
                         [](const auto& signal) {
                           return std::string(sigabbrev_np(signal.param));
                         });

TEST_P(SessionManagerRestartTest, DuringARecordingKeepsTheUsersChoice) {
  control().setDefaultSink(kSpeaker);
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  // The session manager saves its choices after a second.
  const std::string saved = server().stateHome() + "/wireplumber/default-nodes";
  ASSERT_TRUE(waitUntil([&] {
    return outputOf("cat " + saved + " 2>/dev/null || true")
               .find("default.configured.audio.sink=com.vantrel.loopbackdevice") !=
           std::string::npos;
  }));
  server().sessionManager().sendSignal(GetParam());
  ASSERT_TRUE(server().sessionManager().waitForExit(std::chrono::seconds(5)));
  test_support::ChildProcess next({{"wireplumber"}, {}, server().directory() + "/log"});
  ASSERT_TRUE(waitUntil([this] { return configuredDefault() == loopback::kLoopbackDeviceUID; }));
  EXPECT_TRUE(deviceIsShown());
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
  next.terminate();
}

// The daemon reports no change while it sends all keys to another client.
TEST_F(DriverTest, RespectsAChoiceMadeUnnoticed) {
  control().setDefaultSink(kSpeaker);
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  control().setMetadataUnheard(loopback::kConfiguredDefaultSinkKey, R"({"name":"headphones"})");
  ASSERT_TRUE(waitForUsedDefault(kHeadphones));
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }));
  control().synchronize();
  EXPECT_EQ(configuredDefault(), kHeadphones);
}

TEST_F(DriverTest, LeavesTheLoopbackToAUserWhoChoseItUnnoticed) {
  control().setDefaultSink(kSpeaker);
  const auto player = playSomething();
  const auto asker = startAsker();
  control().setMetadataUnheard(loopback::kConfiguredDefaultSinkKey,
                               R"({"name":"com.vantrel.loopbackdevice"})");
  ASSERT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  // Nor does it take the choice away later.
  outputOf("wpctl status && wpctl status");
  EXPECT_EQ(usedDefault(), loopback::kLoopbackDeviceUID);
  EXPECT_TRUE(waitUntilHeardOn(loopback::kLoopbackDeviceUID));
  asker->sendSignal(SIGUSR1);
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitUntilHeardOn(kSpeaker));
}

// Nor does the daemon listen to a client that waits for the keys.
TEST_F(DriverTest, AHangingSessionManagerDoesNotKeepTheDevice) {
  control().setDefaultSink(kSpeaker);
  const auto asker = startAsker();
  makeLoopbackTheDefault();
  server().sessionManager().sendSignal(SIGSTOP);
  asker->kill();
  EXPECT_TRUE(waitUntil([this] { return deviceIsHidden(); }, std::chrono::seconds(1)));
  server().sessionManager().sendSignal(SIGCONT);
  EXPECT_TRUE(waitForConfiguredDefault(kSpeaker));
  EXPECT_TRUE(waitForUsedDefault(kSpeaker));
}

}  // namespace
}  // namespace driver_test
