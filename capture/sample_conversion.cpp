#include "capture/sample_conversion.h"

#include <algorithm>
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
  if (stride == kWord_bytes) {
    if (!words.empty()) std::memcpy(words.data(), from, words.size_bytes());
    return;
  }
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::memcpy(&words[i], from + i * stride, kWord_bytes);
  }
}

template <std::size_t kSample_bytes>
std::uint32_t littleEndian(const std::byte* from) {
  std::uint32_t value = 0;
  for (std::size_t j = 0; j < kSample_bytes; ++j) {
    value |= std::to_integer<std::uint32_t>(from[j]) << (8 * j);
  }
  return value;
}

// Moving the sample to the top of the word gives it its sign: what would be extended below the
// sign bit is shifted out again, so there is nothing to extend.
template <std::size_t kSample_bytes>
void widen(const std::byte* from, std::uint64_t stride, std::uint32_t shift,
           std::span<std::uint32_t> words) {
  if (stride == kSample_bytes) {  // the usual case, with a stride known to the compiler
    for (std::size_t i = 0; i < words.size(); ++i) {
      words[i] = littleEndian<kSample_bytes>(from + i * kSample_bytes) << shift;
    }
    return;
  }
  for (std::size_t i = 0; i < words.size(); ++i) {
    words[i] = littleEndian<kSample_bytes>(from + i * stride) << shift;
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

}  // namespace

bool canConvertSamples(const platform::AudioStreamBasicDescription& format) {
  return format.mChannelsPerFrame > 0 && format.mBitsPerChannel > 0 &&
         format.mBitsPerChannel <= kWordBits;
}

std::size_t convertSamples(const platform::AudioStreamBasicDescription& format,
                           std::span<const std::byte> data, std::span<std::uint32_t> words) {
  assert(canConvertSamples(format));
  const bool wholeWords = format.mBitsPerChannel == kWordBits;
  // Bytes beyond the fourth would be shifted out of the word.
  const std::size_t sample_bytes =
      wholeWords
          ? kWord_bytes
          : std::min<std::size_t>(format.mBytesPerFrame / format.mChannelsPerFrame, kWord_bytes);
  const std::uint64_t stride = stride_bytes(format);
  const std::size_t count = samplesWithin(data.size(), sample_bytes, stride, words.size());
  const auto present = words.first(count);
  if (wholeWords) {
    copyWords(data.data(), stride, present);
  } else {
    widenSamples(sample_bytes, data.data(), stride, kWordBits - format.mBitsPerChannel, present);
  }
  std::fill(words.begin() + static_cast<std::ptrdiff_t>(count), words.end(), 0U);
  return count;
}

}  // namespace record_audio
