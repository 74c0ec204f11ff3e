// SPDX-License-Identifier: MIT
#include "hosts/linux/audio/capture_ring.h"

#include <gtest/gtest.h>
#include <spa/buffer/buffer.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <random>
#include <thread>
#include <vector>

#include "hosts/linux/audio/capture_stream.h"
#include "tests/support/realtime_trap.h"

namespace linux_host {
namespace {

// Blocks whose samples are consecutive numbers, negative in the second channel.
struct Block {
  Block(std::uint32_t first, std::uint32_t frames) : left(frames), right(frames) {
    for (std::uint32_t i = 0; i < frames; ++i) {
      left[i] = static_cast<float>(first + i);
      right[i] = -left[i];
    }
  }
  [[nodiscard]] std::array<const float*, 2> planes() const { return {left.data(), right.data()}; }
  std::vector<float> left;
  std::vector<float> right;
};

TEST(CaptureRing, ReturnsWhatWasWritten) {
  CaptureRing ring(2, 1000);
  EXPECT_EQ(ring.readable_frames(), 0U);
  ASSERT_TRUE(ring.write(Block(0, 300).planes().data(), 300));
  ASSERT_TRUE(ring.write(Block(300, 300).planes().data(), 300));
  ASSERT_EQ(ring.contiguous_frames(), 600U);
  for (std::uint32_t i = 0; i < 600; ++i) {
    EXPECT_EQ(ring.plane(0)[i], static_cast<float>(i));
    EXPECT_EQ(ring.plane(1)[i], -static_cast<float>(i));
  }
  ring.consume(600);
  EXPECT_EQ(ring.readable_frames(), 0U);
  EXPECT_EQ(ring.consumed_frames(), 600U);
  EXPECT_EQ(ring.written_frames(), 600U);
}

TEST(CaptureRing, WrapsInTheMiddleOfABlock) {
  CaptureRing ring(2, 1000);
  ASSERT_TRUE(ring.write(Block(0, 900).planes().data(), 900));
  ring.consume(900);
  ASSERT_TRUE(ring.write(Block(900, 500).planes().data(), 500));
  EXPECT_EQ(ring.readable_frames(), 500U);
  ASSERT_EQ(ring.contiguous_frames(), 100U);
  EXPECT_EQ(ring.plane(1)[99], -999.0F);
  ring.consume(100);
  ASSERT_EQ(ring.contiguous_frames(), 400U);
  EXPECT_EQ(ring.plane(0)[0], 1000.0F);
  EXPECT_EQ(ring.plane(0)[399], 1399.0F);
}

TEST(CaptureRing, DropsABlockThatDoesNotFitAndCountsIt) {
  CaptureRing ring(2, 1000);
  ASSERT_TRUE(ring.write(Block(0, 600).planes().data(), 600));
  EXPECT_FALSE(ring.write(Block(600, 401).planes().data(), 401));
  EXPECT_EQ(ring.lost_frames(), 401U);
  EXPECT_EQ(ring.written_frames(), 600U);
  ASSERT_TRUE(ring.write(Block(600, 400).planes().data(), 400));
  EXPECT_EQ(ring.readable_frames(), 1000U);
  EXPECT_EQ(ring.contiguous_frames(), 1000U);
  EXPECT_EQ(ring.plane(0)[999], 999.0F);
  EXPECT_FALSE(ring.write(Block(0, 1).planes().data(), 1));
  EXPECT_EQ(ring.lost_frames(), 402U);
}

TEST(CaptureRing, RemembersWhereSoundIsMissing) {
  CaptureRing ring(2, 1000);
  EXPECT_EQ(ring.nextGap(), std::nullopt);
  ASSERT_TRUE(ring.write(Block(0, 600).planes().data(), 600));
  ring.miss(48000);
  EXPECT_FALSE(ring.write(Block(600, 401).planes().data(), 401));
  EXPECT_EQ(ring.nextGap(), std::nullopt);  // no frame has come after it yet
  ASSERT_TRUE(ring.write(Block(600, 100).planes().data(), 100));
  ring.miss(7);
  ASSERT_TRUE(ring.write(Block(700, 100).planes().data(), 100));
  EXPECT_EQ(ring.missed_frames(), 48007U);
  EXPECT_EQ(ring.dropped_frames(), 401U);
  EXPECT_EQ(ring.lost_frames(), 48408U);
  auto gap = ring.nextGap();
  ASSERT_TRUE(gap);
  EXPECT_EQ(gap->at_frames, 600U);
  EXPECT_EQ(gap->frames, 48401U);
  ring.takeGap();
  gap = ring.nextGap();
  ASSERT_TRUE(gap);
  EXPECT_EQ(gap->at_frames, 700U);
  EXPECT_EQ(gap->frames, 7U);
  ring.takeGap();
  EXPECT_EQ(ring.nextGap(), std::nullopt);
}

TEST(CaptureRing, KeepsTheLengthWhenThereAreMoreGapsThanItHasRoomFor) {
  CaptureRing ring(1, 1000);
  const Block block(0, 1);
  for (int i = 0; i < 200; ++i) {
    ring.miss(10);
    ASSERT_TRUE(ring.write(block.planes().data(), 1));
  }
  std::uint64_t frames = 0;
  for (; ring.nextGap(); ring.takeGap()) frames += ring.nextGap()->frames;
  EXPECT_LT(frames, 2000U);
  ASSERT_TRUE(ring.write(block.planes().data(), 1));
  ASSERT_TRUE(ring.nextGap());
  EXPECT_EQ(frames + ring.nextGap()->frames, 2000U);
}

// Where the first stream on a source brings no sound, a second one takes its place.
TEST(CaptureRing, AnotherThreadMayWriteOnceTheFirstHasEnded) {
  CaptureRing ring(2, 1000);
  ring.miss(10);
  ring.changeWriter();
  std::thread([&] { EXPECT_TRUE(ring.write(Block(0, 100).planes().data(), 100)); }).join();
  EXPECT_EQ(ring.readable_frames(), 100U);
  EXPECT_EQ(ring.nextGap()->frames, 10U);
}

#ifndef NDEBUG
TEST(CaptureRing, ASecondWriterThreadIsCaught) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  CaptureRing ring(2, 1000);
  ring.miss(10);
  EXPECT_DEATH(std::thread([&] { ring.miss(1); }).join(), "a second thread");
}
#endif

// A sanitizer's own pages would be counted together with the ring's.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(CaptureRing, PrefaultLeavesNoPageToTheAudioThread) {
  CaptureRing ring(2, 48000);
  ring.prefault();
  const Block block(1, 480);
  rusage before{};
  getrusage(RUSAGE_THREAD, &before);
  for (int i = 0; i < 100; ++i) ring.write(block.planes().data(), 480);
  rusage after{};
  getrusage(RUSAGE_THREAD, &after);
  EXPECT_EQ(ring.written_frames(), 48000U);
  // 94 pages per channel; the loop itself may touch a few new pages outside the ring.
  EXPECT_LT(after.ru_minflt - before.ru_minflt, 10);
}
#endif

