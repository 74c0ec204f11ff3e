// SPDX-License-Identifier: MIT
// The sample conversion with any format and arbitrary bytes: it reads nothing outside the data,
// fills every word, and gives the same result as a straightforward implementation.
//
// Input: bits per channel, bytes per frame, channels, flags (32-bit each), the number of samples
// (16-bit), then the data; little-endian.

#include <cstdint>
#include <cstring>
#include <vector>

#include "capture/sample_conversion.h"
#include "tests/fuzz/fuzz_expect.h"

namespace {

using fuzz::expect;
using platform::AudioStreamBasicDescription;

constexpr std::uint32_t kUnset = 0xDEADBEEF;
constexpr std::size_t kHeader_bytes = 18;
// More than fit into any data that the fuzzer tries.
constexpr std::size_t kMostSamples = 4200;

template <typename T>
T take(const std::uint8_t*& at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  at += sizeof value;
  return value;
}

// The word at byte `at`; false when its bytes are not all there.
bool expectedWord(const AudioStreamBasicDescription& format, const std::vector<std::byte>& data,
                  std::uint64_t at, std::uint32_t* word) {
  const std::uint32_t bits = format.mBitsPerChannel;
  std::uint64_t size_bytes = bits == 32 ? 4 : format.mBytesPerFrame / format.mChannelsPerFrame;
  if (size_bytes > 4) size_bytes = 4;
  if (size_bytes > data.size() || at > data.size() - size_bytes) return false;
  std::uint32_t value = 0;
  for (std::uint64_t j = 0; j < size_bytes; ++j) {
    value |= std::to_integer<std::uint32_t>(data[at + j]) << (8 * j);
  }
  if (bits < 32) {
    const std::uint32_t half = 1U << (bits - 1);
    const std::uint32_t mask = (1U << bits) - 1;
    value = (((value + half) & mask) - half) << (32 - bits);
  }
  *word = value;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size_bytes) {
  if (size_bytes < kHeader_bytes) return 0;
  const std::uint8_t* at = input;
  AudioStreamBasicDescription format;
  format.mBitsPerChannel = take<std::uint32_t>(at);
  format.mBytesPerFrame = take<std::uint32_t>(at);
  format.mChannelsPerFrame = take<std::uint32_t>(at);
  format.mFormatFlags = take<std::uint32_t>(at);
  const std::size_t count = take<std::uint16_t>(at) % kMostSamples;
  if (!record_audio::canConvertSamples(format)) return 0;

  // A block of exactly that size, so that reading one byte too far is detected.
  const auto* first = reinterpret_cast<const std::byte*>(at);
  const std::vector<std::byte> data(first, first + (size_bytes - kHeader_bytes));
  std::vector<std::uint32_t> words(count, kUnset);
  const std::size_t present = record_audio::convertSamples(format, data, words);
  expect(present <= count, "no more samples than asked for");

  const bool planar = (format.mFormatFlags & platform::kAudioFormatFlagIsNonInterleaved) != 0;
  const std::uint64_t stride =
      std::uint64_t{format.mBytesPerFrame} * (planar ? 1U : format.mChannelsPerFrame);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t word = 0;
    // Once a sample is out of reach, all later ones are; the product cannot overflow before.
    const bool there = i <= present && expectedWord(format, data, i * stride, &word);
    expect(there == (i < present), "exactly the samples that are there");
    expect(words[i] == (there ? word : 0), "the word by the rule");
  }
  return 0;
}
