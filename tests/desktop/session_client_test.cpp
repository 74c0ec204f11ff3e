// SPDX-License-Identifier: MIT
#include "hosts/linux/power/session_client.h"

#include <gmock/gmock.h>

#include <cstdlib>

#include "tests/desktop/desktop_fixture.h"
#include "tests/desktop/fake_session_manager.h"

// Logging out with session managers on the bus.

namespace desktop_test {
namespace {

using base_test::Environment;
using linux_host::SessionClient;
using suite::ToolData;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const ToolData kBegun{1, "", "", "00:00"};
const ToolData kRecordingOn{1, "", "", "00:01"};
const ToolData kAtRest{0, "", "", ""};
constexpr const char* kRegistration = "com.vantrel.korvel.RecordAudio startup-5";

class SessionClientTest : public DesktopTest {
 protected:
  ~SessionClientTest() override {
    tool_.reset();
    manager_.reset();
  }
  void startManager() {
    manager_ = std::make_unique<FakeSessionManager>(client_.get());
    ASSERT_TRUE(runUntil([&] { return hasOwner(FakeSessionManager::kName); }));
  }
  void startRecording() {
    startManager();
    tool_->toolDataDidChange(kBegun);
    tool_->toolDataDidChange(kRecordingOn);
    ASSERT_TRUE(runUntil([&] { return !manager_->registrations.empty(); }));
  }
  // Waits until everything sent so far has arrived.
  void settle() {
    hasOwner("org.example.Nobody");
    call(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
         "GetId", nullptr);
    hasOwner("org.example.Nobody");
  }

  std::unique_ptr<FakeSessionManager> manager_;
  int saves_ = 0;
  int quits_ = 0;
  int nobodies_ = 0;
  std::function<void()> saved_;
  std::unique_ptr<SessionClient> tool_ =
      std::make_unique<SessionClient>(bus_.get(), "startup-5",
                                      linux_host::SessionEnd{[this](std::function<void()> saved) {
                                                               ++saves_;
                                                               saved_ = std::move(saved);
                                                             },
                                                             [this] { ++quits_; }},
                                      [this] { ++nobodies_; });
};

TEST_F(SessionClientTest, TheManagerKnowsTheProgramOnceItRecordsAndNotBefore) {
  startManager();
  tool_->toolDataDidChange(kAtRest);
  tool_->toolDataDidChange(kBegun);
  settle();
  EXPECT_THAT(manager_->registrations, IsEmpty());
  tool_->toolDataDidChange(kRecordingOn);
  EXPECT_TRUE(runUntil([&] { return !manager_->registrations.empty(); }));
  tool_->toolDataDidChange({1, "", "", "00:02"});
  tool_->toolDataDidChange(kAtRest);
  tool_->toolDataDidChange(kRecordingOn);
  settle();
  EXPECT_THAT(manager_->registrations, ElementsAre(kRegistration));
  EXPECT_EQ(nobodies_, 0);
}

TEST_F(SessionClientTest, TheManagerHearsAtOnceThatTheUserMayLogOut) {
  startRecording();
  manager_->tell("QueryEndSession");
  EXPECT_TRUE(runUntil([&] { return !manager_->answers.empty(); }));
  EXPECT_THAT(manager_->answers, ElementsAre(true));
  EXPECT_EQ(saves_, 0);
}

TEST_F(SessionClientTest, TheEndIsAnsweredWhenTheRecordingIsSavedAndNotBefore) {
  startRecording();
  manager_->tell("EndSession");
  ASSERT_TRUE(runUntil([&] { return saves_ == 1; }));
  settle();
  EXPECT_THAT(manager_->answers, IsEmpty());
  saved_();
  EXPECT_TRUE(runUntil([&] { return !manager_->answers.empty(); }));
  EXPECT_THAT(manager_->answers, ElementsAre(true));
  EXPECT_EQ(quits_, 0);
}

TEST_F(SessionClientTest, TheProgramEndsWhenTheSessionIsOver) {
  startRecording();
  manager_->tell("Stop");
  EXPECT_TRUE(runUntil([&] { return quits_ == 1; }));
}

TEST_F(SessionClientTest, ALogOutThatIsCalledOffChangesNothing) {
  startRecording();
  manager_->tell("QueryEndSession");
  ASSERT_TRUE(runUntil([&] { return !manager_->answers.empty(); }));
  manager_->tell("CancelEndSession");
  settle();
  EXPECT_EQ(saves_ + quits_, 0);
}

TEST_F(SessionClientTest, SignalsWithOtherArgumentsAreIgnored) {
  startRecording();
  manager_->tell("QueryEndSession", nullptr);
  manager_->tell("EndSession", g_variant_new("(s)", "now"));
  manager_->tell("Stop", g_variant_new("(u)", 0U));
  settle();
  EXPECT_EQ(saves_ + quits_, 0);
  EXPECT_THAT(manager_->answers, IsEmpty());
  manager_->tell("QueryEndSession");
  EXPECT_TRUE(runUntil([&] { return !manager_->answers.empty(); }));
}

TEST_F(SessionClientTest, AProgramThatIsRefusedTriesAgainAtItsNextRecording) {
  startManager();
  manager_->refuseClients();
  tool_->toolDataDidChange(kRecordingOn);
  EXPECT_TRUE(runUntil([&] { return nobodies_ == 1; }));
  tool_->toolDataDidChange({1, "", "", "00:02"});
  settle();
  EXPECT_EQ(manager_->registrations.size(), 1U);
  // The next recording tries again.
  tool_->toolDataDidChange(kAtRest);
  tool_->toolDataDidChange(kRecordingOn);
  EXPECT_TRUE(runUntil([&] { return nobodies_ == 2; }));
}

TEST_F(SessionClientTest, AnAnswerMayComeAfterTheProgramHasEnded) {
  startManager();
  tool_->toolDataDidChange(kRecordingOn);
  tool_.reset();
  settle();
  EXPECT_EQ(nobodies_, 0);
}

TEST_F(SessionClientTest, WorksWithoutAManagerAndSaysSoOncePerRecording) {
  tool_->toolDataDidChange(kRecordingOn);
  EXPECT_TRUE(runUntil([&] { return nobodies_ == 1; }));
  tool_->toolDataDidChange({1, "", "", "00:02"});
  settle();
  EXPECT_EQ(nobodies_, 1);
}

TEST_F(SessionClientTest, WorksWithoutABus) {
  int nobodies = 0;
  SessionClient client(nullptr, "", {}, [&] { ++nobodies; });
  client.toolDataDidChange(kRecordingOn);
  EXPECT_EQ(nobodies, 1);
}

TEST(StartupId, IsTakenOutOfTheEnvironment) {
  const Environment environment{{"DESKTOP_AUTOSTART_ID", "startup-5"}};
  EXPECT_EQ(linux_host::takeStartupId(), "startup-5");
  EXPECT_EQ(std::getenv("DESKTOP_AUTOSTART_ID"), nullptr);
  EXPECT_EQ(linux_host::takeStartupId(), "");
}

}  // namespace
}  // namespace desktop_test
