// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/notifications/notification_center.h"
#include "tests/base/fake_service.h"
#include "tests/base/glib_faults.h"
#include "tests/support/notification_interface.h"

// Notifications, with servers of every kind.

namespace linux_host {
namespace {

using base_test::DesktopTest;
using base_test::FakeService;
using base_test::GlibFaults;
using platform::UserNotification;
using platform::UserNotificationPtr;
using test_support::kNotificationsName;
using test_support::kNotificationsPath;
using test_support::kNotificationsXml;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Delegate : public platform::UserNotificationCenterDelegate {
 public:
  bool userNotificationCenterShouldPresentNotification(platform::UserNotificationCenter&,
                                                       const UserNotificationPtr&) override {
    return true;
  }
  void userNotificationCenterDidActivateNotification(
      platform::UserNotificationCenter&, const UserNotificationPtr& notification) override {
    activations.emplace_back(notification, notification->activationType);
  }
  std::vector<std::pair<UserNotificationPtr, platform::UserNotificationActivationType>> activations;
};

class NotificationTest : public DesktopTest {
 protected:
  NotificationTest() { center_.setDelegate(delegate_); }

  void serve(std::vector<std::string> capabilities) {
    capabilities_ = std::move(capabilities);
    server_ = std::make_unique<FakeService>(
        daemon_.address(), kNotificationsName, kNotificationsPath, kNotificationsXml,
        [this](const std::string& method, const std::string&) -> GVariant* {
          if (method == "GetCapabilities") {
            GVariantBuilder list;
            g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
            for (const std::string& one : capabilities_) {
              g_variant_builder_add(&list, "s", one.c_str());
            }
            return g_variant_new("(as)", &list);
          }
          if (method == "Notify") return g_variant_new("(u)", nextId_++);
          return g_variant_new("()");
        });
  }
  [[nodiscard]] bool wasCalled(const std::string& prefix) const { return callsOf(prefix) > 0; }
  [[nodiscard]] long callsOf(const std::string& prefix) const {
    return std::count_if(server_->calls.begin(), server_->calls.end(),
                         [&](const std::string& call) { return call.starts_with(prefix); });
  }
  static UserNotificationPtr saved() {
    auto notification = std::make_shared<UserNotification>();
    notification->informativeText = "Saved <here> & there";
    notification->hasContentsAction = true;
    notification->hasActionButton = true;
    notification->actionButtonTitle = "Open";
    notification->soundName = platform::kUserNotificationDefaultSoundName;
    notification->userInfo = {{"OpenPath", "/out/a.mp3"}};
    return notification;
  }
  static UserNotificationPtr started() {
    auto notification = std::make_shared<UserNotification>();
    notification->informativeText = "Starting";
    notification->hasActionButton = true;
    notification->actionButtonTitle = "Cancel";
    notification->userInfo = {{"Cancel", "Cancel"}};
    return notification;
  }
  void deliverAndWait(const UserNotificationPtr& notification) {
    const long before = callsOf("Notify");
    center_.deliverNotification(notification);
    iterateUntil([&] { return callsOf("Notify") > before; });
    settle(server_.get());
  }

