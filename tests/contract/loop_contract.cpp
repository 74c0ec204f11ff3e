// SPDX-License-Identifier: MIT
#include <cmath>
#include <set>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/foundation.h promises of RunLoop, Timer and NotificationCenter.

namespace contract {
namespace {

using platform::Notification;
using platform::TimerPtr;
using testing::ElementsAre;

class LoopContract : public ContractTest {
 protected:
  platform::RunLoop& loop() { return host().runLoop; }
};

TEST_F(LoopContract, AOneShotTimerFiresOnceAndNotBeforeItsTime) {
  int fired = 0;
  double firedAt_s = 0;
  const double begin_s = now_s();
  const TimerPtr timer = loop().scheduledTimer(0.05, 7, false, [&](const TimerPtr& self) {
    ++fired;
    firedAt_s = now_s();
    EXPECT_EQ(std::any_cast<int>(self->userInfo()), 7);
  });
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(timer->isValid());
  ASSERT_TRUE(rig->runUntil([&] { return fired > 0; }));
  EXPECT_GE(firedAt_s - begin_s, 0.0499);
  rig->pass(0.12);
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(timer->isValid());
}

TEST_F(LoopContract, ATimerWithoutDelayFiresFromTheLoop) {
  bool fired = false;
  loop().scheduledTimer(0, {}, false, [&](const TimerPtr&) { fired = true; });
  EXPECT_FALSE(fired);
  EXPECT_TRUE(rig->runUntil([&] { return fired; }));
}

TEST_F(LoopContract, TheLoopKeepsATimerThatNobodyElseKeeps) {
  int fired = 0;
  TimerPtr timer;
  loop().scheduledTimer(0.01, {}, true, [&](const TimerPtr& self) {
    if (++fired == 3) timer = self;
  });
  ASSERT_TRUE(rig->runUntil([&] { return fired >= 3; }));
  ASSERT_NE(timer, nullptr);
  timer->invalidate();
}

TEST_F(LoopContract, TimersFireInTheOrderOfTheirTimes) {
  std::vector<int> order;
  loop().scheduledTimer(0.06, {}, false, [&](const TimerPtr&) { order.push_back(3); });
  loop().scheduledTimer(0.02, {}, false, [&](const TimerPtr&) { order.push_back(1); });
  loop().scheduledTimer(0.04, {}, false, [&](const TimerPtr&) { order.push_back(2); });
  ASSERT_TRUE(rig->runUntil([&] { return order.size() == 3; }));
  EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

// At most once in each interval from its start, however long the loop was kept.
TEST_F(LoopContract, MissedFiringsAreSkippedAndNeverBunched) {
  constexpr double kInterval_s = 0.1;
  std::vector<double> times_s;
  const double begin_s = now_s();
  const TimerPtr timer = loop().scheduledTimer(
      kInterval_s, {}, true, [&](const TimerPtr&) { times_s.push_back(now_s() - begin_s); });
  rig->keepBusy(0.35);
  rig->pass(0.4);
  timer->invalidate();
  std::set<int> intervals;
  for (const double time_s : times_s) {
    intervals.insert(static_cast<int>(std::floor(time_s / kInterval_s + 1e-6)));
  }
  EXPECT_GE(times_s.size(), 2U);
  EXPECT_EQ(intervals.size(), times_s.size()) << "it fired twice in one interval";
  EXPECT_FALSE(intervals.contains(0));
}

TEST_F(LoopContract, AnInvalidatedTimerNeverFiresAndLetsGoOfItsAction) {
  const auto held = std::make_shared<int>(1);
  bool fired = false;
  const TimerPtr timer =
      loop().scheduledTimer(0.01, {}, true, [&fired, held](const TimerPtr&) { fired = true; });
  EXPECT_EQ(held.use_count(), 2);
  timer->invalidate();
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
  EXPECT_EQ(held.use_count(), 1);
  rig->pass(0.05);
  EXPECT_FALSE(fired);
}

TEST_F(LoopContract, AOneShotTimerLetsGoOfItsActionWhenItHasFired) {
  const auto held = std::make_shared<int>(1);
  bool fired = false;
  const TimerPtr timer =
      loop().scheduledTimer(0.01, {}, false, [&fired, held](const TimerPtr&) { fired = true; });
  ASSERT_TRUE(rig->runUntil([&] { return fired; }));
  EXPECT_TRUE(rig->runUntil([&] { return held.use_count() == 1; }));
}

TEST_F(LoopContract, ATimerMayEndItselfAndOthersWhileItFires) {
  const auto held = std::make_shared<int>(1);
  int fired = 0;
  bool otherFired = false;
  const TimerPtr other =
      loop().scheduledTimer(0.05, {}, false, [&](const TimerPtr&) { otherFired = true; });
  loop().scheduledTimer(0.01, {}, true, [&, held](const TimerPtr& self) {
    ++fired;
    self->invalidate();
    other->invalidate();
    EXPECT_FALSE(self->isValid());
    EXPECT_EQ(*held, 1) << "the action is there until it returns";
  });
  rig->pass(0.15);
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(otherFired);
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(LoopContract, ADelayedActionRunsOnceAfterTheCurrentEvent) {
  std::vector<int> order;
  loop().performAfterDelay(0, [&] {
    loop().performAfterDelay(0, [&] { order.push_back(2); });
    order.push_back(1);
  });
  EXPECT_TRUE(order.empty());
  ASSERT_TRUE(rig->runUntil([&] { return order.size() >= 2; }));
  rig->pass(0.02);
  EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST_F(LoopContract, ADelayedActionDoesNotRunBeforeItsTime) {
  const double begin_s = now_s();
  double ranAt_s = 0;
  loop().performAfterDelay(0.05, [&] { ranAt_s = now_s(); });
  ASSERT_TRUE(rig->runUntil([&] { return ranAt_s > 0; }));
  EXPECT_GE(ranAt_s - begin_s, 0.0499);
}

class PosterForTest : public platform::NotificationObject {};

class NotificationsContract : public ContractTest {
 protected:
  platform::NotificationCenter& center() { return host().notificationCenter; }
  void post(const std::string& name) { center().post({name, nullptr, {}}); }
};

TEST_F(NotificationsContract, HandlersOfANameAreCalledAtOnceInTheirOrder) {
  std::vector<std::string> heard;
  const int first = 0;
  const int second = 0;
  center().addObserver(&first, "name", [&](const Notification&) { heard.emplace_back("first"); });
  center().addObserver(&second, "name", [&](const Notification&) { heard.emplace_back("second"); });
  center().addObserver(&first, "Name", [&](const Notification&) { heard.emplace_back("other"); });
  post("name");
  EXPECT_THAT(heard, ElementsAre("first", "second"));
  center().removeObserver(&first);
  post("name");
  post("Name");
  EXPECT_THAT(heard, ElementsAre("first", "second", "second"));
  center().removeObserver(&second);
}

TEST_F(NotificationsContract, WhatIsPostedArrivesAsItIs) {
  const auto poster = std::make_shared<PosterForTest>();
  const int observer = 0;
  int heard = 0;
  center().addObserver(&observer, "name", [&](const Notification& notification) {
    ++heard;
    EXPECT_EQ(notification.name, "name");
    EXPECT_EQ(notification.object, poster);
    EXPECT_EQ(notification.userInfo, (platform::Dictionary{{"key", 1}}));
  });
  center().post({"name", poster, {{"key", 1}}});
  EXPECT_EQ(heard, 1);
  center().removeObserver(&observer);
}

TEST_F(NotificationsContract, OneRemovedWhileItIsPostedIsNotCalledAndOneAddedHearsTheNext) {
  std::vector<std::string> heard;
  const int first = 0;
  const int second = 0;
  const int third = 0;
  center().addObserver(&first, "name", [&](const Notification&) {
    heard.emplace_back("first");
    center().removeObserver(&second);
    center().removeObserver(&first);
    center().addObserver(&third, "name", [&](const Notification&) { heard.emplace_back("third"); });
  });
  center().addObserver(&second, "name", [&](const Notification&) { heard.emplace_back("second"); });
  post("name");
  EXPECT_THAT(heard, ElementsAre("first"));
  post("name");
  EXPECT_THAT(heard, ElementsAre("first", "third"));
  center().removeObserver(&third);
}

TEST_F(NotificationsContract, AnUnknownObserverIsRemovedWithoutHarmAndAnUnheardNameIsPosted) {
  const int stranger = 0;
  center().removeObserver(&stranger);
  post("nobody listens");
}

TEST_F(NotificationsContract, AHandlerMayPost) {
  std::vector<std::string> heard;
  const int observer = 0;
  center().addObserver(&observer, "outer", [&](const Notification&) {
    heard.emplace_back("before");
    post("inner");
    heard.emplace_back("after");
  });
  center().addObserver(&observer, "inner",
                       [&](const Notification&) { heard.emplace_back("inner"); });
  post("outer");
  EXPECT_THAT(heard, ElementsAre("before", "inner", "after"));
  center().removeObserver(&observer);
}

}  // namespace
}  // namespace contract
