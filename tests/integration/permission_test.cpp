// SPDX-License-Identifier: MIT
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>

#include "hosts/linux/permission/desktop_permission.h"
#include "tests/support/child_process.h"
#include "tests/support/private_pipewire.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using platform::AuthorizationStatus;
using test_support::PrivatePipeWire;

constexpr const char* kInterfaces = R"(<node>
  <interface name="org.freedesktop.impl.portal.PermissionStore">
    <method name="Lookup">
      <arg type="s" direction="in"/><arg type="s" direction="in"/>
      <arg type="a{sas}" direction="out"/><arg type="v" direction="out"/>
    </method>
  </interface>
  <interface name="org.freedesktop.portal.Device">
    <method name="AccessDevice">
      <arg type="u" direction="in"/><arg type="as" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/>
    </method>
  </interface>
</node>)";

GDBusConnection* connect() {
  return g_dbus_connection_new_for_address_sync(
      std::getenv("DBUS_SESSION_BUS_ADDRESS"),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
}

// The desktop's services, on a separate thread and connection.
class FakeDesktop {
 public:
  enum class Portal { kGrants, kRefuses, kLeaves, kFails };

  // `permissions`: the store's entries in text form; empty: the store has no entry and answers with
  // an error.
  explicit FakeDesktop(std::string permissions, std::optional<Portal> portal = std::nullopt)
      : permissions_(std::move(permissions)), portal_(portal), thread_([this] { serve(); }) {
    ready_.get_future().wait();
  }
  ~FakeDesktop() {
    g_main_loop_quit(loop_);
    thread_.join();
  }
  FakeDesktop(const FakeDesktop&) = delete;
  FakeDesktop& operator=(const FakeDesktop&) = delete;

  void stopAnswering() { isMute_ = true; }
  [[nodiscard]] int questions() const { return questions_; }

 private:
  void serve() {
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    loop_ = g_main_loop_new(context, FALSE);
    bus_ = connect();
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kInterfaces, nullptr);
    const GDBusInterfaceVTable table{onCall, nullptr, nullptr, {}};
    g_dbus_connection_register_object(bus_, "/org/freedesktop/impl/portal/PermissionStore",
                                      node->interfaces[0], &table, this, nullptr, nullptr);
    own("org.freedesktop.impl.portal.PermissionStore");
    if (portal_) {
      g_dbus_connection_register_object(bus_, "/org/freedesktop/portal/desktop",
                                        node->interfaces[1], &table, this, nullptr, nullptr);
      own("org.freedesktop.portal.Desktop");
    }
    ready_.set_value();
    g_main_loop_run(loop_);
    g_dbus_connection_close_sync(bus_, nullptr, nullptr);
    g_object_unref(bus_);
    g_dbus_node_info_unref(node);
    g_main_context_pop_thread_default(context);
    g_main_loop_unref(loop_);
    g_main_context_unref(context);
  }

  void own(const char* name) {
    GVariant* reply = g_dbus_connection_call_sync(
        bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", name, 4U), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
    ASSERT_NE(reply, nullptr);
    g_variant_unref(reply);
  }

  static void onCall(GDBusConnection*, const gchar* sender, const gchar*, const gchar*,
                     const gchar* method, GVariant* arguments, GDBusMethodInvocation* invocation,
                     gpointer data) {
    auto* self = static_cast<FakeDesktop*>(data);
    if (std::string(method) == "Lookup") {
      self->lookUp(invocation);
    } else {
      self->accessDevice(sender, arguments, invocation);
    }
  }

  void lookUp(GDBusMethodInvocation* invocation) {
    ++questions_;
    if (isMute_) {
      g_object_unref(invocation);  // an answer that never comes
    } else if (permissions_.empty()) {
      g_dbus_method_invocation_return_dbus_error(
          invocation, "org.freedesktop.portal.Error.NotFound", "No entry for microphone");
    } else {
      GVariant* permissions = g_variant_new_parsed(permissions_.c_str());
      g_dbus_method_invocation_return_value(
          invocation, g_variant_new("(@a{sas}v)", permissions, g_variant_new_byte(0)));
    }
  }

  void accessDevice(const std::string& sender, GVariant* arguments,
                    GDBusMethodInvocation* invocation) {
    GVariant* options = g_variant_get_child_value(arguments, 2);
    const gchar* token = "";
    g_variant_lookup(options, "handle_token", "&s", &token);
    std::string caller = sender.substr(1);
    for (char& letter : caller) letter = letter == '.' ? '_' : letter;
    const std::string path = "/org/freedesktop/portal/desktop/request/" + caller + "/" + token;
    g_variant_unref(options);
    if (*portal_ == Portal::kFails) {
      g_dbus_method_invocation_return_dbus_error(
          invocation, "org.freedesktop.portal.Error.NotAllowed", "Not for you");
      return;
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", path.c_str()));
    if (*portal_ == Portal::kLeaves) {
      g_dbus_connection_call(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "ReleaseName",
                             g_variant_new("(s)", "org.freedesktop.portal.Desktop"), nullptr,
                             G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
      return;
    }
    GVariantBuilder results;
    g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
    g_dbus_connection_emit_signal(
        bus_, nullptr, path.c_str(), "org.freedesktop.portal.Request", "Response",
        g_variant_new("(ua{sv})", *portal_ == Portal::kGrants ? 0U : 1U, &results), nullptr);
  }

  const std::string permissions_;
  const std::optional<Portal> portal_;
  std::promise<void> ready_;
  GMainLoop* loop_ = nullptr;
  GDBusConnection* bus_ = nullptr;
  std::atomic<bool> isMute_{false};
  std::atomic<int> questions_{0};
  std::thread thread_;
};

// GLib's schemas are fixed at its first access: here it finds none.
const bool kNoSchemas = setenv("XDG_DATA_DIRS", "/nonexistent", 1) == 0;

class PermissionTest : public testing::Test {
 protected:
  ~PermissionTest() override {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    g_object_unref(bus);
  }

  std::optional<bool> ask() {
    std::optional<bool> answer;
    permission.request([&](bool isGranted) { answer = isGranted; });
    test_support::waitUntil([&] {
      g_main_context_iteration(nullptr, FALSE);
      return answer.has_value();
    });
    return answer;
  }

  PrivatePipeWire server{PrivatePipeWire::Options::busOnly()};
  GDBusConnection* bus = connect();
  DesktopMicrophonePermission permission{[this] { return bus; }};
};

TEST_F(PermissionTest, SystemWithoutAStorePermits) {
  ASSERT_TRUE(kNoSchemas);
  EXPECT_FALSE(permission.isKnown());
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
}

TEST_F(PermissionTest, StoreWithoutAnyEntryPermits) {
  FakeDesktop desktop("");
  EXPECT_TRUE(permission.isKnown());
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
}

TEST_F(PermissionTest, EntriesForOtherProgramsDoNotCount) {
  FakeDesktop desktop("{'org.example.Other': ['no'], 'com.vantrel.korvel.RecordAudio': ['yes']}");
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
}

TEST_F(PermissionTest, NoInTheStoreDenies) {
  FakeDesktop desktop("{'com.vantrel.korvel.RecordAudio': ['no']}");
  EXPECT_EQ(permission.status(), AuthorizationStatus::kDenied);
}

TEST_F(PermissionTest, AskInTheStoreIsUndetermined) {
  FakeDesktop desktop("{'com.vantrel.korvel.RecordAudio': ['ask']}");
  EXPECT_EQ(permission.status(), AuthorizationStatus::kNotDetermined);
}

TEST_F(PermissionTest, EmptyEntryPermits) {
  FakeDesktop desktop("{'com.vantrel.korvel.RecordAudio': @as []}");
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
}

TEST_F(PermissionTest, StoreThatDoesNotAnswerIsSoonGivenUp) {
  FakeDesktop desktop("{'com.vantrel.korvel.RecordAudio': ['yes']}");
  desktop.stopAnswering();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
  EXPECT_EQ(desktop.questions(), 1);
}

TEST_F(PermissionTest, NoServiceIsStartedJustToAsk) {
  const std::string trace = server.directory() + "/started";
  std::ofstream(server.busServices() + "/store.service")
      << "[D-BUS Service]\nName=org.freedesktop.impl.portal.PermissionStore\n"
      << "Exec=/usr/bin/touch " << trace << "\n";
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
  EXPECT_FALSE(std::ifstream(trace).good());
  // The bus would start it for any client.
  g_dbus_connection_call(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus", "StartServiceByName",
                         g_variant_new("(su)", "org.freedesktop.impl.portal.PermissionStore", 0U),
                         nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
  EXPECT_TRUE(test_support::waitUntil([&] { return std::ifstream(trace).good(); }));
}

TEST_F(PermissionTest, PortalsAnswerIsTakenAsTheUsers) {
  {
    FakeDesktop desktop("", FakeDesktop::Portal::kGrants);
    EXPECT_EQ(ask(), true);
    EXPECT_EQ(ask(), true);
  }
  FakeDesktop desktop("", FakeDesktop::Portal::kRefuses);
  EXPECT_EQ(ask(), false);
}

TEST_F(PermissionTest, PortalThatFailsOrLeavesRefuses) {
  {
    FakeDesktop desktop("", FakeDesktop::Portal::kFails);
    EXPECT_EQ(ask(), false);
  }
  FakeDesktop desktop("", FakeDesktop::Portal::kLeaves);
  EXPECT_EQ(ask(), false);
}

TEST_F(PermissionTest, WithoutAPortalNobodyCanPermit) {
  EXPECT_EQ(ask(), false);
}

TEST(Permission, SystemWithoutABusPermits) {
  DesktopMicrophonePermission permission([]() -> GDBusConnection* { return nullptr; });
  EXPECT_FALSE(permission.isKnown());
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
  std::optional<bool> answer;
  permission.request([&](bool isGranted) { answer = isGranted; });
  EXPECT_EQ(answer, true);
}

}  // namespace
}  // namespace linux_host