  std::vector<std::string> capabilities_;
  guint32 nextId_ = 7;
  std::unique_ptr<FakeService> server_;
  LinuxBundle bundle_{"/nonexistent/RecordAudio.app", nullptr};
  std::shared_ptr<Delegate> delegate_ = std::make_shared<Delegate>();
  std::vector<std::string> tokens_;
  DesktopNotificationCenter center_{bus_.get(), bundle_,
                                    [this](const std::string& token) { tokens_.push_back(token); }};
};

TEST_F(NotificationTest, IsShownWithItsButtonSoundAndHints) {
  serve({"actions", "body", "body-markup"});
  deliverAndWait(saved());
  EXPECT_THAT(server_->calls.back(),
              AllOf(HasSubstr("'Record Audio', 0, 'com.vantrel.korvel.RecordAudio'"),
                    HasSubstr("'Saved &lt;here&gt; &amp; there'"),
                    HasSubstr("['default', 'Show', 'button', 'Open']"),
                    HasSubstr("'desktop-entry': <'com.vantrel.korvel.RecordAudio'>"),
                    HasSubstr("'category': <'transfer.complete'>"),
                    HasSubstr("'sound-name': <'message-new-instant'>")));
}

TEST_F(NotificationTest, AServerWithoutMarkupGetsPlainText) {
  serve({"body"});
  deliverAndWait(saved());
  EXPECT_THAT(server_->calls.back(), HasSubstr("'Saved <here> & there'"));
}

TEST_F(NotificationTest, AServerWithoutActionsGetsTheTextAlone) {
  serve({"body"});
  deliverAndWait(saved());
  EXPECT_THAT(server_->calls.back(), testing::Not(HasSubstr("'default'")));
}

TEST_F(NotificationTest, StaysTenSecondsAndKeepsItsButtonWhenItIsClicked) {
  serve({"actions", "body", "persistence"});
  deliverAndWait(started());
  EXPECT_THAT(server_->calls.back(), HasSubstr("'resident': <true>"));
  EXPECT_TRUE(server_->calls.back().ends_with(", 10000)")) << server_->calls.back();
  auto error = started();
  error->hasActionButton = false;
  deliverAndWait(error);
  EXPECT_THAT(server_->calls.back(), testing::Not(HasSubstr("'resident'")));
}

TEST_F(NotificationTest, OneThatOutlivesItsProgramIsKeptInNoList) {
  serve({"actions", "body", "persistence"});
  deliverAndWait(started());
  EXPECT_THAT(server_->calls.back(), testing::Not(HasSubstr("'transient'")));
  center_.setTransient();
  deliverAndWait(started());
  EXPECT_THAT(server_->calls.back(), HasSubstr("'transient': <true>"));
}

// A server that draws a button for the default action, and closes a notification that is clicked.
TEST_F(NotificationTest, ABubbleAsksForNoClickAndHasNoUselessButton) {
  serve({"actions", "body"});
  deliverAndWait(started());
  EXPECT_THAT(server_->calls.back(), HasSubstr("['button', 'Cancel']"));
  auto notification = saved();
  notification->informativeText = "Saved.\nClick here.";
  notification->details = "More.";
  deliverAndWait(notification);
  EXPECT_THAT(server_->calls.back(), AllOf(HasSubstr("'Saved.\\nMore.'"),
                                           HasSubstr("['default', 'Show', 'button', 'Open']")));
}

// Without a default action these servers start the program again, which ends the recording.
TEST_F(NotificationTest, AServerWithAListGetsTheClickWithEveryNotification) {
  serve({"actions", "body", "persistence"});
  deliverAndWait(started());
  EXPECT_THAT(server_->calls.back(), HasSubstr("['default', 'Show', 'button', 'Cancel']"));
  auto notification = saved();
  notification->informativeText = "Saved.\nClick here.";
  deliverAndWait(notification);
  EXPECT_THAT(server_->calls.back(), HasSubstr("'Saved.\\nClick here.'"));
}

TEST_F(NotificationTest, AButtonThatWorksOnlyOnceClosesTheNotification) {
  serve({"actions", "body", "persistence"});
  deliverAndWait(started());
  deliverAndWait(saved());
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "default"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 8U, "button"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "button"));
  iterateUntil([&] { return wasCalled("CloseNotification(7,)"); });
  settle(server_.get());
  EXPECT_EQ(callsOf("CloseNotification"), 1) << "the file can be opened again";
}

TEST_F(NotificationTest, AServerWithRoomForOneLineGetsTheTextAsThatLine) {
  serve({});
  deliverAndWait(saved());
  EXPECT_THAT(server_->calls.back(), HasSubstr("'Saved <here> & there', ''"));
}

TEST_F(NotificationTest, ASilentOneKeepsTheServerSilent) {
  serve({"body", "sound"});
  auto silent = saved();
  silent->soundName.reset();
  deliverAndWait(silent);
  EXPECT_THAT(server_->calls.back(), HasSubstr("'suppress-sound': <true>"));
}

TEST_F(NotificationTest, CapabilitiesAreAskedOnce) {
  serve({"body"});
  deliverAndWait(saved());
  deliverAndWait(saved());
  EXPECT_EQ(callsOf("GetCapabilities"), 1);
}

TEST_F(NotificationTest, ClicksReachTheDelegateAsLongAsItIsShown) {
  serve({"actions", "body"});
  const auto notification = saved();
  deliverAndWait(notification);
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "default"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "button"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "other"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 99U, "default"));
  iterateUntil([&] { return delegate_->activations.size() == 2; });
  settle(server_.get());
  using Type = platform::UserNotificationActivationType;
  EXPECT_THAT(delegate_->activations,
              ElementsAre(std::pair(notification, Type::kContentsClicked),
                          std::pair(notification, Type::kActionButtonClicked)));
  server_->emit(kNotificationsPath, "NotificationClosed", g_variant_new("(uu)", 7U, 2U));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "default"));
  settle(server_.get());
  EXPECT_EQ(delegate_->activations.size(), 2U);
  center_.removeDeliveredNotification(notification);
  settle(server_.get());
  EXPECT_EQ(callsOf("CloseNotification"), 0) << "the user closed it";
}