TEST(CaptureRing, TwoThreadsNeverSeeASampleOutOfPlace) {
  constexpr std::uint32_t kFrames = 1 << 22;  // exact in a float
  CaptureRing ring(2, 4801);
  std::thread writer([&] {
    std::mt19937 random(1);
    for (std::uint32_t written = 0; written < kFrames;) {
      const std::uint32_t frames = std::min<std::uint32_t>(random() % 1500 + 1, kFrames - written);
      if (ring.write(Block(written, frames).planes().data(), frames)) {
        written += frames;
      } else {
        std::this_thread::yield();
      }
    }
  });
  std::mt19937 random(2);
  std::uint32_t read = 0;
  std::uint32_t wrong = 0;
  while (read < kFrames) {
    const std::uint32_t available = ring.contiguous_frames();
    if (available == 0) {
      std::this_thread::yield();
      continue;
    }
    const std::uint32_t frames = std::min<std::uint32_t>(random() % 2000 + 1, available);
    for (std::uint32_t i = 0; i < frames; ++i) {
      const auto expected = static_cast<float>(read + i);
      wrong += ring.plane(0)[i] != expected || ring.plane(1)[i] != -expected ? 1 : 0;
    }
    ring.consume(frames);
    read += frames;
  }
  writer.join();
  EXPECT_EQ(wrong, 0U);
}

