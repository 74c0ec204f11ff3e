// SPDX-License-Identifier: MIT
#include "hosts/linux/power/login_session.h"

#include <fcntl.h>
#include <gio/gunixfdlist.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <set>

#include "tests/base/glib_faults.h"
#include "tests/desktop/desktop_fixture.h"

// The machine's sleep and shutdown, with an independent mock of its session service.

namespace desktop_test {
namespace {

using base_test::Environment;
using base_test::GlibFaults;
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
  // "what mode" of every held lock.
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
    announceShutdown("b", g_variant_new_boolean(goingDown ? TRUE : FALSE));
  }
  void announceShutdown(const char* type, GVariant* argument) {
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE("av"));
    g_variant_builder_add(&arguments, "v", argument);
    EXPECT_NE(call(client_.get(), kLogin1, kLogin1Path, "org.freedesktop.DBus.Mock", "EmitSignal",
                   g_variant_new("(sssav)", kManager, "PrepareForShutdown", type, &arguments)),
              nullptr);
  }

  // Time for messages between the service and the program, which has its own connection.
  void letItArrive() {
    for (int trips = 0; trips < 20; ++trips) locks();
  }

  const std::multiset<std::string> both_{"sleep:idle block", "shutdown delay"};
  const Environment environment_;
  std::unique_ptr<ChildProcess> service_;
  int shutdowns_ = 0;
  int logouts_ = 0;
  std::function<void()> onShutdown_;
  std::unique_ptr<LoginSession> session_ = std::make_unique<LoginSession>(
      kWhy,
      [this] {
        ++shutdowns_;
        if (onShutdown_) onShutdown_();
      },
      [this] { ++logouts_; });
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
  letItArrive();
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

TEST_F(LoginSessionTest, AShutdownWithoutARecordingOrCalledOffChangesNothing) {
  startService();
  session_->toolDataDidChange(kRecording);
  ASSERT_TRUE(waitForLocks(both_));
  announceShutdown(false);
  letItArrive();
  EXPECT_EQ(locks(), both_);
  session_->toolDataDidChange(kResting);
  announceShutdown(true);
  letItArrive();
  EXPECT_TRUE(waitForLocks({}));
  EXPECT_EQ(shutdowns_, 0);
}

TEST_F(LoginSessionTest, AnAnnouncementWithOtherArgumentsIsIgnored) {
  const GlibFaults faults;
  startService();
  session_->toolDataDidChange(kRecording);
  ASSERT_TRUE(waitForLocks(both_));
  announceShutdown("s", g_variant_new_string("now"));
  announceShutdown("u", g_variant_new_uint32(1));
  EXPECT_EQ(locks(), both_);
  EXPECT_EQ(shutdowns_, 0);
  announceShutdown(true);
  EXPECT_TRUE(runUntil([&] { return shutdowns_ == 1; }));
  EXPECT_EQ(faults.count(), 0);
}

TEST_F(LoginSessionTest, TheEndOfTheUsersOwnSessionEndsARecordingAndNoOtherDoes) {
  startService();
  const auto mock = [this](const char* path, const char* method, GVariant* arguments) {
    EXPECT_NE(call(client_.get(), kLogin1, path, "org.freedesktop.DBus.Mock", method, arguments),
              nullptr);
  };
  GVariantBuilder properties;
  g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&properties, "{sv}", "Id", g_variant_new_string("c7"));
  mock(kLogin1Path, "AddObject",
       g_variant_new("(ssa{sv}a(ssss))", "/org/freedesktop/login1/session/auto",
                     "org.freedesktop.login1.Session", &properties, nullptr));
  const auto removeSession = [&](const char* id) {
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE("av"));
    g_variant_builder_add(&arguments, "v", g_variant_new_string(id));
    g_variant_builder_add(&arguments, "v", g_variant_new_object_path("/session"));
    mock(kLogin1Path, "EmitSignal",
         g_variant_new("(sssav)", kManager, "SessionRemoved", "so", &arguments));
  };
  session_->toolDataDidChange(kRecording);
  ASSERT_TRUE(waitForLocks(both_));
  letItArrive();
  removeSession("c8");
  letItArrive();
  EXPECT_EQ(logouts_, 0);
  removeSession("c7");
  EXPECT_TRUE(runUntil([&] { return logouts_ == 1; }));
  session_->toolDataDidChange(kResting);
  removeSession("c7");
  letItArrive();
  EXPECT_EQ(logouts_, 1);
}

