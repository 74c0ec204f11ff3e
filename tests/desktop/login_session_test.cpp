#include "hosts/linux/power/login_session.h"

#include <gmock/gmock.h>

#include <set>

#include "tests/desktop/desktop_fixture.h"

// The machine's sleep and shutdown, against a mock of its session service that nobody here wrote.

namespace desktop_test {
namespace {

using base_test::Environment;
using linux_host::LoginSession;
using linux_host::VariantPtr;
using suite::ToolData;
using test_support::ChildProcess;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kLogin1 = "org.freedesktop.login1";
constexpr const char* kLogin1Path = "/org/freedesktop/login1";
constexpr const char* kManager = "org.freedesktop.login1.Manager";
constexpr const char* kWhy = "Audio recording";

const ToolData kRecording{1, "", "", "00:00"};
const ToolData kResting{0, "", "", ""};

class LoginSessionTest : public DesktopTest {
 protected:
  LoginSessionTest() : environment_{{"DBUS_SYSTEM_BUS_ADDRESS", busAddress()}} {}
  ~LoginSessionTest() override { session_.reset(); }

  void startService() {
    service_ = std::make_unique<ChildProcess>(
        ChildProcess::Command{{RA_PYTHON, "-m", "dbusmock", "--system", "--template", "logind"},
                              {"DBUS_SYSTEM_BUS_ADDRESS=" + busAddress()},
                              folder_ / "login.log"});
    ASSERT_TRUE(runUntil([&] { return hasOwner(kLogin1); }))
        << base_test::contentsOf(folder_ / "login.log");
  }
  // "what mode" of every lock held.
  std::multiset<std::string> locks() {
    const VariantPtr answer =
        call(client_.get(), kLogin1, kLogin1Path, kManager, "ListInhibitors", nullptr);
    EXPECT_NE(answer, nullptr);
    std::multiset<std::string> found;
    if (answer == nullptr) return found;
    const VariantPtr list(g_variant_get_child_value(answer.get(), 0));
    GVariantIter each;
    g_variant_iter_init(&each, list.get());
    const gchar* what = nullptr;
    const gchar* who = nullptr;
    const gchar* why = nullptr;
    const gchar* mode = nullptr;
    while (g_variant_iter_loop(&each, "(&s&s&s&suu)", &what, &who, &why, &mode, nullptr, nullptr)) {
      found.insert(std::string(what) + " " + mode);
      EXPECT_STREQ(who, "Record Audio");
      EXPECT_STREQ(why, kWhy);
    }
    return found;
  }
  bool waitForLocks(const std::multiset<std::string>& wanted) {
    return runUntil([&] { return locks() == wanted; });
  }
  void announceShutdown(bool goingDown) {
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE("av"));
    g_variant_builder_add(&arguments, "v", g_variant_new_boolean(goingDown ? TRUE : FALSE));
    EXPECT_NE(call(client_.get(), kLogin1, kLogin1Path, "org.freedesktop.DBus.Mock", "EmitSignal",
                   g_variant_new("(sssav)", kManager, "PrepareForShutdown", "b", &arguments)),
              nullptr);
  }

  const std::multiset<std::string> both_{"sleep:idle block", "shutdown delay"};
  const Environment environment_;
  std::unique_ptr<ChildProcess> service_;
  int shutdowns_ = 0;
  std::function<void()> onShutdown_;
  std::unique_ptr<LoginSession> session_ = std::make_unique<LoginSession>(kWhy, [this] {
    ++shutdowns_;
    if (onShutdown_) onShutdown_();
  });
};

TEST_F(LoginSessionTest, ARecordingKeepsTheMachineAwakeUntilItsEnd) {
  startService();
  session_->toolDataDidChange(kRecording);
  EXPECT_TRUE(waitForLocks(both_));
  session_->toolDataDidChange({1, "", "", "00:01"});
  session_->toolDataDidChange(kResting);
  EXPECT_TRUE(waitForLocks({}));
}

TEST_F(LoginSessionTest, EachRecordingTakesItsOwnLocks) {
  startService();
  for (int i = 0; i < 3; ++i) {
    session_->toolDataDidChange(kRecording);
    ASSERT_TRUE(waitForLocks(both_));
    session_->toolDataDidChange(kResting);
    ASSERT_TRUE(waitForLocks({}));
  }
}

TEST_F(LoginSessionTest, ARecordingThatEndsBeforeTheAnswerHoldsNothing) {
  startService();
  session_->toolDataDidChange(kRecording);
  ASSERT_TRUE(waitForLocks(both_));
  session_->toolDataDidChange(kResting);
  session_->toolDataDidChange(kRecording);
  session_->toolDataDidChange(kResting);
  EXPECT_TRUE(waitForLocks({}));
}

TEST_F(LoginSessionTest, TheEndOfTheProgramReleasesTheLocks) {
  startService();
  session_->toolDataDidChange(kRecording);
  ASSERT_TRUE(waitForLocks(both_));
  session_.reset();
  EXPECT_TRUE(waitForLocks({}));
}

TEST_F(LoginSessionTest, AShutdownWaitsUntilTheRecordingIsSaved) {
  startService();
  session_->toolDataDidChange(kRecording);
  ASSERT_TRUE(waitForLocks(both_));
  onShutdown_ = [this] { session_->toolDataDidChange(kResting); };
  announceShutdown(true);
  ASSERT_TRUE(runUntil([&] { return shutdowns_ == 1; }));
  EXPECT_TRUE(waitForLocks({"shutdown delay"}));
  session_->releaseShutdown();
  EXPECT_TRUE(waitForLocks({}));
}

TEST_F(LoginSessionTest, AShutdownWithoutRecordingOrCalledOffChangesNothing) {
  startService();
  session_->toolDataDidChange(kRecording);
  ASSERT_TRUE(waitForLocks(both_));
  announceShutdown(false);
  EXPECT_EQ(locks(), both_);
  session_->toolDataDidChange(kResting);
  announceShutdown(true);
  EXPECT_TRUE(waitForLocks({}));
  EXPECT_EQ(shutdowns_, 0);
}

TEST_F(LoginSessionTest, AMachineWithoutTheServiceJustGoesWithout) {
  session_->toolDataDidChange(kRecording);
  session_->toolDataDidChange(kResting);
  // The service comes: the next recording has its locks.
  startService();
  session_->toolDataDidChange(kRecording);
  EXPECT_TRUE(waitForLocks(both_));
}

TEST_F(LoginSessionTest, AMachineWithoutSystemBusJustGoesWithout) {
  const Environment nowhere{{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent"}};
  session_->toolDataDidChange(kRecording);
  EXPECT_TRUE(runUntil([pings = 0]() mutable { return ++pings > 20; }));
  session_->toolDataDidChange(kResting);
  EXPECT_EQ(shutdowns_, 0);
}

}  // namespace
}  // namespace desktop_test
