// SPDX-License-Identifier: MIT
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/dispatch.h promises.

namespace contract {
namespace {

class DispatchContract : public ContractTest {
 protected:
  platform::Dispatch& dispatch() { return host().dispatch; }

  // What items append, from whichever thread they run on.
  void add(int item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(item);
  }
  std::vector<int> items() {
    const std::lock_guard lock(mutex_);
    return items_;
  }
  bool haveRun(std::size_t count) {
    return rig->runUntil([&] { return items().size() >= count; });
  }

 private:
  std::mutex mutex_;
  std::vector<int> items_;
};

TEST_F(DispatchContract, TheMainQueueRunsItsItemsFromTheLoopInTheirOrder) {
  const std::thread::id self = std::this_thread::get_id();
  for (int i = 0; i < 3; ++i) {
    dispatch().mainQueue()->async([&, i] {
      EXPECT_EQ(std::this_thread::get_id(), self);
      add(i);
    });
  }
  EXPECT_TRUE(items().empty()) << "an item ran before the loop had its turn";
  ASSERT_TRUE(haveRun(3));
  EXPECT_EQ(items(), (std::vector{0, 1, 2}));
}

TEST_F(DispatchContract, AnItemThatAnItemQueuesRunsAfterIt) {
  const auto queue = dispatch().mainQueue();
  queue->async([&] {
    queue->async([&] { add(2); });
    add(1);
  });
  ASSERT_TRUE(haveRun(2));
  EXPECT_EQ(items(), (std::vector{1, 2}));
}

TEST_F(DispatchContract, ASerialQueueRunsItsItemsOneAtATimeInTheirOrder) {
  const auto queue = dispatch().createSerialQueue("com.vantrel.contract");
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(queue->label(), "com.vantrel.contract");
  std::atomic<int> atOnce{0};
  std::atomic<bool> overlapped{false};
  std::vector<int> expected;
  for (int i = 0; i < 100; ++i) {
    expected.push_back(i);
    queue->async([&, i] {
      if (atOnce.fetch_add(1) != 0) overlapped = true;
      add(i);
      atOnce.fetch_sub(1);
    });
  }
  ASSERT_TRUE(haveRun(100));
  EXPECT_EQ(items(), expected);
  EXPECT_FALSE(overlapped);
}

TEST_F(DispatchContract, WorkGoesFromAQueueToTheMainQueueAndBack) {
  const auto queue = dispatch().createSerialQueue("queue");
  ASSERT_NE(queue, nullptr);
  const auto main = dispatch().mainQueue();
  queue->async([&, queue] {
    add(1);
    main->async([&, queue] {
      add(2);
      queue->async([&] { add(3); });
    });
  });
  ASSERT_TRUE(haveRun(3));
  EXPECT_EQ(items(), (std::vector{1, 2, 3}));
}

TEST_F(DispatchContract, WhatWasQueuedStillRunsWhenTheQueueIsLetGo) {
  auto queue = dispatch().createSerialQueue("queue");
  ASSERT_NE(queue, nullptr);
  for (int i = 0; i < 10; ++i) queue->async([&, i] { add(i); });
  queue.reset();
  ASSERT_TRUE(haveRun(10));
}

TEST_F(DispatchContract, QueuesOfOneLabelAreTwo) {
  const auto first = dispatch().createSerialQueue("same");
  const auto second = dispatch().createSerialQueue("same");
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  first->async([&] { add(1); });
  second->async([&] { add(1); });
  EXPECT_TRUE(haveRun(2));
}

TEST_F(DispatchContract, AnItemIsLetGoWhenItHasRun) {
  const auto held = std::make_shared<int>(1);
  const auto queue = dispatch().createSerialQueue("queue");
  ASSERT_NE(queue, nullptr);
  queue->async([held] {});
  dispatch().mainQueue()->async([held] {});
  EXPECT_TRUE(rig->runUntil([&] { return held.use_count() == 1; }));
}

TEST_F(DispatchContract, AnEmptyItemIsDropped) {
  const auto queue = dispatch().createSerialQueue("queue");
  ASSERT_NE(queue, nullptr);
  queue->async(nullptr);
  queue->async([&] { add(1); });
  dispatch().mainQueue()->async(nullptr);
  dispatch().mainQueue()->async([&] { add(2); });
  EXPECT_TRUE(haveRun(2));
}

}  // namespace
}  // namespace contract
