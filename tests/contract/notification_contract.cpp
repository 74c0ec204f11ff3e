// SPDX-License-Identifier: MIT
#include <algorithm>
#include <utility>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/user_notifications.h promises.

namespace contract {
namespace {

using platform::UserNotification;
using platform::UserNotificationPtr;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Act = Surroundings::Act;
using Activation = platform::UserNotificationActivationType;

class Reader : public platform::UserNotificationCenterDelegate {
 public:
  bool userNotificationCenterShouldPresentNotification(
      platform::UserNotificationCenter&, const UserNotificationPtr& notification) override {
    asked.push_back(notification);
    return presents;
  }
  void userNotificationCenterDidActivateNotification(
      platform::UserNotificationCenter& center, const UserNotificationPtr& notification) override {
    acts.emplace_back(notification, notification->activationType);
    if (removes) center.removeDeliveredNotification(notification);
  }

  bool presents = true;
  bool removes = false;
  std::vector<UserNotificationPtr> asked;
  std::vector<std::pair<UserNotificationPtr, Activation>> acts;
};

class UserNotificationContract : public ContractTest {
 protected:
  void SetUp() override {
    rig->surroundings();
    center().setDelegate(reader);
  }
  void TearDown() override { center().setDelegate({}); }
  platform::UserNotificationCenter& center() { return host().userNotificationCenter; }
  // With an action for a click and for its button.
  static UserNotificationPtr saying(const std::string& text) {
    auto notification = std::make_shared<UserNotification>();
    notification->informativeText = text;
    notification->hasContentsAction = true;
    notification->hasActionButton = true;
    notification->actionButtonTitle = "Open";
    return notification;
  }
  std::vector<std::string> shown() { return rig->surroundings().shownNotifications(); }
  bool isShown(const std::string& text) {
    const auto texts = shown();
    return std::ranges::count(texts, text) == 1;
  }
  UserNotificationPtr deliver(const std::string& text) {
    const auto notification = saying(text);
    center().deliverNotification(notification);
    EXPECT_TRUE(rig->runUntil([&] { return isShown(text); })) << text;
    return notification;
  }
  void act(const std::string& text, Act act) { rig->surroundings().act(text, act); }

  std::shared_ptr<Reader> reader = std::make_shared<Reader>();
};

TEST_F(UserNotificationContract, OneIsShownAfterAnotherUntilItIsRemoved) {
  const auto first = deliver("one");
  const auto second = deliver("two");
  EXPECT_THAT(shown(), ElementsAre("one", "two"));
  EXPECT_THAT(reader->asked, ElementsAre(first, second));
  center().removeDeliveredNotification(first);
  EXPECT_TRUE(rig->runUntil([&] { return !isShown("one"); }));
  EXPECT_THAT(shown(), ElementsAre("two"));
  center().removeDeliveredNotification(first);
  center().removeDeliveredNotification(second);
  EXPECT_TRUE(rig->runUntil([&] { return shown().empty(); }));
  EXPECT_THAT(reader->acts, IsEmpty()) << "nobody touched them";
}

TEST_F(UserNotificationContract, ItsTitleItsTextAndItsDetailsAreRead) {
  const auto notification = saying("one\nClick here.");
  notification->title = "Contract title";
  notification->details = "Contract details";
  notification->soundName = platform::kUserNotificationDefaultSoundName;
  center().deliverNotification(notification);
  ASSERT_TRUE(rig->runUntil([&] { return isShown("one"); }));
  EXPECT_THAT(rig->surroundings().shownText("one"),
              testing::AllOf(testing::StartsWith("Contract title\n"), HasSubstr("one"),
                             HasSubstr("Contract details")));
}

TEST_F(UserNotificationContract, EqualOnesAreTwo) {
  const auto first = deliver("same");
  const auto second = saying("same");
  center().deliverNotification(second);
  EXPECT_TRUE(rig->runUntil([&] { return shown().size() == 2; }));
  center().removeDeliveredNotification(first);
  EXPECT_TRUE(rig->runUntil([&] { return shown().size() == 1; }));
}

TEST_F(UserNotificationContract, OneThatTheDelegateDoesNotPresentIsNotShown) {
  reader->presents = false;
  const auto hidden = saying("hidden");
  center().deliverNotification(hidden);
  EXPECT_THAT(reader->asked, ElementsAre(hidden));
  reader->presents = true;
  deliver("next");
  EXPECT_THAT(shown(), ElementsAre("next"));
}

TEST_F(UserNotificationContract, WithoutADelegateAllAreShownAndAClickIsLost) {
  center().setDelegate({});
  deliver("one");
  act("one", Act::kClick);
  rig->pass(0.05);
  EXPECT_THAT(reader->acts, IsEmpty());
  center().setDelegate(reader);
  reader.reset();
  deliver("two");
  act("two", Act::kClick);
  rig->pass(0.05);
}

TEST_F(UserNotificationContract, AClickAndTheButtonReachTheDelegate) {
  const auto notification = deliver("one");
  act("one", Act::kClick);
  EXPECT_THAT(reader->acts, IsEmpty()) << "not from the loop";
  ASSERT_TRUE(rig->runUntil([&] { return reader->acts.size() == 1; }));
  act("one", Act::kPressButton);
  ASSERT_TRUE(rig->runUntil([&] { return reader->acts.size() == 2; }));
  EXPECT_THAT(reader->acts, ElementsAre(std::pair(notification, Activation::kContentsClicked),
                                        std::pair(notification, Activation::kActionButtonClicked)));
}

TEST_F(UserNotificationContract, TheDelegateMayRemoveWhatItIsCalledFor) {
  reader->removes = true;
  deliver("one");
  act("one", Act::kPressButton);
  EXPECT_TRUE(rig->runUntil([&] { return shown().empty(); }));
  EXPECT_EQ(reader->acts.size(), 1U);
}

TEST_F(UserNotificationContract, WhatTheUserClosesIsGone) {
  const auto notification = deliver("one");
  act("one", Act::kClose);
  EXPECT_TRUE(rig->runUntil([&] { return shown().empty(); }));
  center().removeDeliveredNotification(notification);
  deliver("two");
  EXPECT_THAT(shown(), ElementsAre("two"));
  EXPECT_THAT(reader->acts, IsEmpty());
}

TEST_F(UserNotificationContract, OneThatIsRemovedAtOnceDoesNotStay) {
  const auto notification = saying("brief");
  center().deliverNotification(notification);
  center().removeDeliveredNotification(notification);
  deliver("next");
  EXPECT_TRUE(rig->runUntil([&] { return !isShown("brief"); }));
  EXPECT_THAT(shown(), ElementsAre("next"));
}

TEST_F(UserNotificationContract, ANotificationWithNothingInItIsNoError) {
  center().deliverNotification(std::make_shared<UserNotification>());
  EXPECT_TRUE(rig->runUntil([&] { return shown().size() == 1; }));
}

}  // namespace
}  // namespace contract
