// SPDX-License-Identifier: MIT
#include "hosts/linux/notifications/recording_notice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/linux/base/bundle.h"
#include "tests/base/fake_service.h"
#include "tests/base/no_requests.h"
#include "tests/support/notification_interface.h"

// The notification that shows a recording where the desktop has no tray.

namespace linux_host {
namespace {

using base_test::DesktopTest;
using base_test::FakeService;
using base_test::NoRequests;
using test_support::kNotificationsName;
using test_support::kNotificationsPath;
using test_support::kNotificationsXml;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Asked : public NoRequests {
 public:
  void action(const std::string& name, std::function<void(RequestResult)>) override {
    names.push_back(name);
  }
  std::vector<std::string> names;
};

class RecordingNoticeTest : public DesktopTest {
 protected:
  void serve(bool keepsList) {
    server_ = std::make_unique<FakeService>(
        daemon_.address(), kNotificationsName, kNotificationsPath, kNotificationsXml,
        [keepsList](const std::string& method, const std::string&) -> GVariant* {
          if (method == "GetCapabilities") {
            return g_variant_new_parsed(keepsList ? "(['actions', 'body', 'persistence'],)"
                                                  : "(['actions', 'body'],)");
          }
          return method == "Notify" ? g_variant_new("(u)", 7U) : g_variant_new("()");
        });
  }
  void record(const char* time = "00:00") {
    notice_->toolDataDidChange({1, "", "MenuIconOn", time});
  }
  void rest() { notice_->toolDataDidChange({0, "", "MenuIcon", ""}); }
  [[nodiscard]] long callsOf(const std::string& prefix) const {
    return std::count_if(server_->calls.begin(), server_->calls.end(),
                         [&](const std::string& call) { return call.starts_with(prefix); });
  }
  void recordAndWait() {
    notice_->setNeeded(true);
    record();
    iterateUntil([&] { return callsOf("Notify") == 1; });
    settle(server_.get());
  }
  void emit(const char* signal, GVariant* parameters) {
    server_->emit(kNotificationsPath, signal, parameters);
    settle(server_.get());
  }

