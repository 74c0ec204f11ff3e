// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/login_apple_events.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/authorization/fake_service.h"
#include "tests/support/private_pipewire.h"

namespace authorization_test {
namespace {

using linux_host::LoginAppleEvents;
using linux_host::SystemBus;
using platform::AEDesc;
using platform::OSStatus;
using platform::ProcessSerialNumber;
using test_support::PrivatePipeWire;

constexpr char kLogin1[] = R"(<node><interface name="org.freedesktop.login1.Manager">
  <method name="Reboot"><arg type="b" direction="in"/></method></interface></node>)";

class LoginAppleEventsTest : public testing::Test {
 protected:
  void startLogin() {
    login = std::make_unique<FakeService>(
        server.busAddress(), "org.freedesktop.login1", "/org/freedesktop/login1", kLogin1,
        [this](GDBusMethodInvocation* invocation, GVariant* arguments) {
          gboolean value = FALSE;
          g_variant_get(arguments, "(b)", &value);
          interactive = value != FALSE;
          mayAsk = (g_dbus_message_get_flags(g_dbus_method_invocation_get_message(invocation)) &
                    G_DBUS_MESSAGE_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION) != 0;
          ++reboots;
          respond(invocation);
        });
  }
  static void refuse(GDBusMethodInvocation* invocation, const char* error) {
    g_dbus_method_invocation_return_dbus_error(invocation, error, "no");
  }
  // As the caller does: returns the first status that is not zero.
  OSStatus restart(ProcessSerialNumber process = {0, platform::kSystemProcess},
                   std::uint32_t eventID = platform::kAERestart,
                   std::int64_t timeout_ticks = platform::kAEDefaultTimeout) {
    AEDesc target;
    AEDesc event;
    AEDesc reply;
    OSStatus status =
        events.AECreateDesc(platform::typeProcessSerialNumber, &process, sizeof(process), &target);
    if (status != 0) return status;
    status = events.AECreateAppleEvent(platform::kCoreEventClass, eventID, &target,
                                       platform::kAutoGenerateReturnID, platform::kAnyTransactionID,
                                       &event);
    events.AEDisposeDesc(&target);
    if (status != 0) return status;
    status = events.AESend(&event, &reply, platform::kAENoReply, platform::kAENormalPriority,
                           timeout_ticks);
    events.AEDisposeDesc(&event);
    EXPECT_EQ(reply.descriptorType, platform::typeNull);
    EXPECT_EQ(events.AEDisposeDesc(&reply), 0);
    return status;
  }

  PrivatePipeWire server{PrivatePipeWire::Options::busOnly()};
  std::function<void(GDBusMethodInvocation*)> respond = [](GDBusMethodInvocation* invocation) {
    g_dbus_method_invocation_return_value(invocation, nullptr);
  };
  int reboots = 0;
  bool interactive = false;
  bool mayAsk = false;
  std::unique_ptr<FakeService> login;
  SystemBus bus{server.busAddress()};
  LoginAppleEvents events{bus};
};

TEST_F(LoginAppleEventsTest, TheRestartEventRestartsTheComputer) {
  startLogin();
  EXPECT_EQ(restart(), 0);
  EXPECT_EQ(reboots, 1);
  EXPECT_TRUE(interactive);
  EXPECT_TRUE(mayAsk);
}

TEST_F(LoginAppleEventsTest, OnlyTheSystemProcessAndOnlyThatEvent) {
  startLogin();
  EXPECT_EQ(restart({0, 2}), linux_host::procNotFound);
  EXPECT_EQ(restart({1, platform::kSystemProcess}), linux_host::procNotFound);
  EXPECT_EQ(restart({0, platform::kSystemProcess}, platform::fourCharCode("shut")),
            linux_host::errAEEventNotHandled);
  EXPECT_EQ(reboots, 0);
}

TEST_F(LoginAppleEventsTest, EachFailureHasItsStatus) {
  EXPECT_EQ(restart(), linux_host::procNotFound);
  startLogin();
  respond = [](GDBusMethodInvocation* call) {
    refuse(call, "org.freedesktop.DBus.Error.AccessDenied");
  };
  EXPECT_EQ(restart(), linux_host::userCanceledErr);
  respond = [](GDBusMethodInvocation* call) {
    refuse(call, "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired");
  };
  EXPECT_EQ(restart(), linux_host::userCanceledErr);
  respond = [](GDBusMethodInvocation* call) {
    refuse(call, "org.freedesktop.login1.OperationInProgress");
  };
  EXPECT_EQ(restart(), linux_host::errAEEventNotHandled);
}

TEST_F(LoginAppleEventsTest, DoesNotWaitLongerThanAsked) {
  startLogin();
  GDBusMethodInvocation* kept = nullptr;
  respond = [&](GDBusMethodInvocation* call) { kept = call; };
  EXPECT_EQ(restart({0, platform::kSystemProcess}, platform::kAERestart, 12),
            linux_host::errAETimeout);
  ASSERT_NE(kept, nullptr);
  g_dbus_method_invocation_return_value(kept, nullptr);
}

TEST_F(LoginAppleEventsTest, WithoutABusThereIsNoSystemProcess) {
  SystemBus noBus("unix:path=/nonexistent");
  LoginAppleEvents alone(noBus);
  const ProcessSerialNumber process{0, platform::kSystemProcess};
  AEDesc target;
  AEDesc event;
  AEDesc reply;
  ASSERT_EQ(alone.AECreateDesc(platform::typeProcessSerialNumber, &process, 8, &target), 0);
  ASSERT_EQ(alone.AECreateAppleEvent(platform::kCoreEventClass, platform::kAERestart, &target, -1,
                                     0, &event),
            0);
  EXPECT_EQ(alone.AESend(&event, &reply, platform::kAENoReply, 0, -1), linux_host::procNotFound);
  alone.AEDisposeDesc(&target);
  alone.AEDisposeDesc(&event);
}

TEST_F(LoginAppleEventsTest, RefusesDescriptorsOfTheWrongKind) {
  AEDesc result;
  EXPECT_EQ(events.AECreateDesc(platform::typeProcessSerialNumber, nullptr, 8, &result),
            linux_host::paramErr);
  AEDesc target;
  ASSERT_EQ(events.AECreateDesc(platform::typeProcessSerialNumber, "four", 4, &target), 0);
  EXPECT_EQ(events.AECreateAppleEvent(platform::kCoreEventClass, platform::kAERestart, &target, -1,
                                      0, &result),
            linux_host::errAEWrongDataType);
  EXPECT_EQ(events.AESend(&target, &result, platform::kAENoReply, 0, -1),
            linux_host::errAENotAEDesc);
  EXPECT_EQ(events.AEDisposeDesc(&target), 0);
  EXPECT_EQ(target.dataHandle, nullptr);
  EXPECT_EQ(events.AEDisposeDesc(&target), 0);
  EXPECT_EQ(events.AEDisposeDesc(nullptr), linux_host::paramErr);
}

}  // namespace
}  // namespace authorization_test
