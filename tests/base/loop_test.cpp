// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "hosts/linux/base/dispatch.h"
#include "hosts/linux/base/run_loop.h"
#include "tests/base/soon.h"

namespace linux_host {
namespace {

using ::testing::ElementsAre;

// A loop with a time limit, so that a bug fails the test instead of hanging it.
class LoopTest : public ::testing::Test {
 protected:
  LoopTest() {
    watchdog_ = loop_.scheduledTimer(20.0, {}, false, [this](const platform::TimerPtr&) {
      ADD_FAILURE() << "nothing ended the loop";
      loop_.quit();
    });
  }
  ~LoopTest() override { watchdog_->invalidate(); }
  MainLoop loop_;

 private:
  platform::TimerPtr watchdog_;
};

TEST_F(LoopTest, RunsByAToolkitsStepOnceThereIsOneAndEndsItsInnerLoops) {
  int steps = 0;
  bool isInner = false;
  loop_.performAfterDelay(0, [&] {
    loop_.runBy(
        [&] {
          ++steps;
          g_main_context_iteration(nullptr, TRUE);
        },
        [&] { isInner = false; });
    loop_.performAfterDelay(0, [&] {
      isInner = true;
      loop_.performAfterDelay(0, [&] { loop_.quit(); });
      while (isInner) g_main_context_iteration(nullptr, TRUE);
    });
  });
  loop_.run();
  EXPECT_GE(steps, 1);
  EXPECT_FALSE(isInner);
}

using TimerTest = LoopTest;

TEST_F(TimerTest, OneShotFiresOnceAfterItsInterval) {
  int fired = 0;
  const gint64 start_us = g_get_monotonic_time();
  const auto timer =
      loop_.scheduledTimer(0.02, std::string("info"), false, [&](const platform::TimerPtr& firing) {
        ++fired;
        EXPECT_TRUE(firing->isValid());
        EXPECT_EQ(std::any_cast<std::string>(firing->userInfo()), "info");
        EXPECT_GE(g_get_monotonic_time() - start_us, 20000);
        loop_.performAfterDelay(0.05, [&] { loop_.quit(); });
      });
  loop_.run();
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(timer->isValid());
}

TEST_F(TimerTest, RepeatingTimerSkipsFiringsThatABusyLoopMissed) {
  const gint64 start_us = g_get_monotonic_time();
  std::vector<gint64> at_us;
  const auto timer = loop_.scheduledTimer(0.05, {}, true, [&](const platform::TimerPtr& firing) {
    at_us.push_back(g_get_monotonic_time() - start_us);
    // Stays busy beyond two further firings.
    while (at_us.size() == 1 && g_get_monotonic_time() - start_us < 180000) {
    }
    if (at_us.size() == 3) {
      firing->invalidate();
      loop_.quit();
    }
  });
  loop_.run();
  ASSERT_EQ(at_us.size(), 3U);
  EXPECT_GE(at_us[1], 200000);
  EXPECT_GE(at_us[2], 250000);
  EXPECT_FALSE(timer->isValid());
}

TEST_F(TimerTest, KeepsWhatItsActionHoldsUntilItIsInvalidated) {
  const auto held = std::make_shared<int>(1);
  auto timer = loop_.scheduledTimer(3600.0, {}, true, [held](const platform::TimerPtr&) {});
  std::weak_ptr<platform::Timer> weak = timer;
  EXPECT_EQ(held.use_count(), 2);
  timer.reset();
  ASSERT_FALSE(weak.expired()) << "the loop owns it";
  weak.lock()->invalidate();
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_TRUE(weak.expired());
}

TEST_F(TimerTest, MayInvalidateItselfAndOthersWhileItFires) {
  platform::TimerPtr other;
  bool otherFired = false;
  loop_.scheduledTimer(0.01, {}, true, [&](const platform::TimerPtr& firing) {
    firing->invalidate();
    firing->invalidate();
    other->invalidate();
    loop_.performAfterDelay(0.05, [&] { loop_.quit(); });
  });
  other =
      loop_.scheduledTimer(0.02, {}, false, [&](const platform::TimerPtr&) { otherFired = true; });
  loop_.run();
  EXPECT_FALSE(otherFired);
}

// What the core schedules while an alert waits.

class CoreTimerTest : public LoopTest {
 protected:
  void runUntilQuiet() {
    loop_.performAfterDelay(0.05, [this] { loop_.quit(); });
    loop_.run();
  }
  CoreRunLoop core_;
  std::vector<std::string> fired_;
};

// An alert that a timer closes would go unread.
TEST_F(CoreTimerTest, IsHeldWhileAnAlertWaitsAndFiresOnceAfterwards) {
  core_.hold();
  core_.hold();
  core_.performAfterDelay(0, [&] { fired_.emplace_back("first"); });
  const auto again = core_.scheduledTimer(
      0.001, {}, true, [&](const platform::TimerPtr&) { fired_.emplace_back("again"); });
  loop_.performAfterDelay(0, [&] { fired_.emplace_back("host"); });
  loop_.performAfterDelay(0.02, [&] {
    EXPECT_THAT(fired_, ElementsAre("host"));
    core_.release();
    EXPECT_THAT(fired_, ElementsAre("host"));
  });
  loop_.performAfterDelay(0.04, [&] {
    EXPECT_THAT(fired_, ElementsAre("host")) << "one alert is still there";
    core_.release();
    EXPECT_THAT(fired_, ElementsAre("host")) << "not from within";
    core_.performAfterDelay(0, [&] {
      again->invalidate();
      loop_.quit();
    });
  });
  loop_.run();
  EXPECT_THAT(fired_, ElementsAre("host", "first", "again"));
}

TEST_F(CoreTimerTest, IsNotFiredIfInvalidatedMeanwhile) {
  core_.hold();
  auto timer = core_.scheduledTimer(
      0, {}, false, [&](const platform::TimerPtr&) { fired_.emplace_back("late"); });
  loop_.performAfterDelay(0.01, [&] {
    EXPECT_TRUE(timer->isValid());
    timer->invalidate();
    timer.reset();
    core_.release();
  });
  runUntilQuiet();
  EXPECT_TRUE(fired_.empty());
}

TEST_F(CoreTimerTest, IsHeldAgainByTheNextAlert) {
  core_.hold();
  core_.performAfterDelay(0, [&] { fired_.emplace_back("late"); });
  loop_.performAfterDelay(0.01, [&] {
    core_.release();
    core_.hold();
  });
  runUntilQuiet();
  EXPECT_TRUE(fired_.empty());
  core_.release();
}

TEST_F(LoopTest, PerformsActionsAfterTheCurrentEvent) {
  std::vector<int> order;
  loop_.performAfterDelay(0, [&] {
    loop_.performAfterDelay(0, [&] {
      order.push_back(2);
      loop_.quit();
    });
    order.push_back(1);
  });
  loop_.run();
  EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST_F(LoopTest, DoesNotRunWhenQuitCameFirst) {
  bool hasRun = false;
  const auto timer =
      loop_.scheduledTimer(0, {}, false, [&](const platform::TimerPtr&) { hasRun = true; });
  loop_.quit();
  loop_.run();
  EXPECT_FALSE(hasRun);
  timer->invalidate();
}

TEST_F(LoopTest, MainQueueRunsItemsOfAllThreadsInTheirOrderOnTheMainThread) {
  DispatchThreads dispatch;
  const auto queue = dispatch.mainQueue();
  const auto mainThread = std::this_thread::get_id();
  constexpr int kItems = 2000;
  std::vector<int> first;
  std::vector<int> second;
  const auto feed = [&](std::vector<int>* into) {
    for (int i = 0; i < kItems; ++i) {
      queue->async([&, into, i] {
        EXPECT_EQ(std::this_thread::get_id(), mainThread);
        into->push_back(i);
        if (first.size() + second.size() == 2 * kItems) loop_.quit();
      });
    }
  };
  std::thread one(feed, &first);
  std::thread two(feed, &second);
  loop_.run();
  one.join();
  two.join();
  EXPECT_EQ(first.size(), kItems);
  EXPECT_TRUE(std::is_sorted(first.begin(), first.end()));
  EXPECT_TRUE(std::is_sorted(second.begin(), second.end()));
}

TEST_F(LoopTest, MainQueueGoesOnInALoopThatAnItemRuns) {
  DispatchThreads dispatch;
  bool inner = false;
  dispatch.mainQueue()->async([&] {
    while (!inner) g_main_context_iteration(nullptr, TRUE);
    loop_.quit();
  });
  dispatch.mainQueue()->async([&] { inner = true; });
  loop_.run();
  EXPECT_TRUE(inner);
}

TEST(SerialQueueTest, RunsItsItemsOneAtATimeInOrderOnAThreadOfItsName) {
  DispatchThreads dispatch;
  const auto queue = dispatch.createSerialQueue("com.example.EncodeQueue");
  std::vector<int> order;
  std::string name(16, '\0');
  for (int i = 0; i < 1000; ++i) queue->async([&order, i] { order.push_back(i); });
  queue->async([&name] { pthread_getname_np(pthread_self(), name.data(), name.size()); });
  dispatch.waitUntilIdle();
  EXPECT_EQ(order.size(), 1000U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_STREQ(name.c_str(), "EncodeQueue");
  EXPECT_EQ(queue->label(), "com.example.EncodeQueue");
}

TEST(SerialQueueTest, RunsItemsQueuedBeforeItsLastReferenceWent) {
  std::atomic<int> ran{0};
  {
    DispatchThreads dispatch;
    auto queue = dispatch.createSerialQueue("q");
    std::atomic<bool> go{false};
    queue->async([&go] { go.wait(false); });
    // The last reference is released on the queue's own thread.
    queue->async([&ran, held = queue] { ++ran; });
    queue->async([&ran] { ++ran; });
    queue.reset();
    go = true;
    go.notify_all();
    dispatch.waitUntilIdle();
    EXPECT_EQ(ran, 2);
  }
  EXPECT_EQ(ran, 2);
}

TEST(SerialQueueTest, IsIdleOnlyWhenWorkHandedFromQueueToQueueIsDone) {
  DispatchThreads dispatch;
  const auto first = dispatch.createSerialQueue("first");
  const auto second = dispatch.createSerialQueue("second");
  std::atomic<int> done{0};
  for (int i = 0; i < 200; ++i) {
    first->async([&] { second->async([&] { ++done; }); });
  }
  dispatch.waitUntilIdle();
  EXPECT_EQ(done, 200);
}

TEST(SerialQueueTest, ReleasesWhatAnItemHoldsBeforeItCountsAsDone) {
  DispatchThreads dispatch;
  const auto queue = dispatch.createSerialQueue("q");
  auto held = std::make_shared<int>(1);
  std::weak_ptr<int> weak = held;
  queue->async([held = std::move(held)] {});
  dispatch.waitUntilIdle();
  EXPECT_TRUE(weak.expired());
}

std::ptrdiff_t ownThreads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

TEST(SerialQueueTest, EndsTheThreadsOfQueuesThatAreGone) {
  DispatchThreads dispatch;
  const std::ptrdiff_t before = ownThreads();
  std::atomic<int> ran{0};
  for (int i = 0; i < 500; ++i) dispatch.createSerialQueue("short")->async([&] { ++ran; });
  dispatch.waitUntilIdle();
  EXPECT_EQ(ran, 500);
  EXPECT_TRUE(base_test::soon([&] { return ownThreads() <= before; })) << ownThreads();
}

TEST(PendingWorkTest, TellsWhenTheLastTokenIsGone) {
  PendingWork pending;
  int told = 0;
  pending.whenIdle([&] { ++told; });
  EXPECT_EQ(told, 1) << "nothing is under way";
  {
    const PendingWork::Token first(pending);
    PendingWork::Token second(pending);
    pending.whenIdle([&] { ++told; });
    { const PendingWork::Token moved(std::move(second)); }
    EXPECT_EQ(told, 1);
  }
  EXPECT_EQ(told, 2);
  pending.waitUntilIdle();
}

}  // namespace
}  // namespace linux_host
