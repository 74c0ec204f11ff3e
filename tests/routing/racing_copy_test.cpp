// SPDX-License-Identifier: MIT
// What another thread can see of a copy while it is being made.

#include "routing/racing_copy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <vector>

namespace record_audio {
namespace {

std::vector<std::byte> counted(std::size_t size_bytes) {
  std::vector<std::byte> bytes(size_bytes);
  for (std::size_t i = 0; i < size_bytes; ++i) bytes[i] = static_cast<std::byte>(i * 7 + 1);
  return bytes;
}

// For every alignment of the two sides and every number of bytes.
TEST(RacingCopy, CopiesEveryByteAndNoOther) {
  constexpr std::size_t kRoom_bytes = 64;
  const std::vector<std::byte> source = counted(kRoom_bytes);
  for (std::size_t shared = 0; shared < 9; ++shared) {
    for (std::size_t own = 0; own < 9; ++own) {
      for (std::size_t size = 0; size < 40; ++size) {
        std::vector<std::byte> expected(kRoom_bytes, std::byte{0xEE});
        std::vector<std::byte> in = expected;
        std::vector<std::byte> out = expected;
        std::vector<std::byte> zeroed = expected;
        std::copy_n(source.begin() + static_cast<std::ptrdiff_t>(own), size,
                    expected.begin() + static_cast<std::ptrdiff_t>(shared));
        racing::copyIn(in.data() + shared, source.data() + own, size);
        ASSERT_EQ(in, expected) << shared << " " << own << " " << size;
        racing::copyOut(out.data() + shared, source.data() + own, size);
        ASSERT_EQ(out, expected) << shared << " " << own << " " << size;
        racing::zero(zeroed.data() + shared, size);
        std::fill_n(expected.begin() + static_cast<std::ptrdiff_t>(shared), size, std::byte{0});
        ASSERT_EQ(zeroed, expected) << shared << " " << size;
      }
    }
  }
}

}  // namespace
}  // namespace record_audio

// A processor that stops after each step shows everything that another one could see in between.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)

#include <x86intrin.h>

#include <csignal>

namespace record_audio {
namespace {

constexpr std::size_t kSamples = 67;
constexpr std::uint32_t kOld = 0x11111111;
constexpr std::uint32_t kNew = 0xEEEEEEEE;
using Samples = std::array<std::uint32_t, kSamples>;

// What the signal handler reads and changes. The steps are those of one copy.
struct Watched {
  Samples* shared = nullptr;
  bool changes = false;
  std::size_t steps = 0;
  std::size_t torn = 0;
};
Watched watched;

void onStep(int /*signal*/) {
  ++watched.steps;
  for (std::uint32_t& sample : *watched.shared) {
    volatile std::uint32_t& seen = sample;
    if (watched.changes) {
      seen = watched.steps % 2 == 0 ? kOld : kNew;
    } else if (const std::uint32_t value = seen; value != kOld && value != kNew && value != 0) {
      ++watched.torn;
    }
  }
}

// Runs the copy one step at a time.
template <typename Copy>
void stepThrough(Samples& shared, bool changes, Copy copy) {
  watched = {&shared, changes, 0, 0};
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = onStep;
  ASSERT_EQ(sigaction(SIGTRAP, &action, &before), 0);
  constexpr unsigned long long kTrapFlag = 0x100;
  __writeeflags(__readeflags() | kTrapFlag);
  copy();
  __writeeflags(__readeflags() & ~kTrapFlag);
  sigaction(SIGTRAP, &before, nullptr);
  EXPECT_GE(watched.steps, kSamples) << "it was not looked at often enough";
}

template <typename Samples>
std::byte* bytesOf(Samples& samples) {
  return reinterpret_cast<std::byte*>(samples.data());
}

class RacingCopySteps : public testing::Test {
 protected:
  RacingCopySteps() {
    shared.fill(kOld);
    own.fill(kNew);
  }
  alignas(8) Samples shared{};
  alignas(8) Samples own{};
};

TEST_F(RacingCopySteps, NoPartOfAnIncomingSampleIsSeen) {
  stepThrough(shared, false, [&] { racing::copyIn(bytesOf(shared), bytesOf(own), sizeof own); });
  EXPECT_EQ(watched.torn, 0U);
  EXPECT_EQ(shared, own);
}

TEST_F(RacingCopySteps, NoPartOfASampleThatBecomesSilenceIsSeen) {
  stepThrough(shared, false, [&] { racing::zero(bytesOf(shared), sizeof shared); });
  EXPECT_EQ(watched.torn, 0U);
  EXPECT_EQ(shared, Samples{});
}

TEST_F(RacingCopySteps, NoOutgoingSampleIsMadeOfTwo) {
  stepThrough(shared, true, [&] { racing::copyOut(bytesOf(own), bytesOf(shared), sizeof own); });
  for (const std::uint32_t sample : own) EXPECT_TRUE(sample == kOld || sample == kNew) << sample;
}

}  // namespace
}  // namespace record_audio

#endif
