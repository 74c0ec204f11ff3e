#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "hosts/linux/m4a/libav_pointers.h"

namespace linux_host {

// AAC-LC by libavcodec's own encoder. One thread at a time; allocates.
class AacEncoder {
 public:
  // Given each packet as it comes; an error text it returns ends the call that made the packet.
  using PacketHandler = std::function<std::string(AVPacket&)>;

  // Once per encoder. Channel counts without a standard AAC layout fall back to the first two
  // channels, sample rates that AAC does not have are converted to the nearest lower one.
  [[nodiscard]] std::string open(std::uint32_t sampleRate_hz, std::uint32_t channels,
                                 std::uint32_t bitrate_bps);
  [[nodiscard]] std::string encode(const float* const* planes, std::uint32_t frames,
                                   const PacketHandler& handle);
  // Encodes what is left; nothing may be encoded afterwards.
  [[nodiscard]] std::string flush(const PacketHandler& handle);

  [[nodiscard]] const AVCodecContext& codec() const { return *codec_; }
  // Taken so far, at the encoded sample rate.
  [[nodiscard]] std::uint64_t frames() const { return frames_; }

 private:
  [[nodiscard]] std::string openCodec(const AVCodec& aac, std::uint32_t sampleRate_hz,
                                      const AVChannelLayout& layout, std::uint32_t bitrate_bps);
  [[nodiscard]] std::string openResampler(std::uint32_t sampleRate_hz);
  [[nodiscard]] std::string resample(const float* const* planes, std::uint32_t frames,
                                     const PacketHandler& handle);
  [[nodiscard]] std::string fill(const float* const* planes, std::uint32_t frames,
                                 const PacketHandler& handle);
  [[nodiscard]] std::string send(AVFrame* frame, const PacketHandler& handle);

  LibavPointer<AVCodecContext> codec_;
  LibavPointer<SwrContext> resampler_;  // null when the rate is one of AAC's
  LibavPointer<AVFrame> frame_;         // collects the samples of one packet
  LibavPointer<AVPacket> packet_;
  std::vector<std::vector<float>> resampled_;
  int filled_frames_ = 0;
  std::uint64_t frames_ = 0;
};

}  // namespace linux_host
