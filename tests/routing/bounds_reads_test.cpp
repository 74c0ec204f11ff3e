// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <utility>

// What a reader of the ring's bounds does when the writer acts between two of its reads. No second
// thread can be made to act exactly there. So the ring is compiled here with atomics that call the
// test at each load.

namespace bounds_test {
inline std::function<void(const void* atomic)> onLoad;
}

// Within record_audio, `std` now means this namespace first.
namespace record_audio::std {
using namespace ::std;

template <typename T>
class atomic {
 public:
  static constexpr bool is_always_lock_free = true;
  atomic() = default;
  constexpr atomic(T value) : value_(value) {}
  T load(memory_order = memory_order_seq_cst) const {
    if (bounds_test::onLoad) bounds_test::onLoad(this);
    return value_;
  }
  void store(T value, memory_order = memory_order_seq_cst) { value_ = value; }

 private:
  T value_{};
};

}  // namespace record_audio::std

#include "routing/ring_buffer.cpp"  // NOLINT(bugprone-suspicious-include)

namespace bounds_test {
namespace {

using record_audio::kRingBufferSlotCount;
using record_audio::RingBuffer;
using record_audio::RingBufferErrorBoundsUnstable;
using record_audio::RingBufferErrorNone;
using record_audio::RingBufferTimeBounds;

constexpr int kTries = 8;

class BoundsReadsTest : public testing::Test {
 protected:
  BoundsReadsTest() {
    ring_.setTimeBounds(10, 20);
    slot_ = &ring_.timeBounds[ring_.timeBoundsIndex.load() % kRingBufferSlotCount];
    disturbed_ = ring_.timeBoundsIndex.load() + kRingBufferSlotCount;
    slot_->updateCounter.store(disturbed_);
  }
  ~BoundsReadsTest() override { onLoad = nullptr; }

  // From the `calm`-th read of the bounds on, they are 30 to 40 and match the index.
  void becomeStableAt(int calm) {
    onLoad = [this, calm](const void* atomic) {
      if (atomic == &slot_->startTime && ++reads_ == calm) {
        slot_->startTime.store(30);
        slot_->endTime.store(40);
        slot_->updateCounter.store(disturbed_ - kRingBufferSlotCount);
      }
    };
  }

  RingBuffer ring_;
  RingBufferTimeBounds* slot_ = nullptr;
  std::uint32_t disturbed_ = 0;
  int reads_ = 0;
};

class CalmAfterTest : public BoundsReadsTest, public testing::WithParamInterface<int> {};

TEST_P(CalmAfterTest, InstabilityThatEndsWithinEightReadsDoesNoHarm) {
  becomeStableAt(GetParam());
  std::int64_t start = 0;
  std::int64_t end = 0;
  EXPECT_EQ(ring_.getTimeBounds(start, end), RingBufferErrorNone);
  EXPECT_EQ(start, 30);
  EXPECT_EQ(end, 40);
  EXPECT_EQ(reads_, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Reads, CalmAfterTest, testing::Range(1, kTries + 1));

TEST_F(BoundsReadsTest, ThereIsNoNinthRead) {
  becomeStableAt(kTries + 1);
  std::int64_t start = 0;
  std::int64_t end = 0;
  EXPECT_EQ(ring_.getTimeBounds(start, end), RingBufferErrorBoundsUnstable);
  EXPECT_EQ(reads_, kTries);
  EXPECT_EQ(start, 10) << "what was read last";
  EXPECT_EQ(end, 20);
}

TEST_F(BoundsReadsTest, EachReadTakesTheCounterAfterBothBounds) {
  std::vector<const void*> loads;
  onLoad = [&](const void* atomic) { loads.push_back(atomic); };
  std::int64_t start = 0;
  std::int64_t end = 0;
  EXPECT_EQ(ring_.getTimeBounds(start, end), RingBufferErrorBoundsUnstable);
  std::vector<const void*> expected{&ring_.timeBoundsIndex};
  for (int i = 0; i < kTries; ++i) {
    expected.insert(expected.end(), {&slot_->startTime, &slot_->endTime, &slot_->updateCounter});
  }
  EXPECT_EQ(loads, expected);
}

}  // namespace
}  // namespace bounds_test