  std::unique_ptr<FakeService> server_;
  Asked requests_;
  LinuxBundle bundle_{"/nonexistent/RecordAudio.app", nullptr};
  std::unique_ptr<RecordingNotice> notice_ =
      std::make_unique<RecordingNotice>(bus_.get(), requests_, bundle_);
};

TEST_F(RecordingNoticeTest, StaysWithItsButtonsAndComesUpOverNothing) {
  serve(true);
  recordAndWait();
  EXPECT_THAT(server_->calls.back(),
              AllOf(HasSubstr("'Record Audio', 0, 'com.vantrel.korvel.RecordAudio'"),
                    HasSubstr(".\\nClick here to stop.'"), HasSubstr("'Recording since "),
                    HasSubstr("['default', 'Stop', 'stop', 'Stop', 'cancel', 'Cancel']"),
                    HasSubstr("'urgency': <byte 0x00>"), HasSubstr("'resident': <true>"),
                    HasSubstr("'suppress-sound': <true>")));
  EXPECT_TRUE(server_->calls.back().ends_with(", 0)")) << server_->calls.back();
}

TEST_F(RecordingNoticeTest, ABubbleHasNoUselessButton) {
  serve(false);
  recordAndWait();
  EXPECT_THAT(server_->calls.back(),
              AllOf(HasSubstr("['stop', 'Stop', 'cancel', 'Cancel']"), Not(HasSubstr("Click"))));
}

TEST_F(RecordingNoticeTest, OnlyWhereThereIsNoTrayAndOnlyWhileRecording) {
  serve(true);
  record();
  rest();
  notice_->setNeeded(true);
  settle(server_.get());
  EXPECT_THAT(server_->calls, IsEmpty());
  recordAndWait();
  notice_->setNeeded(false);
  iterateUntil([&] { return callsOf("CloseNotification(7,)") == 1; });
  EXPECT_EQ(server_->calls.back(), "CloseNotification(7,)");
}

TEST_F(RecordingNoticeTest, ARemarkChangesItAndTheRunningTimeDoesNot) {
  serve(true);
  recordAndWait();
  record("00:01");
  record("00:02");
  settle(server_.get());
  EXPECT_EQ(callsOf("Notify"), 1);
  notice_->setRemark("No sound.");
  iterateUntil([&] { return callsOf("Notify") == 2; });
  settle(server_.get());
  EXPECT_THAT(server_->calls.back(),
              AllOf(HasSubstr("'Record Audio', 7, "), HasSubstr("No sound.")));
  EXPECT_EQ(callsOf("Notify"), 2);
}

TEST_F(RecordingNoticeTest, GoesWithTheRecordingAndWithTheProgram) {
  serve(true);
  recordAndWait();
  rest();
  iterateUntil([&] { return callsOf("CloseNotification(7,)") == 1; });
  EXPECT_EQ(callsOf("CloseNotification(7,)"), 1);
  record();
  iterateUntil([&] { return callsOf("Notify") == 2; });
  settle(server_.get());
  notice_.reset();
  iterateUntil([&] { return callsOf("CloseNotification(7,)") == 2; });
  EXPECT_EQ(callsOf("CloseNotification(7,)"), 2);
}

TEST_F(RecordingNoticeTest, ARemarkThatEndsWithTheRecordingIsNotSentAgain) {
  serve(true);
  recordAndWait();
  notice_->setRemark("No sound.");
  iterateUntil([&] { return callsOf("Notify") == 2; });
  settle(server_.get());
  notice_->setRemark("");
  rest();
  settle(server_.get());
  settle(server_.get());
  EXPECT_EQ(callsOf("Notify"), 2);
  EXPECT_EQ(server_->calls.back(), "CloseNotification(7,)");
}

TEST_F(RecordingNoticeTest, OneThatIsNotShownYetIsClosedAsSoonAsItIs) {
  serve(true);
  notice_->setNeeded(true);
  record();
  iterateUntil([&] { return callsOf("GetCapabilities") == 1; });
  rest();
  settle(server_.get());
  settle(server_.get());
  EXPECT_EQ(callsOf("Notify"), callsOf("CloseNotification"));
}

TEST_F(RecordingNoticeTest, ItStopsAndCancels) {
  serve(true);
  recordAndWait();
  emit("ActionInvoked", g_variant_new("(us)", 8U, "stop"));
  emit("ActionInvoked", g_variant_new("(us)", 7U, "other"));
  EXPECT_THAT(requests_.names, IsEmpty());
  emit("ActionInvoked", g_variant_new("(us)", 7U, "stop"));
  emit("ActionInvoked", g_variant_new("(us)", 7U, "cancel"));
  emit("ActionInvoked", g_variant_new("(us)", 7U, "default"));
  EXPECT_THAT(requests_.names, ElementsAre("stop", "cancel", "stop"));
}

TEST_F(RecordingNoticeTest, OneThatTheUserClosedStaysClosedForThatRecording) {
  serve(true);
  recordAndWait();
  emit("NotificationClosed", g_variant_new("(uu)", 7U, 2U));
  notice_->setRemark("No sound.");
  settle(server_.get());
  EXPECT_EQ(callsOf("Notify"), 1);
  rest();
  record();
  iterateUntil([&] { return callsOf("Notify") == 2; });
  EXPECT_EQ(callsOf("CloseNotification"), 0) << "it was closed already";
}

TEST_F(RecordingNoticeTest, AServerThatRestartsShowsItAgain) {
  serve(true);
  recordAndWait();
  server_.reset();
  iterateUntil([&] { return !hasOwner(kNotificationsName); });
  settle(server_.get());
  serve(false);
  record("00:05");
  iterateUntil([&] { return callsOf("Notify") == 1; });
  EXPECT_THAT(server_->calls.back(),
              AllOf(HasSubstr("'Record Audio', 0, "), Not(HasSubstr("default"))));
}

TEST_F(RecordingNoticeTest, WithoutAServerNothingBreaksAndItMayBeDestroyedDuringACall) {
  notice_->setNeeded(true);
  record();
  settle(server_.get());
  serve(true);
  record("00:01");
  notice_.reset();
  iterateUntil([&] { return callsOf("GetCapabilities") == 1; });
  settle(server_.get());
  EXPECT_EQ(callsOf("Notify"), 0);
}

}  // namespace
}  // namespace linux_host
