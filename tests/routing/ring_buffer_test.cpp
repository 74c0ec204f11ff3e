// SPDX-License-Identifier: MIT
#include "routing/ring_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <thread>
#include <utility>
#include <vector>

#include "tests/routing/planar_block.h"
#include "tests/routing/unstable_bounds.h"

namespace record_audio {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

// One-byte samples make contents easy to read. Two channels, unless a test says otherwise.
using Block = routing_test::PlanarBlock<std::uint8_t>;

constexpr std::uint32_t kCapacity = 16;
constexpr std::uint8_t kUntouched = 0xEE;

std::vector<std::uint8_t> numbers(int first, int count) {
  std::vector<std::uint8_t> result;
  for (int i = 0; i < count; ++i) result.push_back(static_cast<std::uint8_t>(first + i));
  return result;
}

class RingBufferTest : public testing::Test {
 protected:
  RingBufferTest() { ring.allocate(2, 1, kCapacity); }

  // Stores frames whose samples are their own times. The second channel's are 100 higher.
  RingBufferError storeTimes(std::int64_t start, std::uint32_t count) {
    Block block(2, count);
    for (std::uint32_t i = 0; i < count; ++i) {
      block.plane(0)[i] = static_cast<std::uint8_t>(start + i);
      block.plane(1)[i] = static_cast<std::uint8_t>(start + i + 100);
    }
    return ring.store(block.list(), count, start);
  }

  std::pair<std::int64_t, std::int64_t> bounds() const {
    std::pair<std::int64_t, std::int64_t> result;
    EXPECT_EQ(ring.getTimeBounds(result.first, result.second), RingBufferErrorNone);
    return result;
  }

