// SPDX-License-Identifier: MIT
#include "capture/sample_conversion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <initializer_list>
#include <random>
#include <vector>

namespace {

using platform::AudioStreamBasicDescription;
using platform::kAudioFormatFlagIsFloat;
using platform::kAudioFormatFlagIsNonInterleaved;
using platform::kAudioFormatFlagIsSignedInteger;
using record_audio::canConvertSamples;
using record_audio::convertSamples;
using testing::ElementsAre;
using testing::ElementsAreArray;
using Words = std::vector<std::uint32_t>;

AudioStreamBasicDescription format(std::uint32_t bits, std::uint32_t bytesPerFrame,
                                   std::uint32_t channels, std::uint32_t flags) {
  AudioStreamBasicDescription description;
  description.mBitsPerChannel = bits;
  description.mBytesPerFrame = bytesPerFrame;
  description.mChannelsPerFrame = channels;
  description.mFormatFlags = flags;
  return description;
}

// One channel of integers.
AudioStreamBasicDescription mono(std::uint32_t bits, std::uint32_t bytesPerFrame) {
  return format(bits, bytesPerFrame, 1, kAudioFormatFlagIsSignedInteger);
}

std::vector<std::byte> bytes(std::initializer_list<int> values) {
  std::vector<std::byte> result;
  for (const int value : values) result.push_back(static_cast<std::byte>(value));
  return result;
}

std::vector<std::byte> bytesOf(const Words& words) {
  const auto raw = std::as_bytes(std::span(words));
  return {raw.begin(), raw.end()};
}

Words converted(const AudioStreamBasicDescription& description, const std::vector<std::byte>& data,
                std::size_t count) {
  Words words(count, 0xDEADBEEF);
  convertSamples(description, data, words);
  return words;
}

TEST(SampleConversionTest, TakesOneTo32BitsAndAtLeastOneChannel) {
  EXPECT_TRUE(canConvertSamples(mono(1, 1)));
  EXPECT_TRUE(canConvertSamples(mono(32, 4)));
  EXPECT_FALSE(canConvertSamples(mono(33, 5)));
  EXPECT_FALSE(canConvertSamples(mono(64, 8)));
  EXPECT_FALSE(canConvertSamples(mono(0, 4)));
  EXPECT_FALSE(canConvertSamples(format(32, 4, 0, kAudioFormatFlagIsFloat)));
}

TEST(SampleConversionTest, MovesEightBitsToTheTopByte) {
  EXPECT_THAT(converted(mono(8, 1), bytes({0x00, 0x01, 0x7F, 0x80, 0xFF}), 5),
              ElementsAre(0U, 0x01000000U, 0x7F000000U, 0x80000000U, 0xFF000000U));
}

TEST(SampleConversionTest, TakesTheLowTwelveBitsOfTwoBytes) {
  EXPECT_THAT(converted(mono(12, 2), bytes({0xFF, 0x07, 0x00, 0x08, 0xFF, 0x0F, 0x01, 0xF0}), 4),
              ElementsAre(0x7FF00000U, 0x80000000U, 0xFFF00000U, 0x00100000U));
}

TEST(SampleConversionTest, MovesSixteenBitsToTheTopHalf) {
  EXPECT_THAT(converted(mono(16, 2), bytes({0xFF, 0xFF, 0x34, 0x12, 0x00, 0x80, 0xFF, 0x7F}), 4),
              ElementsAre(0xFFFF0000U, 0x12340000U, 0x80000000U, 0x7FFF0000U));
}

TEST(SampleConversionTest, TakesTwentyBitsOfThreeBytes) {
  EXPECT_THAT(
      converted(mono(20, 3), bytes({0xFF, 0xFF, 0x07, 0x00, 0x00, 0x08, 0xFF, 0xFF, 0xFF}), 3),
      ElementsAre(0x7FFFF000U, 0x80000000U, 0xFFFFF000U));
}

TEST(SampleConversionTest, MovesTwentyFourBitsToTheTopThreeBytes) {
  EXPECT_THAT(
      converted(mono(24, 3), bytes({0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x80, 0x01, 0x02, 0x03}), 3),
      ElementsAre(0x7FFFFF00U, 0x80000000U, 0x03020100U));
}

TEST(SampleConversionTest, TakesTwentyFourBitsOfFourBytes) {
  EXPECT_THAT(converted(mono(24, 4), bytes({0x01, 0x02, 0x83, 0x55}), 1), ElementsAre(0x83020100U));
}

// The result has 32 bits: higher bytes would be shifted out.
TEST(SampleConversionTest, IgnoresBytesBeyondTheFourth) {
  EXPECT_THAT(converted(mono(24, 6), bytes({1, 2, 3, 4, 5, 6}), 1), ElementsAre(0x03020100U));
}

TEST(SampleConversionTest, CopiesThirtyTwoBitIntegersAsTheyAre) {
  const Words words{0x80000000U, 0x7FFFFFFFU, 0x12345678U};
  EXPECT_EQ(converted(mono(32, 4), bytesOf(words), 3), words);
}

TEST(SampleConversionTest, CopiesFloatBitsAsTheyAre) {
  const Words words{std::bit_cast<std::uint32_t>(0.5F), std::bit_cast<std::uint32_t>(-1.0F),
                    0x7FC00001U};
  EXPECT_EQ(converted(format(32, 4, 2, kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved),
                      bytesOf(words), 3),
            words);
}

TEST(SampleConversionTest, WalksTheFirstPlaneOfNonInterleavedData) {
  const Words planes{1, 2, 3, /* second plane */ 11, 12, 13};
  EXPECT_THAT(converted(format(32, 4, 2, kAudioFormatFlagIsNonInterleaved), bytesOf(planes), 3),
              ElementsAre(1U, 2U, 3U));
}

// The stride rule is agreed as it is. Capture delivers planar data, which it reads whole.
TEST(SampleConversionTest, StepsOneFramePerChannelThroughInterleavedData) {
  // Stereo frames of eight bytes: the stride is sixteen.
  const Words frames{1, 11, 2, 12, 3, 13, 4, 14};
  Words words(4, 0xDEADBEEF);
  EXPECT_EQ(convertSamples(format(32, 8, 2, kAudioFormatFlagIsFloat),
                           std::as_bytes(std::span(frames)), words),
            2U);
  EXPECT_THAT(words, ElementsAre(1U, 3U, 0U, 0U));
}

TEST(SampleConversionTest, StepsInTheSameWayThroughInterleavedNarrowSamples) {
  EXPECT_THAT(converted(format(16, 4, 2, kAudioFormatFlagIsSignedInteger),
                        bytes({1, 0, 9, 9, 2, 0, 9, 9, 3, 0, 9, 9}), 3),
              ElementsAre(0x00010000U, 0x00030000U, 0U));
}

TEST(SampleConversionTest, DividesTheBytesPerFrameByTheChannelsOfPlanarDataToo) {
  // Two planes of 16 bits. By the rule (bytes per frame / channels) a sample is one byte, read from
  // the start of each frame.
  EXPECT_THAT(converted(format(16, 2, 2, kAudioFormatFlagIsNonInterleaved),
                        bytes({0x34, 0x12, 0xFF, 0x7F}), 2),
              ElementsAre(0x00340000U, 0x00FF0000U));
  // Two planes of 8 bits. By the rule a sample has no bytes at all.
  EXPECT_THAT(converted(format(8, 1, 2, kAudioFormatFlagIsNonInterleaved), bytes({0x34, 0x12}), 2),
              ElementsAre(0U, 0U));
}

TEST(SampleConversionTest, ReadsNothingBeyondTheDataAndFillsUpWithSilence) {
  Words words(4, 0xDEADBEEF);
  const auto data = bytes({1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0});
  EXPECT_EQ(convertSamples(mono(32, 4), data, words), 2U);
  EXPECT_THAT(words, ElementsAre(1U, 2U, 0U, 0U));
  EXPECT_EQ(convertSamples(mono(32, 4), {}, words), 0U);
  EXPECT_THAT(words, ElementsAre(0U, 0U, 0U, 0U));
}

TEST(SampleConversionTest, ReadsNothingOfDataShorterThanOneSample) {
  for (const auto& description : {mono(16, 2), mono(32, 0), mono(32, 8)}) {
    Words words(2, 0xDEADBEEF);
    EXPECT_EQ(convertSamples(description, bytes({1}), words), 0U);
    EXPECT_THAT(words, ElementsAre(0U, 0U));
  }
}

TEST(SampleConversionTest, WritesNothingBeyondTheWordsItIsGiven) {
  const std::vector<std::byte> data(64, std::byte{1});
  for (const auto& description :
       {mono(32, 4), mono(16, 2), format(32, 8, 2, 0), format(16, 4, 2, 0)}) {
    Words words(3, 0xDEADBEEF);
    EXPECT_EQ(convertSamples(description, data, std::span(words).first(2)), 2U);
    EXPECT_EQ(words[2], 0xDEADBEEF);
  }
}

// The stride is 0 then; nothing beyond the data is read.
TEST(SampleConversionTest, ReadsTheFirstBytesAgainWhenFramesHaveNoSize) {
  EXPECT_THAT(converted(mono(32, 0), bytes({1, 2, 3, 4}), 2),
              ElementsAre(0x04030201U, 0x04030201U));
  EXPECT_THAT(converted(mono(16, 0), bytes({1, 2, 3, 4}), 2), ElementsAre(0U, 0U));
}

// The conversion in its long form: assemble, extend the sign from bit k - 1, shift to the top.
std::uint32_t extendedAndShifted(const std::byte* from, std::uint32_t sample_bytes,
                                 std::uint32_t bits) {
  std::uint32_t value = 0;
  for (std::uint32_t j = 0; j < sample_bytes; ++j) {
    value += std::to_integer<std::uint32_t>(from[j]) << (8 * j);
  }
  const std::uint32_t half = 1U << (bits - 1);
  const std::uint32_t mask = (1U << bits) - 1;
  return (((value + half) & mask) - half) << (32 - bits);
}

TEST(SampleConversionTest, EqualsSignExtensionAndShiftForEveryWidthAndSize) {
  std::mt19937 random(1);
  std::vector<std::byte> data(4096);
  for (auto& byte : data) byte = static_cast<std::byte>(random());
  for (std::uint32_t bits = 1; bits < 32; ++bits) {
    for (std::uint32_t sample_bytes = 1; sample_bytes <= 4; ++sample_bytes) {
      for (const std::uint32_t channels : {1U, 2U}) {
        const auto description = format(bits, sample_bytes * channels, channels, 0);
        const std::size_t stride = std::size_t{sample_bytes} * channels * channels;
        const auto words = converted(description, data, 100);
        Words expected;
        for (std::size_t i = 0; i < 100; ++i) {
          expected.push_back(extendedAndShifted(&data[i * stride], sample_bytes, bits));
        }
        ASSERT_THAT(words, ElementsAreArray(expected))
            << bits << " bits in " << sample_bytes << " bytes, " << channels << " channels";
      }
    }
  }
}

}  // namespace
