// SPDX-License-Identifier: MIT
// Compares the ring with a naive one that keeps every frame in a queue. Stores and fetches come in
// random sequences with gaps, overlaps, wraps, jumps and negative times.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <random>
#include <vector>

#include "routing/ring_buffer.h"
#include "tests/routing/planar_block.h"
#include "tests/routing/sanitizer_budget.h"

namespace record_audio {
namespace {

constexpr std::uint8_t kNeverStored = 0xA5;
constexpr std::uint32_t kMostChannels = 3;

using FrameBytes = std::vector<std::uint8_t>;  // of all channels

class ReferenceRing {
 public:
  ReferenceRing(std::uint32_t capacity_frames, std::size_t frame_bytes)
      : capacity_frames_(capacity_frames), zeroFrame_(frame_bytes, 0) {}

  int store(const std::vector<FrameBytes>& frames, std::int64_t startTime) {
    const auto count = static_cast<std::int64_t>(frames.size());
    if (count == 0) return 0;
    if (count > capacity_frames_) return 3;
    if (end() > startTime) {
      restartAt(startTime);
    } else {
      while (!held_.empty() && startTime + count - start_ > capacity_frames_) dropOldest();
      if (startTime + count - start_ > capacity_frames_) {
        restartAt(startTime + count - capacity_frames_);
      }
    }
    while (end() < startTime) held_.push_back(zeroFrame_);
    held_.insert(held_.end(), frames.begin(), frames.end());
    return 0;
  }

  // Null where nothing is held.
  const FrameBytes* frame(std::int64_t time) const {
    if (time < start_ || time >= end()) return nullptr;
    return &held_[static_cast<std::size_t>(time - start_)];
  }
  std::int64_t start() const { return start_; }
  std::int64_t end() const { return start_ + static_cast<std::int64_t>(held_.size()); }

 private:
  void restartAt(std::int64_t time) {
    held_.clear();
    start_ = time;
  }
  void dropOldest() {
    held_.pop_front();
    ++start_;
  }

  std::int64_t capacity_frames_;
  FrameBytes zeroFrame_;
  std::int64_t start_ = 0;
  std::deque<FrameBytes> held_;
};

struct Shape {
  std::uint32_t channels;
  std::uint32_t bytesPerFrame;
  std::uint32_t askedCapacity;
};

class RingAgainstReference {
 public:
  RingAgainstReference(const Shape& shape, std::uint32_t seed)
      : shape_(shape), random_(seed), reference_(0, 0) {
    ring_.allocate(static_cast<std::int32_t>(shape.channels), shape.bytesPerFrame,
                   shape.askedCapacity);
    reference_ = ReferenceRing(ring_.capacityFrames, frame_bytes());
  }

  void step() {
    if (upTo(1) == 0) {
      storeSomething();
    } else {
      fetchSomething();
    }
    std::int64_t start = 0;
    std::int64_t end = 0;
    ASSERT_EQ(ring_.getTimeBounds(start, end), 0);
    ASSERT_EQ(start, reference_.start());
    ASSERT_EQ(end, reference_.end());
  }

 private:
  std::size_t frame_bytes() const { return shape_.channels * shape_.bytesPerFrame; }
  std::int64_t upTo(std::int64_t most) { return static_cast<std::int64_t>(random_() % (most + 1)); }

  // Mostly small blocks, sometimes one around the capacity.
  std::uint32_t blockSize() {
    const std::int64_t capacity = ring_.capacityFrames;
    return static_cast<std::uint32_t>(upTo(9) == 0 ? capacity - 2 + upTo(4) + (capacity < 2 ? 2 : 0)
                                                   : upTo(std::max<std::int64_t>(capacity / 3, 2)));
  }

