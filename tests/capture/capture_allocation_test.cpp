// SPDX-License-Identifier: MIT
// How often the capture path allocates. Replaces the global operator new.

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "tests/capture/recorder_fixture.h"

namespace {

bool g_counting = false;
std::size_t g_sizes[64];
std::size_t g_count = 0;

void* allocate(std::size_t size_bytes) {
  if (g_counting && g_count < std::size(g_sizes)) g_sizes[g_count++] = size_bytes;
  void* const memory = std::malloc(size_bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size_bytes) {
  return allocate(size_bytes);
}
void* operator new[](std::size_t size_bytes) {
  return allocate(size_bytes);
}
// Some libraries ask for buffers that they can do without.
void* operator new(std::size_t size_bytes, const std::nothrow_t&) noexcept {
  return std::malloc(size_bytes);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using namespace capture_test;

// Runs `action` and returns the sizes of its allocations, in order.
template <typename Action>
std::vector<std::size_t> allocationsOf(Action&& action) {
  g_count = 0;
  g_counting = true;
  action();
  g_counting = false;
  return {g_sizes, g_sizes + g_count};
}

class CaptureAllocationTest : public RecorderFixture {
 protected:
  // One block on the capture side, without the queue's own work. What remains are the recorder's
  // allocations and the closure that it gives to the queue.
  std::vector<std::size_t> capture(const std::shared_ptr<platform::SampleBuffer>& buffer) {
    platform::CaptureConnection connection;
    return allocationsOf([&] { recorder->captureOutput(dataOutput(), buffer, connection); });
  }
};

TEST_F(CaptureAllocationTest, TakesTwoOnTheCaptureSideBesideTheQueuesClosure) {
  record(kMp3);
  const auto tone = sine(440, 0.5, 1024);
  const auto buffer = memory_host::floatSampleBuffer({tone, tone});
  memory.runLoop.settle();
  const auto sizes = capture(buffer);
  ASSERT_EQ(sizes.size(), 3U);
  EXPECT_EQ(sizes[0], platform::audioBufferListSize_bytes(2));
  EXPECT_GE(sizes[1], 1024 * sizeof(std::uint32_t));
  EXPECT_LE(sizes[1], 1024 * sizeof(std::uint32_t) + 64);
  EXPECT_LE(sizes[2], 64U);  // the closure
}

TEST_F(CaptureAllocationTest, TakesNoneForABlockThatArrivesAfterTheStop) {
  record(kMp3);
  recorder->stopRecord();
  const auto buffer = memory_host::floatSampleBuffer({sine(440, 0.5, 1024)});
  EXPECT_TRUE(capture(buffer).empty());
}

TEST_F(CaptureAllocationTest, TakesOneOnTheEncodeSide) {
  record(kMp3);
  deliver(sine(440, 0.5, 1000));
  const auto before_bytes = writtenBytes();
  // Too few samples for another frame, so nothing is written to the file.
  dataOutput().deliver(memory_host::floatSampleBuffer({sine(440, 0.5, 16)}));
  memory.dispatch.queue(kDataQueue)->runAll();
  ASSERT_EQ(encodeQueue().items.size(), 1U);
  const auto work = encodeQueue().items.front();
  encodeQueue().items.clear();
  const auto sizes = allocationsOf([&] { work(); });
  EXPECT_EQ(writtenBytes(), before_bytes);
  EXPECT_THAT(sizes, testing::ElementsAre(2 * 16 + 7200));
}

TEST_F(CaptureAllocationTest, TakesNoneOnTheEncodeSideForADroppedBlock) {
  record(kMp3);
  memory.runLoop.settle();
  dataOutput().deliver(memory_host::floatSampleBuffer({sine(440, 0.5, 1000)}));
  memory.dispatch.queue(kDataQueue)->runAll();
  const auto work = encodeQueue().items.front();
  recorder->stopRecord();
  EXPECT_TRUE(allocationsOf([&] { work(); }).empty());
}

}  // namespace