// A stream buffer with two planes.
struct StreamBuffer {
  StreamBuffer(Block& block, std::uint32_t offset_bytes, std::uint32_t size_bytes) {
    for (std::size_t i = 0; i < 2; ++i) {
      std::vector<float>& plane = i == 0 ? block.left : block.right;
      chunks[i] = {offset_bytes, size_bytes, sizeof(float), 0};
      datas[i].data = plane.data();
      datas[i].maxsize = static_cast<std::uint32_t>(plane.size() * sizeof(float));
      datas[i].chunk = &chunks[i];
    }
    buffer.n_datas = 2;
    buffer.datas = datas.data();
  }
  std::array<spa_chunk, 2> chunks{};
  std::array<spa_data, 2> datas{};
  spa_buffer buffer{};
};

TEST(StoreBuffer, CopiesWhatTheChunksDescribe) {
  CaptureRing ring(2, 1000);
  Block block(0, 512);
  StreamBuffer stream(block, 16, 400);
  storeBuffer(stream.buffer, ring);
  ASSERT_EQ(ring.readable_frames(), 100U);
  EXPECT_EQ(ring.plane(0)[0], 4.0F);
  EXPECT_EQ(ring.plane(1)[99], -103.0F);
}

TEST(StoreBuffer, NeverReadsBeyondThePlanes) {
  CaptureRing ring(2, 1000);
  Block block(0, 512);
  StreamBuffer beyond(block, 16, 4096);
  storeBuffer(beyond.buffer, ring);
  EXPECT_EQ(ring.readable_frames(), 508U);
  StreamBuffer outside(block, 8192, 64);
  storeBuffer(outside.buffer, ring);
  EXPECT_EQ(ring.readable_frames(), 508U);
}

TEST(StoreBuffer, SkipsBuffersThatLackAPlane) {
  CaptureRing ring(2, 1000);
  Block block(0, 512);
  StreamBuffer stream(block, 0, 2048);
  stream.buffer.n_datas = 1;
  EXPECT_FALSE(storeBuffer(stream.buffer, ring));
  stream.buffer.n_datas = 2;
  stream.datas[1].data = nullptr;
  EXPECT_FALSE(storeBuffer(stream.buffer, ring));
  EXPECT_EQ(ring.readable_frames(), 0U);
}

TEST(StoreBuffer, SkipsSamplesMarkedAsCorrupted) {
  CaptureRing ring(2, 1000);
  Block block(0, 512);
  StreamBuffer stream(block, 0, 2048);
  stream.chunks[1].flags = SPA_CHUNK_FLAG_CORRUPTED;
  EXPECT_FALSE(storeBuffer(stream.buffer, ring));
  EXPECT_EQ(ring.readable_frames(), 0U);
  stream.chunks[1].flags = 0;
  EXPECT_TRUE(storeBuffer(stream.buffer, ring));
  EXPECT_EQ(ring.readable_frames(), 512U);
}

TEST(StoreBuffer, AllocatesNothingTakesNoLockAndMakesNoSystemCall) {
  CaptureRing ring(2, 48000);
  ring.prefault();
  Block block(0, 1024);
  StreamBuffer stream(block, 0, 4096);
  const realtime_trap::Report stores = realtime_trap::runTrapped([&] {
    ring.miss(512);
    for (int i = 0; i < 100; ++i) storeBuffer(stream.buffer, ring);  // until it overflows, too
    return ring.written_frames() == 46 * 1024 && ring.dropped_frames() == 54 * 1024;
  });
  EXPECT_TRUE(stores.clean()) << realtime_trap::describe(stores);
}

}  // namespace
}  // namespace linux_host