// Every user of the machine can send signals over the system bus.
TEST_F(LoginSessionTest, AnAnnouncementFromAnotherServiceIsIgnored) {
  startService();
  session_->toolDataDidChange(kRecording);
  ASSERT_TRUE(waitForLocks(both_));
  const linux_host::ConnectionPtr ours(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  ASSERT_TRUE(g_dbus_connection_emit_signal(
      client_.get(), g_dbus_connection_get_unique_name(ours.get()), kLogin1Path, kManager,
      "PrepareForShutdown", g_variant_new("(b)", TRUE), nullptr));
  announceShutdown(true);
  ASSERT_TRUE(runUntil([&] { return shutdowns_ > 0; }));
  announceShutdown(false);
  EXPECT_EQ(locks(), both_);
  EXPECT_EQ(shutdowns_, 1);
}

// A service whose answer names a file that did not come with it.
class OddLogin {
 public:
  OddLogin(GDBusConnection* bus, gint32 index)
      : bus_(bus), index_(index), node_(g_dbus_node_info_new_for_xml(kXml, nullptr)) {
    static const GDBusInterfaceVTable kTable = {&OddLogin::onCall, nullptr, nullptr, {}};
    object_ = g_dbus_connection_register_object(bus_, kLogin1Path, node_->interfaces[0], &kTable,
                                                this, nullptr, nullptr);
    name_ = g_bus_own_name_on_connection(bus_, kLogin1, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr,
                                         nullptr, nullptr, nullptr);
  }
  ~OddLogin() {
    g_bus_unown_name(name_);
    g_dbus_connection_unregister_object(bus_, object_);
    g_dbus_node_info_unref(node_);
  }
  OddLogin(const OddLogin&) = delete;
  OddLogin& operator=(const OddLogin&) = delete;

  int calls = 0;

 private:
  static constexpr const char* kXml = R"xml(<node>
<interface name="org.freedesktop.login1.Manager"><method name="Inhibit">
<arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
<arg type="s" direction="in"/><arg type="h" direction="out"/></method></interface></node>)xml";

  static void onCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                     GVariant*, GDBusMethodInvocation* invocation, gpointer raw) {
    auto& self = *static_cast<OddLogin*>(raw);
    ++self.calls;
    const std::unique_ptr<GUnixFDList, linux_host::ObjectUnref> files(g_unix_fd_list_new());
    const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
    g_unix_fd_list_append(files.get(), file, nullptr);
    close(file);
    g_dbus_method_invocation_return_value_with_unix_fd_list(
        invocation, g_variant_new("(h)", self.index_), files.get());
  }

  GDBusConnection* const bus_;
  const gint32 index_;
  GDBusNodeInfo* const node_;
  guint object_ = 0;
  guint name_ = 0;
};

TEST_F(LoginSessionTest, AnAnswerThatLacksItsLockIsIgnored) {
  const GlibFaults faults;
  for (const gint32 index : {1, -1, G_MININT32}) {
    OddLogin service(client_.get(), index);
    ASSERT_TRUE(runUntil([&] { return hasOwner(kLogin1); }));
    session_->toolDataDidChange(kRecording);
    ASSERT_TRUE(runUntil([&] { return service.calls == 2; }));
    // The answers have arrived, too.
    hasOwner(kLogin1);
    session_->toolDataDidChange(kResting);
  }
  EXPECT_EQ(faults.count(), 0);
}

TEST_F(LoginSessionTest, AMachineWithoutTheServiceWorks) {
  session_->toolDataDidChange(kRecording);
  session_->toolDataDidChange(kResting);
  // The service starts: the next recording gets its locks.
  startService();
  session_->toolDataDidChange(kRecording);
  EXPECT_TRUE(waitForLocks(both_));
}

TEST_F(LoginSessionTest, AMachineWithoutASystemBusWorks) {
  const Environment nowhere{{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent"}};
  session_->toolDataDidChange(kRecording);
  EXPECT_TRUE(runUntil([pings = 0]() mutable { return ++pings > 20; }));
  session_->toolDataDidChange(kResting);
  EXPECT_EQ(shutdowns_, 0);
}

}  // namespace
}  // namespace desktop_test
