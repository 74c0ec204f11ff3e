// SPDX-License-Identifier: MIT
#include "capture/sample_conversion.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>

namespace record_audio {
namespace {

constexpr std::uint32_t kWordBits = 32;
constexpr std::size_t kWord_bytes = 4;

std::uint64_t stride_bytes(const platform::AudioStreamBasicDescription& format) {
  const bool planesApart = (format.mFormatFlags & platform::kAudioFormatFlagIsNonInterleaved) != 0;
  return std::uint64_t{format.mBytesPerFrame} * (planesApart ? 1U : format.mChannelsPerFrame);
}

// How many samples of `sample_bytes` lie within `data_bytes`, at most `wanted`.
std::size_t samplesWithin(std::size_t data_bytes, std::size_t sample_bytes, std::uint64_t stride,
                          std::size_t wanted) {
  if (data_bytes < sample_bytes) return 0;
  if (stride == 0) return wanted;
  return static_cast<std::size_t>(
      std::min<std::uint64_t>(wanted, (data_bytes - sample_bytes) / stride + 1));
}

void copyWords(const std::byte* from, std::uint64_t stride, std::span<std::uint32_t> words) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::memcpy(&words[i], from + i * stride, kWord_bytes);
  }
}

// Words without gaps, as in a plane of floats: a plain copy, without a division.
std::size_t copyAdjacentWords(std::span<const std::byte> data, std::span<std::uint32_t> words) {
  const std::size_t count = std::min(data.size() / kWord_bytes, words.size());
  std::ranges::copy(data.first(count * kWord_bytes), std::as_writable_bytes(words).begin());
  return count;
}

static_assert(std::endian::native == std::endian::little);

template <typename Unsigned>
std::uint32_t loaded(const std::byte* from) {
  Unsigned value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

template <std::size_t kSample_bytes>
std::uint32_t littleEndian(const std::byte* from) {
  if constexpr (kSample_bytes == 1) {
    return loaded<std::uint8_t>(from);
  } else if constexpr (kSample_bytes == 2) {
    return loaded<std::uint16_t>(from);
  } else if constexpr (kSample_bytes == 3) {
    return loaded<std::uint16_t>(from) | loaded<std::uint8_t>(from + 2) << 16;
  } else {
    return loaded<std::uint32_t>(from);
  }
}

// Shifting the sample to the top of the word also puts its sign bit there. No sign extension is
// needed: its bits would be shifted out again.
template <std::size_t kSample_bytes>
void widen(const std::byte* from, std::uint64_t stride, std::uint32_t shift,
           std::span<std::uint32_t> words) {
  if (stride == kSample_bytes) {  // the usual case, with a stride known to the compiler
    for (std::size_t i = 0; i < words.size(); ++i) {
      words[i] = littleEndian<kSample_bytes>(from + i * kSample_bytes) << shift;
    }
  } else {
    for (std::size_t i = 0; i < words.size(); ++i) {
      words[i] = littleEndian<kSample_bytes>(from + i * stride) << shift;
    }
  }
}

void widenSamples(std::size_t sample_bytes, const std::byte* from, std::uint64_t stride,
                  std::uint32_t shift, std::span<std::uint32_t> words) {
  switch (sample_bytes) {
    case 1:
      return widen<1>(from, stride, shift, words);
    case 2:
      return widen<2>(from, stride, shift, words);
    case 3:
      return widen<3>(from, stride, shift, words);
    case 4:
      return widen<4>(from, stride, shift, words);
    default:
      std::fill(words.begin(), words.end(), 0U);
  }
}

// For everything but words without gaps.
std::size_t convertSteps(const platform::AudioStreamBasicDescription& format,
                         std::span<const std::byte> data, std::span<std::uint32_t> words) {
  const std::uint64_t stride = stride_bytes(format);
  const bool wholeWords = format.mBitsPerChannel == kWordBits;
  // A fifth byte and those after it would be shifted out of the word.
  const std::size_t sample_bytes =
      wholeWords
          ? kWord_bytes
          : std::min<std::size_t>(format.mBytesPerFrame / format.mChannelsPerFrame, kWord_bytes);
  const std::size_t count = samplesWithin(data.size(), sample_bytes, stride, words.size());
  const auto present = words.first(count);
  if (wholeWords) {
    copyWords(data.data(), stride, present);
  } else {
    widenSamples(sample_bytes, data.data(), stride, kWordBits - format.mBitsPerChannel, present);
  }
  return count;
}

}  // namespace

bool canConvertSamples(const platform::AudioStreamBasicDescription& format) {
  return format.mChannelsPerFrame > 0 && format.mBitsPerChannel > 0 &&
         format.mBitsPerChannel <= kWordBits;
}

std::size_t convertSamples(const platform::AudioStreamBasicDescription& format,
                           std::span<const std::byte> data, std::span<std::uint32_t> words) {
  assert(canConvertSamples(format));
  const bool adjacentWords =
      format.mBitsPerChannel == kWordBits && stride_bytes(format) == kWord_bytes;
  const std::size_t count =
      adjacentWords ? copyAdjacentWords(data, words) : convertSteps(format, data, words);
  std::ranges::fill(words.subspan(count), 0U);
  return count;
}

}  // namespace record_audio
