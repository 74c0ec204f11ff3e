// SPDX-License-Identifier: MIT
// One writer and one reader at full speed.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "routing/ring_buffer.h"
#include "tests/routing/planar_block.h"
#include "tests/routing/sanitizer_budget.h"

namespace record_audio {
namespace {

constexpr std::uint32_t kChannels = 2;
constexpr std::uint32_t kBlock_frames = 32;
constexpr std::uint32_t kCapacity_frames = 1024;

using Block = routing_test::PlanarBlock<std::uint32_t>;

// The sample for a moment. No two that are near each other are alike.
std::uint32_t sampleAt(std::int64_t time, std::uint32_t channel) {
  return static_cast<std::uint32_t>(time) * 2654435761U + channel;
}

void fill(Block& block, std::int64_t startTime,
          std::uint32_t (*sample)(std::int64_t time, std::uint32_t channel) = sampleAt) {
  for (std::uint32_t channel = 0; channel < kChannels; ++channel) {
    for (std::uint32_t i = 0; i < kBlock_frames; ++i) {
      block.plane(channel)[i] = sample(startTime + i, channel);
    }
  }
}

TEST(RingBufferThreads, AReaderNeverSeesTheStartOfOneRangeWithTheEndOfAnother) {
  RingBuffer ring;
  ring.allocate(1, 4, 4);
  const std::int64_t last = routing_test::budget(100'000'000);
  std::atomic<bool> done{false};
  const auto endFor = [](std::int64_t start) { return 3 * start; };
  std::thread writer([&] {
    for (std::int64_t start = 1; start <= last; ++start) ring.setTimeBounds(start, endFor(start));
    done.store(true, std::memory_order_release);
  });

  std::uint64_t consistent = 0;
  std::uint64_t mixed = 0;
  std::uint64_t backwards = 0;
  std::int64_t previous = 0;
  bool finished = false;
  while (!finished) {
    finished = done.load(std::memory_order_acquire);
    std::int64_t start = 0;
    std::int64_t end = 0;
    if (ring.getTimeBounds(start, end) != RingBufferErrorNone) continue;
    ++consistent;
    if (end != endFor(start)) ++mixed;
    if (start < previous) ++backwards;
    previous = start;
  }
  writer.join();
  EXPECT_EQ(mixed, 0U);
  EXPECT_EQ(backwards, 0U);
  EXPECT_GT(consistent, 1000U);
  EXPECT_EQ(previous, last);
}

TEST(RingBufferThreads, AReaderLessThanHalfARingBehindGetsEveryFrameRight) {
  RingBuffer ring;
  ring.allocate(kChannels, sizeof(std::uint32_t), kCapacity_frames);
  const std::int64_t blocks = routing_test::budget(2'000'000);
  // Relaxed on both sides, so that it orders nothing that the ring itself should order.
  std::atomic<std::int64_t> blocksRead{0};
  std::thread writer([&] {
    constexpr std::int64_t kMostAhead_blocks = kCapacity_frames / kBlock_frames / 2;
    Block block(kChannels, kBlock_frames);
    for (std::int64_t i = 0; i < blocks; ++i) {
      while (i - blocksRead.load(std::memory_order_relaxed) >= kMostAhead_blocks) {
        std::this_thread::yield();
      }
      fill(block, i * kBlock_frames);
      ring.store(block.list(), kBlock_frames, i * kBlock_frames);
    }
  });

  std::uint64_t wrong = 0;
  Block block(kChannels, kBlock_frames);
  for (std::int64_t i = 0; i < blocks; ++i) {
    const std::int64_t startTime = i * kBlock_frames;
    std::int64_t start = 0;
    std::int64_t end = 0;
    while (ring.getTimeBounds(start, end) != RingBufferErrorNone ||
           end < startTime + kBlock_frames) {
      std::this_thread::yield();
    }
    ASSERT_EQ(ring.fetch(block.list(), kBlock_frames, startTime), RingBufferErrorNone);
    for (std::uint32_t channel = 0; channel < kChannels; ++channel) {
      for (std::uint32_t j = 0; j < kBlock_frames; ++j) {
        if (block.plane(channel)[j] != sampleAt(startTime + j, channel)) ++wrong;
      }
    }
    blocksRead.store(i + 1, std::memory_order_relaxed);
  }
  writer.join();
  EXPECT_EQ(wrong, 0U);
}

// A sample that shows whether it was put together from parts of two.
std::uint32_t markedSampleAt(std::int64_t time, std::uint32_t channel) {
  const auto low = static_cast<std::uint32_t>(time) & 0xFFFFU;
  const std::uint32_t high = (low ^ (channel == 0 ? 0xFFFFU : 0x5555U)) << 16;
  return high | low;
}

bool isMarkedSample(std::uint32_t sample, std::uint32_t channel) {
  return sample == markedSampleAt(sample, channel);
}

TEST(RingBufferThreads, AnOverrunReaderStillGetsConsistentBoundsAndWholeSamples) {
  RingBuffer ring;
  ring.allocate(kChannels, sizeof(std::uint32_t), kCapacity_frames);
  const std::int64_t blocks = routing_test::budget(4'000'000);
  std::atomic<bool> done{false};
  std::thread writer([&] {
    Block block(kChannels, kBlock_frames);
    for (std::int64_t i = 0; i < blocks; ++i) {
      if (i % 1000 == 999) continue;  // a gap
      fill(block, i * kBlock_frames, markedSampleAt);
      ring.store(block.list(), kBlock_frames, i * kBlock_frames);
    }
    done.store(true, std::memory_order_release);
  });

  Block block(kChannels, kBlock_frames);
  std::uint64_t reads = 0;
  std::uint64_t disorderly = 0;
  std::uint64_t broken = 0;
  while (!done.load(std::memory_order_acquire)) {
    std::int64_t start = 0;
    std::int64_t end = 0;
    if (ring.getTimeBounds(start, end) != RingBufferErrorNone) continue;
    if (start > end || end - start > kCapacity_frames) ++disorderly;
    block.resetSizes();
    if (ring.fetch(block.list(), kBlock_frames, start) != RingBufferErrorNone) continue;
    ++reads;
    for (std::uint32_t channel = 0; channel < kChannels; ++channel) {
      for (const std::uint32_t sample : block.plane(channel)) {
        if (sample != 0 && !isMarkedSample(sample, channel)) ++broken;
      }
    }
  }
  writer.join();
  EXPECT_GT(reads, 0U);
  EXPECT_EQ(disorderly, 0U);
  EXPECT_EQ(broken, 0U);
}

}  // namespace
}  // namespace record_audio
