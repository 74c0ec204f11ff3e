// SPDX-License-Identifier: MIT
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>

#include "hosts/linux/permission/desktop_permission.h"
#include "tests/integration/fake_permissions.h"
#include "tests/support/child_process.h"
#include "tests/support/private_pipewire.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using integration_test::FakePermissions;
using platform::AuthorizationStatus;
using test_support::PrivatePipeWire;

GDBusConnection* connect() {
  return g_dbus_connection_new_for_address_sync(
      std::getenv("DBUS_SESSION_BUS_ADDRESS"),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
}

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
  FakePermissions desktop("");
  EXPECT_TRUE(permission.isKnown());
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
}

TEST_F(PermissionTest, EntriesForOtherProgramsDoNotCount) {
  FakePermissions desktop(
      "{'org.example.Other': ['no'], 'com.vantrel.korvel.RecordAudio': ['yes']}");
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
}

TEST_F(PermissionTest, NoInTheStoreDenies) {
  FakePermissions desktop("{'com.vantrel.korvel.RecordAudio': ['no']}");
  EXPECT_EQ(permission.status(), AuthorizationStatus::kDenied);
}

TEST_F(PermissionTest, AskInTheStoreIsUndetermined) {
  FakePermissions desktop("{'com.vantrel.korvel.RecordAudio': ['ask']}");
  EXPECT_EQ(permission.status(), AuthorizationStatus::kNotDetermined);
}

TEST_F(PermissionTest, EmptyEntryPermits) {
  FakePermissions desktop("{'com.vantrel.korvel.RecordAudio': @as []}");
  EXPECT_EQ(permission.status(), AuthorizationStatus::kAuthorized);
}

TEST_F(PermissionTest, StoreThatDoesNotAnswerIsSoonGivenUp) {
  FakePermissions desktop("{'com.vantrel.korvel.RecordAudio': ['yes']}");
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
    FakePermissions desktop("", FakePermissions::Portal::kGrants);
    EXPECT_EQ(ask(), true);
    EXPECT_EQ(ask(), true);
  }
  FakePermissions desktop("", FakePermissions::Portal::kRefuses);
  EXPECT_EQ(ask(), false);
}

TEST_F(PermissionTest, PortalThatFailsOrLeavesRefuses) {
  {
    FakePermissions desktop("", FakePermissions::Portal::kFails);
    EXPECT_EQ(ask(), false);
  }
  FakePermissions desktop("", FakePermissions::Portal::kLeaves);
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