TEST_F(NotificationTest, TheActivationTokenArrivesBeforeTheClick) {
  serve({"actions", "body"});
  deliverAndWait(saved());
  server_->emit(kNotificationsPath, "ActivationToken", g_variant_new("(us)", 99U, "another's"));
  server_->emit(kNotificationsPath, "ActivationToken", g_variant_new("(us)", 7U, "leave"));
  server_->emit(kNotificationsPath, "ActionInvoked", g_variant_new("(us)", 7U, "default"));
  iterateUntil([&] { return delegate_->activations.size() == 1; });
  EXPECT_THAT(tokens_, ElementsAre("leave"));
}

TEST_F(NotificationTest, SignalsWithOtherArgumentsAreIgnored) {
  const GlibFaults faults;
  serve({"actions", "body"});
  deliverAndWait(saved());
  const auto emit = [&](const char* signal, GVariant* arguments) {
    server_->emit(kNotificationsPath, signal, arguments);
  };
  emit("NotificationClosed", g_variant_new("(us)", 7U, "default"));
  emit("NotificationClosed", g_variant_new("(u)", 7U));
  emit("ActionInvoked", g_variant_new("(uu)", 7U, 1U));
  emit("ActionInvoked", nullptr);
  emit("ActivationToken", g_variant_new("(uu)", 7U, 1U));
  settle(server_.get());
  EXPECT_THAT(delegate_->activations, IsEmpty());
  emit("ActionInvoked", g_variant_new("(us)", 7U, "default"));
  iterateUntil([&] { return delegate_->activations.size() == 1; });
  EXPECT_EQ(faults.count(), 0);
}

TEST_F(NotificationTest, RemovalClosesItOnTheScreen) {
  serve({"body"});
  const auto notification = saved();
  deliverAndWait(notification);
  center_.removeDeliveredNotification(notification);
  center_.removeDeliveredNotification(notification);
  iterateUntil([&] { return wasCalled("CloseNotification"); });
  settle(server_.get());
  EXPECT_EQ(callsOf("CloseNotification"), 1);
}

TEST_F(NotificationTest, OneRemovedBeforeTheServerNamedItIsClosedThen) {
  serve({"body"});
  deliverAndWait(saved());
  const auto second = saved();
  center_.deliverNotification(second);
  center_.removeDeliveredNotification(second);
  iterateUntil([&] { return wasCalled("CloseNotification(8,)"); });
}

TEST_F(NotificationTest, OneRemovedBeforeTheServerIsKnownIsNeverShown) {
  serve({"body"});
  const auto notification = saved();
  center_.deliverNotification(notification);
  center_.removeDeliveredNotification(notification);
  // The next one comes after everything about the first.
  deliverAndWait(saved());
  EXPECT_EQ(callsOf("Notify"), 1);
}

TEST_F(NotificationTest, WithoutAServerNothingBreaksAndTheLogSaysSoOnce) {
  ::testing::internal::CaptureStderr();
  center_.deliverNotification(saved());
  center_.deliverNotification(saved());
  settle(server_.get());
  settle(server_.get());
  center_.removeDeliveredNotification(saved());
  const std::string said = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(said, HasSubstr("Notifications are not shown"));
  EXPECT_EQ(said.find("Notifications are not shown"), said.rfind("Notifications are not shown"));
}

TEST_F(NotificationTest, AServerThatIsReplacedIsAskedAgain) {
  serve({"body"});
  const auto notification = saved();
  deliverAndWait(notification);
  server_.reset();
  iterateUntil([&] { return !hasOwner(kNotificationsName); });
  settle(server_.get());
  serve({});
  deliverAndWait(saved());
  EXPECT_EQ(callsOf("GetCapabilities"), 1);
  center_.removeDeliveredNotification(notification);
  settle(server_.get());
  EXPECT_FALSE(wasCalled("CloseNotification")) << "that number is another server's";
}

TEST_F(NotificationTest, TheCenterMayBeDestroyedDuringACall) {
  serve({"body"});
  {
    DesktopNotificationCenter shortLived(bus_.get(), bundle_);
    shortLived.deliverNotification(saved());
  }
  iterateUntil([&] { return wasCalled("GetCapabilities"); });
  settle(server_.get());
}

TEST(NotificationWithoutBusTest, ShowsNothing) {
  const LinuxBundle bundle("/nonexistent/RecordAudio.app", nullptr);
  DesktopNotificationCenter center(nullptr, bundle);
  const auto notification = std::make_shared<UserNotification>();
  center.deliverNotification(notification);
  center.removeDeliveredNotification(notification);
}

}  // namespace
}  // namespace linux_host
