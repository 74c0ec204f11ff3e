// SPDX-License-Identifier: MIT
#include "hosts/linux/recovery/mp3_stream.h"

#include <array>
#include <cstdint>

namespace linux_host {
namespace {

constexpr std::size_t kHeader_bytes = 4;
constexpr unsigned kLayer3 = 1;
// Players recognise a stream by its second header.
constexpr int kFewestFrames = 2;
// By the header's version bits; 1 is reserved.
constexpr unsigned kMpeg25 = 0;
constexpr unsigned kMpeg1 = 3;

constexpr std::array<unsigned, 15> kMpeg1Rates_kbps{0,   32,  40,  48,  56,  64,  80, 96,
                                                    112, 128, 160, 192, 224, 256, 320};
constexpr std::array<unsigned, 15> kMpeg2Rates_kbps{0,  8,  16, 24,  32,  40,  48, 56,
                                                    64, 80, 96, 112, 128, 144, 160};
constexpr std::array<unsigned, 3> kSampleRates_hz{44100, 48000, 32000};

struct Mp3Frame {
  unsigned bitrate_bps;
  unsigned sampleRate_hz;
  unsigned version;
  std::uint64_t size_bytes;

  [[nodiscard]] bool isOfOneStreamWith(const Mp3Frame& other) const {
    return bitrate_bps == other.bitrate_bps && sampleRate_hz == other.sampleRate_hz &&
           version == other.version;
  }
};

std::optional<Mp3Frame> frameAt(const OpenFile& file, std::uint64_t offset_bytes) {
  std::array<std::byte, kHeader_bytes> bytes{};
  if (file.readAt(offset_bytes, bytes) < bytes.size()) return std::nullopt;
  std::uint32_t header = 0;
  for (const std::byte byte : bytes) header = header << 8 | std::to_integer<std::uint32_t>(byte);
  const unsigned version = header >> 19 & 3;
  const unsigned bitrate = header >> 12 & 15;
  const unsigned rate = header >> 10 & 3;
  const bool inSync = header >> 21 == 0x7FF;
  if (!inSync || version == 1 || (header >> 17 & 3) != kLayer3 || bitrate == 0 ||
      bitrate >= kMpeg1Rates_kbps.size() || rate >= kSampleRates_hz.size()) {
    return std::nullopt;
  }
  Mp3Frame frame{};
  frame.version = version;
  frame.bitrate_bps = (version == kMpeg1 ? kMpeg1Rates_kbps : kMpeg2Rates_kbps)[bitrate] * 1000;
  frame.sampleRate_hz = kSampleRates_hz[rate];
  if (version != kMpeg1) frame.sampleRate_hz /= version == kMpeg25 ? 4 : 2;
  const unsigned samplesBy8 = version == kMpeg1 ? 144 : 72;
  frame.size_bytes = samplesBy8 * frame.bitrate_bps / frame.sampleRate_hz + (header >> 9 & 1);
  return frame;
}

}  // namespace

std::optional<double> mp3Duration_s(const OpenFile& file) {
  const auto first = frameAt(file, 0);
  if (!first) return std::nullopt;
  const std::uint64_t size_bytes = file.size_bytes();
  if (size_bytes < first->size_bytes + kHeader_bytes) return 0.0;
  const auto second = frameAt(file, first->size_bytes);
  if (!second || !second->isOfOneStreamWith(*first)) return std::nullopt;
  return static_cast<double>(size_bytes) * 8 / first->bitrate_bps;
}

std::optional<std::uint64_t> tornMp3Frame_bytes(const OpenFile& file) {
  const std::uint64_t size_bytes = file.size_bytes();
  std::uint64_t position_bytes = 0;
  int wholeFrames = 0;
  while (position_bytes + kHeader_bytes <= size_bytes) {
    const auto frame = frameAt(file, position_bytes);
    if (!frame) return std::nullopt;
    if (position_bytes + frame->size_bytes > size_bytes) break;
    position_bytes += frame->size_bytes;
    ++wholeFrames;
  }
  if (wholeFrames < kFewestFrames || position_bytes == size_bytes) return std::nullopt;
  return position_bytes;
}

}  // namespace linux_host