  std::int64_t storeTime() {
    const std::int64_t capacity = ring_.capacityFrames;
    switch (upTo(15)) {
      case 0:
        return reference_.end() - upTo(2 * capacity);  // overlap, or further back
      case 1:
        return reference_.end() + upTo(3 * capacity);  // gap, or a jump
      case 2:
        return reference_.end() + 1;
      case 3:
        return upTo(9) == 0 ? upTo(4'000'000'000) - 2'000'000'000 : reference_.end();
      default:
        return reference_.end();  // back to back
    }
  }

  void storeSomething() {
    const std::uint32_t count = blockSize();
    const std::int64_t time = storeTime();
    std::vector<FrameBytes> frames(count, FrameBytes(frame_bytes()));
    routing_test::PlanarBlock<std::uint8_t> block(shape_.channels, count * shape_.bytesPerFrame);
    for (std::uint32_t i = 0; i < count; ++i) {
      for (std::uint32_t channel = 0; channel < shape_.channels; ++channel) {
        for (std::uint32_t byte = 0; byte < shape_.bytesPerFrame; ++byte) {
          const auto value = static_cast<std::uint8_t>(random_());
          frames[i][channel * shape_.bytesPerFrame + byte] = value;
          block.plane(channel)[i * shape_.bytesPerFrame + byte] = value;
        }
      }
    }
    ASSERT_EQ(ring_.store(block.list(), count, time), reference_.store(frames, time));
  }

  void fetchSomething() {
    const std::int64_t capacity = ring_.capacityFrames;
    const std::uint32_t count = blockSize();
    const std::int64_t time =
        upTo(7) == 0 ? upTo(200) - 100 : reference_.start() - capacity / 2 + upTo(2 * capacity);
    const std::uint32_t room_bytes = (count + 2) * shape_.bytesPerFrame;
    routing_test::PlanarBlock<std::uint8_t> out(shape_.channels, room_bytes, kNeverStored);
    ASSERT_EQ(ring_.fetch(out.list(), count, time), 0);

    std::uint32_t held = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
      const FrameBytes* const expected = reference_.frame(std::max<std::int64_t>(time, 0) + i);
      if (expected != nullptr) ++held;
      expectFrame(out, i, expected);
    }
    const std::uint32_t size_bytes = held == 0 ? room_bytes : held * shape_.bytesPerFrame;
    for (std::uint32_t channel = 0; channel < shape_.channels; ++channel) {
      ASSERT_EQ(out.buffer(channel).mDataByteSize, size_bytes);
      for (std::uint32_t at = count * shape_.bytesPerFrame; at < room_bytes; ++at) {
        ASSERT_EQ(out.plane(channel)[at], kNeverStored);
      }
    }
  }

  void expectFrame(routing_test::PlanarBlock<std::uint8_t>& out, std::uint32_t index,
                   const FrameBytes* expected) {
    const FrameBytes silent(frame_bytes(), 0);
    for (std::uint32_t channel = 0; channel < shape_.channels; ++channel) {
      const std::uint8_t* const got = out.plane(channel).data() + index * shape_.bytesPerFrame;
      const std::uint8_t* const wanted =
          (expected != nullptr ? expected : &silent)->data() + channel * shape_.bytesPerFrame;
      ASSERT_EQ(std::memcmp(got, wanted, shape_.bytesPerFrame), 0)
          << "frame " << index << " of channel " << channel;
    }
  }

  Shape shape_;
  std::mt19937 random_;
  RingBuffer ring_;
  ReferenceRing reference_;
};

TEST(RingBufferModel, BehavesLikeANaiveRingForMillionsOfRandomSteps) {
  constexpr std::array<Shape, 6> kShapes{
      {{1, 1, 1}, {2, 4, 20}, {3, 2, 64}, {1, 4, 2}, {2, 3, 33}, {kMostChannels, 4, 7}}};
  constexpr std::uint32_t kSequences = 40;
  const std::uint32_t stepsEach = routing_test::budget(3'000'000) / (kShapes.size() * kSequences);
  for (const Shape& shape : kShapes) {
    for (std::uint32_t seed = 1; seed <= kSequences; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", " + std::to_string(shape.channels) +
                   " channels of " + std::to_string(shape.bytesPerFrame) + " bytes, capacity " +
                   std::to_string(shape.askedCapacity));
      RingAgainstReference rings(shape, seed);
      for (std::uint32_t i = 0; i < stepsEach; ++i) {
        rings.step();
        if (HasFatalFailure()) return;
      }
    }
  }
}

}  // namespace
}  // namespace record_audio
