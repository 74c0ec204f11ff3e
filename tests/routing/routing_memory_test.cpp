// SPDX-License-Identifier: MIT
// What the ring and the play-through allocate: as much as they use, resident, and freed again.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "tests/routing/failing_allocator.h"
#include "tests/routing/play_through_fixture.h"

namespace record_audio {
namespace {

using platform::noErr;
using routing_test::Block;
using routing_test::blockAt;
using routing_test::blockCount;
using routing_test::kSpeakers;

constexpr std::size_t kCacheLine_bytes = 64;

bool isResident(const void* memory, std::size_t size_bytes) {
  const auto page_bytes = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto begin = reinterpret_cast<std::uintptr_t>(memory) / page_bytes * page_bytes;
  const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(memory) + size_bytes;
  std::vector<unsigned char> pages((end - begin + page_bytes - 1) / page_bytes);
  EXPECT_EQ(mincore(reinterpret_cast<void*>(begin), end - begin, pages.data()), 0);
  return std::all_of(pages.begin(), pages.end(), [](unsigned char page) { return page & 1; });
}

TEST(RingMemory, HasRoomForTheTableAndAllChannelsAndLittleMore) {
  for (const std::int32_t channels : {1, 2, 3, 8}) {
    for (const std::uint32_t frame_bytes : {1U, 4U}) {
      for (const std::uint32_t frames : {1U, 64U, 4096U}) {
        SCOPED_TRACE(testing::Message() << channels << " channels of " << frames << " frames of "
                                        << frame_bytes << " bytes");
        RingBuffer ring;
        ring.allocate(channels, frame_bytes, frames);
        ASSERT_NE(ring.buffers, nullptr);
        const Block block = blockAt(ring.buffers);
        EXPECT_LE(ring.buffers[channels - 1] + ring.capacityBytes, block.end());
        const std::size_t used_bytes =
            (ring.capacityBytes + sizeof(std::byte*)) * static_cast<std::size_t>(channels);
        EXPECT_LT(block.size_bytes, used_bytes + 2 * kCacheLine_bytes);
      }
    }
  }
}

TEST(RingMemory, IsOneBlockThatIsFreedByDeallocate) {
  const std::size_t before = blockCount();
  RingBuffer ring;
  ring.allocate(2, 4, 512);
  EXPECT_EQ(blockCount(), before + 1);
  ring.deallocate();
  EXPECT_EQ(blockCount(), before);
}

// An audio callback must not wait for a page.
TEST(RingMemory, IsResidentFromTheStart) {
  RingBuffer ring;
  ring.allocate(2, 4, 1 << 18);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(isResident(ring.buffers[i], ring.capacityBytes));
}

class PlayThroughMemory : public testing::Test, protected routing_test::PlayThroughMachine {
 protected:
  PlayThroughMemory() { EXPECT_TRUE(playThrough->initDevices(kSpeakers)); }
  ~PlayThroughMemory() override { routing_test::failAllocation(0); }

  [[nodiscard]] const platform::AudioBuffer& channel(int i) const {
    const platform::AudioBuffer* const buffers = playThrough->inputBufferList->mBuffers;
    return buffers[i];
  }
};

TEST_F(PlayThroughMemory, IsAListOfItsChannelsAndABufferForEach) {
  ASSERT_EQ(playThrough->start(), noErr);
  EXPECT_EQ(blockAt(playThrough->inputBufferList.get()).size_bytes, 8U + 2 * 16);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(blockAt(channel(i).mData).size_bytes, 2048U);
}

TEST_F(PlayThroughMemory, IsResidentFromTheStart) {
  host.audioUnits.setBufferFrameSize(1 << 16);
  ASSERT_EQ(playThrough->start(), noErr);
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(isResident(channel(i).mData, channel(i).mDataByteSize));
  }
}

TEST_F(PlayThroughMemory, IsFreedByStop) {
  const std::size_t before = blockCount();
  ASSERT_EQ(playThrough->start(), noErr);
  EXPECT_EQ(blockCount(), before + 4);  // the list, two channels, the ring's storage
  playThrough->stop();
  EXPECT_EQ(blockCount(), before);
}

TEST_F(PlayThroughMemory, IsFreedWhenAnAllocationFails) {
  const std::size_t before = blockCount();
  for (int i = 1; i <= 5; ++i) {
    routing_test::failAllocation(i);
    EXPECT_EQ(playThrough->start(), -620);
    EXPECT_EQ(blockCount(), before) << "allocation " << i;
  }
}

}  // namespace
}  // namespace record_audio