  RingBuffer ring;
};

using Bounds = std::pair<std::int64_t, std::int64_t>;

void expectNoStorage(const RingBuffer& ring) {
  EXPECT_EQ(ring.buffers, nullptr);
  EXPECT_EQ(ring.channelCount, 0);
  EXPECT_EQ(ring.capacityFrames, 0U);
  EXPECT_EQ(ring.capacityBytes, 0U);
}

TEST(RingBufferLifecycle, StartsWithoutStorage) {
  expectNoStorage(RingBuffer());
}

TEST(RingBufferLifecycle, WithoutStorageRefusesStoresAndFetchesSilence) {
  RingBuffer ring;
  Block block(2, 4, kUntouched);
  EXPECT_EQ(ring.store(block.list(), 4, 0), RingBufferErrorTooManyFrames);
  EXPECT_EQ(ring.fetch(block.list(), 4, 0), RingBufferErrorNone);
  EXPECT_THAT(block.plane(0), Each(0));
  EXPECT_THAT(block.plane(1), Each(0));
}

TEST(RingBufferLifecycle, RaisesTheCapacityToAPowerOfTwo) {
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> raised{
      {1, 1}, {2, 2}, {3, 4}, {4096, 4096}, {4097, 8192}, {20 * 512, 16384}};
  for (const auto& [asked, got] : raised) {
    RingBuffer ring;
    ring.allocate(1, 4, asked);
    EXPECT_EQ(ring.capacityFrames, got);
    EXPECT_EQ(ring.capacityFramesMask, got - 1);
    EXPECT_EQ(ring.capacityBytes, got * 4);
  }
}

TEST(RingBufferLifecycle, LaysTheChannelsBehindThePointerTableInOneZeroedAllocation) {
  RingBuffer ring;
  ring.allocate(3, 4, 8);
  ASSERT_NE(ring.buffers, nullptr);
  std::byte* const start = reinterpret_cast<std::byte*>(ring.buffers);
  for (std::int32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(ring.buffers[i], start + 3 * 8 + i * 32);
    EXPECT_THAT(std::vector<std::byte>(ring.buffers[i], ring.buffers[i] + 32), Each(std::byte{0}));
  }
}

// The routing benchmark shows what this is worth.
TEST(RingBufferLifecycle, BeginsTheFirstChannelAtACacheLine) {
  for (const std::int32_t channels : {1, 2, 3, 8}) {
    RingBuffer ring;
    ring.allocate(channels, 4, 16384);
    ASSERT_NE(ring.buffers, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(ring.buffers[0]) % 64, 0U)
        << channels << " channels";
  }
}

TEST(RingBufferLifecycle, AllocatesWithAllSlotsAndTheIndexAtZero) {
  RingBuffer ring;
  for (std::uint32_t i = 0; i < kRingBufferSlotCount; ++i) ring.setTimeBounds(5, 6);
  ring.allocate(1, 4, 8);
  EXPECT_EQ(ring.timeBoundsIndex.load(), 0U);
  for (const RingBufferTimeBounds& slot : ring.timeBounds) {
    EXPECT_EQ(slot.startTime.load(), 0);
    EXPECT_EQ(slot.endTime.load(), 0);
    EXPECT_EQ(slot.updateCounter.load(), 0U);
  }
}

TEST(RingBufferLifecycle, DeallocatesToAnEmptyRingAndMayDoSoTwice) {
  RingBuffer ring;
  ring.allocate(2, 4, 8);
  ring.deallocate();
  ring.deallocate();
  expectNoStorage(ring);
}

TEST(RingBufferLifecycle, AFetchAfterDeallocationIsSilence) {
  RingBuffer ring;
  ring.allocate(2, 1, kCapacity);
  Block block(2, 8, kUntouched);
  ring.store(block.list(), 4, 0);
  ring.deallocate();
  EXPECT_EQ(ring.fetch(block.list(), 8, 0), RingBufferErrorNone);
  EXPECT_THAT(block.plane(0), Each(0));
  EXPECT_EQ(block.buffer(0).mDataByteSize, 8U);
}

TEST(RingBufferLifecycle, HoldsNothingWhenTheStorageDoesNotFitIntoThirtyTwoBits) {
  struct Size {
    std::int32_t channels;
    std::uint32_t bytesPerFrame;
    std::uint32_t capacity;
  };
  for (const Size& tooMuch :
       {Size{1, 4, 0x80000001U}, Size{1, 4, 0x40000000U}, Size{4, 4, 0x10000000U},
        Size{0, 4, 0x40000000U}, Size{1, 0, 0x80000001U}, Size{4, 0x80000000U, 0x80000000U},
        Size{-1, 4, 16}, Size{std::numeric_limits<std::int32_t>::min(), 4, 16}, Size{1, 4, 0}}) {
    RingBuffer ring;
    ring.allocate(tooMuch.channels, tooMuch.bytesPerFrame, tooMuch.capacity);
    EXPECT_EQ(ring.buffers, nullptr);
    routing_test::PlanarBlock<float> block(1, 4, 1.0F);
    EXPECT_EQ(ring.store(block.list(), 4, 0), RingBufferErrorTooManyFrames);
    EXPECT_EQ(ring.fetch(block.list(), 4, 0), RingBufferErrorNone);
  }
}

TEST(RingBufferLifecycle, WorksWithOneFrame) {
  RingBuffer ring;
  ring.allocate(1, 1, 1);
  Block block(1, 1, 7);
  EXPECT_EQ(ring.store(block.list(), 1, 5), RingBufferErrorNone);
  Block out(1, 1);
  EXPECT_EQ(ring.fetch(out.list(), 1, 5), RingBufferErrorNone);
  EXPECT_EQ(out.plane(0)[0], 7);
}

TEST_F(RingBufferTest, StoringNoFramesLeavesTheBoundsAlone) {
  storeTimes(0, 4);
  const std::uint32_t index = ring.timeBoundsIndex.load();
  EXPECT_EQ(storeTimes(100, 0), RingBufferErrorNone);
  EXPECT_EQ(bounds(), Bounds(0, 4));
  EXPECT_EQ(ring.timeBoundsIndex.load(), index);
}

TEST_F(RingBufferTest, RefusesOneFrameMoreThanTheCapacityAndChangesNothing) {
  storeTimes(0, 4);
  const std::uint32_t index = ring.timeBoundsIndex.load();
  EXPECT_EQ(storeTimes(4, kCapacity + 1), RingBufferErrorTooManyFrames);
  EXPECT_EQ(static_cast<int>(RingBufferErrorTooManyFrames), 3);
  EXPECT_EQ(bounds(), Bounds(0, 4));
  EXPECT_EQ(ring.timeBoundsIndex.load(), index);
}

TEST_F(RingBufferTest, TakesABlockOfExactlyTheCapacityAlignedOrNot) {
  for (const std::int64_t start : {0, 16, 37}) {
    EXPECT_EQ(storeTimes(start, kCapacity), RingBufferErrorNone);
    EXPECT_EQ(bounds(), Bounds(start, start + kCapacity));
    Block out(2, kCapacity);
    EXPECT_EQ(ring.fetch(out.list(), kCapacity, start), RingBufferErrorNone);
    EXPECT_EQ(out.plane(0), numbers(static_cast<int>(start), kCapacity));
    EXPECT_EQ(out.plane(1), numbers(static_cast<int>(start) + 100, kCapacity));
  }
}

TEST_F(RingBufferTest, KeepsTheStartUntilTheCapacityIsReachedThenGivesUpTheOldest) {
  for (int i = 0; i < 4; ++i) {
    storeTimes(i * 4, 4);
    EXPECT_EQ(bounds(), Bounds(0, (i + 1) * 4));
  }
  for (int i = 4; i < 20; ++i) {
    storeTimes(i * 4, 4);
    EXPECT_EQ(bounds(), Bounds((i + 1) * 4 - static_cast<int>(kCapacity), (i + 1) * 4));
  }
}

TEST_F(RingBufferTest, PublishesTheLossOfTheOldestBeforeTheNewEnd) {
  storeTimes(0, 16);
  const std::uint32_t index = ring.timeBoundsIndex.load();
  storeTimes(16, 4);
  EXPECT_EQ(ring.timeBoundsIndex.load(), index + 2);
  const RingBufferTimeBounds& first = ring.timeBounds[(index + 1) & 31];
  EXPECT_EQ(Bounds(first.startTime.load(), first.endTime.load()), Bounds(4, 16));
  EXPECT_EQ(first.updateCounter.load(), index + 1);
}

// A reader is disturbed when 32 bounds are published while it reads; so none is published in vain.
TEST_F(RingBufferTest, PublishesOnceForABlockUntilSomethingIsLost) {
  for (int i = 0; i < 4; ++i) storeTimes(i * 4, 4);
  EXPECT_EQ(ring.timeBoundsIndex.load(), 4U);
  storeTimes(16, 4);
  EXPECT_EQ(ring.timeBoundsIndex.load(), 6U);
}

TEST_F(RingBufferTest, StoresOnlyTheFramesAskedForOfALongerList) {
  Block in(2, 8, 5);
  ring.store(in.list(), 3, 2);
  const auto at = [&](int i) { return std::to_integer<int>(ring.buffers[0][i]); };
  EXPECT_THAT((std::vector{at(1), at(2), at(4), at(5)}), ElementsAre(0, 5, 5, 0));
}

TEST_F(RingBufferTest, ABlockBeforeTheEndLeavesExactlyThatBlock) {
  storeTimes(0, 12);
  storeTimes(6, 4);
  EXPECT_EQ(bounds(), Bounds(6, 10));
  storeTimes(2, 3);
  EXPECT_EQ(bounds(), Bounds(2, 5));
}

TEST_F(RingBufferTest, ZeroesAGapSoThatNoStaleAudioIsHeard) {
  storeTimes(1, 16);
  storeTimes(20, 4);
  EXPECT_EQ(bounds(), Bounds(8, 24));
  Block out(2, 16, kUntouched);
  ring.fetch(out.list(), 16, 8);
  EXPECT_THAT(out.plane(0), ElementsAre(8, 9, 10, 11, 12, 13, 14, 15, 16, 0, 0, 0, 20, 21, 22, 23));
  EXPECT_EQ(out.plane(1)[8], 116);
  EXPECT_EQ(out.plane(1)[9], 0);
}

TEST_F(RingBufferTest, ZeroesAGapThatWrapsInBothChannels) {
  storeTimes(0, 14);
  storeTimes(19, 2);  // the gap from 14 to 19 is at both ends of the storage
  EXPECT_EQ(bounds(), Bounds(5, 21));
  Block out(2, 16, kUntouched);
  ring.fetch(out.list(), 16, 5);
  EXPECT_THAT(out.plane(0), ElementsAre(5, 6, 7, 8, 9, 10, 11, 12, 13, 0, 0, 0, 0, 0, 19, 20));
  EXPECT_THAT(std::vector<std::uint8_t>(out.plane(1).begin() + 9, out.plane(1).begin() + 14),
              Each(0));
}

TEST_F(RingBufferTest, AGapWiderThanTheCapacityLeavesSilenceBeforeTheBlock) {
  storeTimes(0, 16);
  storeTimes(1000, 4);
  EXPECT_EQ(bounds(), Bounds(988, 1004));
  Block out(2, 16, kUntouched);
  ring.fetch(out.list(), 16, 988);
  EXPECT_THAT(std::vector<std::uint8_t>(out.plane(0).begin(), out.plane(0).begin() + 12), Each(0));
  EXPECT_EQ(out.plane(0)[12], static_cast<std::uint8_t>(1000));
}

TEST_F(RingBufferTest, AFetchOutsideTheRangeIsSilenceAndKeepsTheByteSizes) {
  storeTimes(20, 16);
  for (const std::int64_t start : {0, 12, 36, 500}) {
    Block out(2, 8, kUntouched);
    EXPECT_EQ(ring.fetch(out.list(), 8, start), RingBufferErrorNone);
    EXPECT_THAT(out.plane(0), Each(0));
    EXPECT_THAT(out.plane(1), Each(0));
    EXPECT_EQ(out.buffer(0).mDataByteSize, 8U);
    EXPECT_EQ(out.buffer(1).mDataByteSize, 8U);
  }
}

TEST_F(RingBufferTest, SilenceCoversOnlyTheFramesAskedFor) {
  storeTimes(20, 16);
  Block out(2, 8, kUntouched);
  ring.fetch(out.list(), 5, 0);
  EXPECT_THAT(out.plane(0), ElementsAre(0, 0, 0, 0, 0, kUntouched, kUntouched, kUntouched));
}

// The size tells the caller how much came from the ring.
TEST_F(RingBufferTest, AFetchFromBeforeTheRangeGetsLeadingZerosAndTheByteSizeOfWhatWasHeld) {
  storeTimes(20, 16);
  Block out(2, 8, kUntouched);
  EXPECT_EQ(ring.fetch(out.list(), 8, 17), RingBufferErrorNone);
  EXPECT_THAT(out.plane(0), ElementsAre(0, 0, 0, 20, 21, 22, 23, 24));
  EXPECT_EQ(out.buffer(0).mDataByteSize, 5U);
  EXPECT_EQ(out.buffer(1).mDataByteSize, 5U);
}

TEST_F(RingBufferTest, AFetchBeyondTheEndGetsTrailingZerosAndTheByteSizeOfWhatWasHeld) {
  storeTimes(20, 16);
  Block out(2, 8, kUntouched);
  EXPECT_EQ(ring.fetch(out.list(), 8, 31), RingBufferErrorNone);
  EXPECT_THAT(out.plane(0), ElementsAre(31, 32, 33, 34, 35, 0, 0, 0));
  EXPECT_THAT(out.plane(1), ElementsAre(131, 132, 133, 134, 135, 0, 0, 0));
  EXPECT_EQ(out.buffer(0).mDataByteSize, 5U);
}

TEST_F(RingBufferTest, AFetchAroundAShortRangeGetsZerosOnBothSides) {
  storeTimes(0, 4);
  storeTimes(2, 3);
  Block out(2, 8, kUntouched);
  ring.fetch(out.list(), 8, 0);
  EXPECT_THAT(out.plane(0), ElementsAre(0, 0, 2, 3, 4, 0, 0, 0));
  EXPECT_EQ(out.buffer(1).mDataByteSize, 3U);
}

TEST_F(RingBufferTest, ANegativeFetchReadsFromZero) {
  storeTimes(0, 16);
  Block out(2, 4, kUntouched);
  EXPECT_EQ(ring.fetch(out.list(), 4, -9), RingBufferErrorNone);
  EXPECT_THAT(out.plane(0), ElementsAre(0, 1, 2, 3));
}

// A reader begins at 0; only a writer may begin earlier.
TEST_F(RingBufferTest, FramesOfNegativeTimesAreHeldButNotFetched) {
  storeTimes(-6, 8);
  EXPECT_EQ(bounds(), Bounds(-6, 2));
  Block out(2, 4, kUntouched);
  ring.fetch(out.list(), 4, -6);
  EXPECT_THAT(out.plane(0), ElementsAre(0, 1, 0, 0));
  EXPECT_EQ(out.buffer(0).mDataByteSize, 2U);
}

TEST_F(RingBufferTest, FetchingNoFramesTouchesNothing) {
  storeTimes(0, 8);
  Block out(2, 4, kUntouched);
  EXPECT_EQ(ring.fetch(out.list(), 0, 0), RingBufferErrorNone);
  EXPECT_THAT(out.plane(0), Each(kUntouched));
  EXPECT_EQ(out.buffer(0).mDataByteSize, 4U);
}

TEST_F(RingBufferTest, FetchingNoFramesSucceedsEvenWithUnstableBounds) {
  storeTimes(0, 8);
  routing_test::makeBoundsUnstable(ring);
  Block out(2, 4);
  EXPECT_EQ(ring.fetch(out.list(), 0, 0), RingBufferErrorNone);
}

// Offsets into the list have 31 bits.
TEST_F(RingBufferTest, AFetchOfMoreThanAListCanHoldStaysInTheList) {
  constexpr std::int64_t kFar = std::int64_t{1} << 31;
  storeTimes(kFar - 8, 16);
  Block out(2, 8, kUntouched);
  EXPECT_EQ(ring.fetch(out.list(), std::numeric_limits<std::uint32_t>::max(), 0),
            RingBufferErrorNone);
  EXPECT_THAT(out.plane(0), Each(0));
  EXPECT_THAT(out.plane(1), Each(0));
}

TEST_F(RingBufferTest, AFetchEndsItsWalkAtABufferSmallerThanTheOffsetInUse) {
  RingBuffer three;
  three.allocate(3, 1, kCapacity);
  Block in(3, 16, 9);
  three.store(in.list(), 16, 20);
  Block out(3, 8, kUntouched);
  out.buffer(1).mDataByteSize = 2;  // the copy starts at byte 3
  three.fetch(out.list(), 8, 17);
  EXPECT_THAT(out.plane(0), ElementsAre(0, 0, 0, 9, 9, 9, 9, 9));
  EXPECT_THAT(out.plane(1), ElementsAre(0, 0, kUntouched, kUntouched, kUntouched, kUntouched,
                                        kUntouched, kUntouched));
  EXPECT_THAT(out.plane(2),
              ElementsAre(0, 0, 0, kUntouched, kUntouched, kUntouched, kUntouched, kUntouched));
  EXPECT_EQ(out.buffer(1).mDataByteSize, 5U);
}

TEST_F(RingBufferTest, AFetchGoesOnBehindABufferThatEndsAtTheOffsetInUse) {
  storeTimes(20, 16);
  Block out(2, 8, kUntouched);
  out.buffer(0).mDataByteSize = 3;  // the copy starts at byte 3
  ring.fetch(out.list(), 8, 17);
  EXPECT_THAT(out.plane(0),
              ElementsAre(0, 0, 0, kUntouched, kUntouched, kUntouched, kUntouched, kUntouched));
  EXPECT_THAT(out.plane(1), ElementsAre(0, 0, 0, 120, 121, 122, 123, 124));
}

TEST_F(RingBufferTest, AFetchBehindLeadingZerosGetsWhatFits) {
  storeTimes(20, 16);
  Block out(2, 8, kUntouched);
  out.buffer(0).mDataByteSize = 5;
  ring.fetch(out.list(), 8, 17);
  EXPECT_THAT(out.plane(0), ElementsAre(0, 0, 0, 20, 21, kUntouched, kUntouched, kUntouched));
}

TEST_F(RingBufferTest, AFetchOfAShorterBufferGetsWhatFits) {
  storeTimes(0, 16);
  Block out(2, 8, kUntouched);
  out.buffer(0).mDataByteSize = 3;
  ring.fetch(out.list(), 8, 4);
  EXPECT_THAT(out.plane(0),
              ElementsAre(4, 5, 6, kUntouched, kUntouched, kUntouched, kUntouched, kUntouched));
  EXPECT_EQ(out.plane(1), numbers(104, 8));
}

TEST_F(RingBufferTest, AStoreEndsItsSecondPieceAtABufferSmallerThanItsOffset) {
  Block in(2, 8, 5);
  in.buffer(0).mDataByteSize = 3;  // the second piece starts at byte 4
  ring.store(in.list(), 8, 12);
  EXPECT_EQ(std::vector<std::byte>(ring.buffers[0] + 12, ring.buffers[0] + 16),
            (std::vector<std::byte>{std::byte{5}, std::byte{5}, std::byte{5}, std::byte{0}}));
  EXPECT_EQ(ring.buffers[0][0], std::byte{0});
  EXPECT_EQ(ring.buffers[1][12], std::byte{5});
  EXPECT_EQ(ring.buffers[1][0], std::byte{0});
}

TEST_F(RingBufferTest, AFetchWithUnstableBoundsFailsAndLeavesTheListAlone) {
  storeTimes(0, 8);
  routing_test::makeBoundsUnstable(ring);
  Block out(2, 4, kUntouched);
  EXPECT_EQ(ring.fetch(out.list(), 4, 0), RingBufferErrorBoundsUnstable);
  EXPECT_EQ(static_cast<int>(RingBufferErrorBoundsUnstable), 4);
  EXPECT_THAT(out.plane(0), Each(kUntouched));
  EXPECT_EQ(out.buffer(0).mDataByteSize, 4U);
}

TEST_F(RingBufferTest, UnstableBoundsAreHandedOutAsReadLast) {
  storeTimes(3, 8);
  routing_test::makeBoundsUnstable(ring);
  std::int64_t start = -1;
  std::int64_t end = -1;
  EXPECT_EQ(ring.getTimeBounds(start, end), RingBufferErrorBoundsUnstable);
  EXPECT_EQ(start, 0);
  EXPECT_EQ(end, 11);
}

TEST_F(RingBufferTest, ClippingLeavesTheRangeAloneWhenTheBoundsAreUnstable) {
  storeTimes(0, 8);
  routing_test::makeBoundsUnstable(ring);
  std::int64_t start = 2;
  std::int64_t end = 50;
  EXPECT_EQ(ring.clipTimeBounds(start, end), RingBufferErrorBoundsUnstable);
  EXPECT_EQ(Bounds(start, end), Bounds(2, 50));
}

TEST_F(RingBufferTest, ClipsToWhatIsHeld) {
  ring.setTimeBounds(10, 20);
  const std::vector<std::pair<Bounds, Bounds>> cases{
      {{12, 15}, {12, 15}}, {{5, 15}, {10, 15}},  {{15, 25}, {15, 20}}, {{0, 100}, {10, 20}},
      {{21, 30}, {21, 21}}, {{20, 30}, {20, 20}}, {{0, 9}, {0, 0}},     {{0, 10}, {10, 10}}};
  for (const auto& [range, clipped] : cases) {
    auto [start, end] = range;
    EXPECT_EQ(ring.clipTimeBounds(start, end), RingBufferErrorNone);
    EXPECT_EQ(Bounds(start, end), clipped) << range.first << " to " << range.second;
  }
}

TEST_F(RingBufferTest, TheIndexWrapsAroundAtThirtyTwoBits) {
  constexpr std::uint32_t kLast = std::numeric_limits<std::uint32_t>::max();
  ring.timeBoundsIndex.store(kLast - 1);
  ring.setTimeBounds(1, 2);
  EXPECT_EQ(bounds(), Bounds(1, 2));
  ring.setTimeBounds(3, 4);
  EXPECT_EQ(ring.timeBoundsIndex.load(), 0U);
  EXPECT_EQ(bounds(), Bounds(3, 4));
}

TEST_F(RingBufferTest, SampleTimesAtTheLimitsDoNoHarm) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  Block block(2, 8);
  EXPECT_EQ(ring.fetch(block.list(), 8, kMost), RingBufferErrorNone);
  EXPECT_EQ(ring.fetch(block.list(), 8, std::numeric_limits<std::int64_t>::min()),
            RingBufferErrorNone);
  block.resetSizes();
  EXPECT_EQ(ring.store(block.list(), 8, kMost - 4), RingBufferErrorNone);
  EXPECT_EQ(ring.store(block.list(), 8, std::numeric_limits<std::int64_t>::min()),
            RingBufferErrorNone);
}

TEST_F(RingBufferTest, ChannelsBeyondTheBuffersAreLeftAlone) {
  Block in(1, 4, 7);
  EXPECT_EQ(ring.store(in.list(), 4, 0), RingBufferErrorNone);
  Block out(2, 4, kUntouched);
  ring.fetch(out.list(), 4, 0);
  EXPECT_THAT(out.plane(0), Each(7));
  EXPECT_THAT(out.plane(1), Each(0));
}

TEST_F(RingBufferTest, BuffersBeyondTheChannelsAreLeftAlone) {
  storeTimes(0, 16);
  Block out(3, 4, kUntouched);
  ring.fetch(out.list(), 4, 4);
  EXPECT_EQ(out.plane(1), numbers(104, 4));
  EXPECT_THAT(out.plane(2), Each(kUntouched));
  Block in(3, 4, 1);
  EXPECT_EQ(ring.store(in.list(), 4, 16), RingBufferErrorNone);
}

#ifndef NDEBUG
TEST_F(RingBufferTest, ASecondWriterThreadIsCaught) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  storeTimes(0, 4);
  EXPECT_DEATH(std::thread([this] { storeTimes(4, 4); }).join(), "a second thread");
}
#endif

}  // namespace
}  // namespace record_audio
