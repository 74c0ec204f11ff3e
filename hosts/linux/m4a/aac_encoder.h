// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "hosts/linux/m4a/libav_pointers.h"
#include "hosts/linux/m4a/m4a_writer.h"

namespace linux_host {

// AAC-LC with libavcodec's own encoder. One thread at a time; allocates.
class AacEncoder {
 public:
  // Called for each packet. If it returns an error text, the call that produced the packet ends
  // with it.
  using PacketHandler = std::function<std::string(AVPacket&)>;

  // Once per encoder. Returns an error text, empty on success.
  [[nodiscard]] std::string open(const M4aFormat& format);
  [[nodiscard]] std::string encode(const float* const* planes, std::uint32_t frames,
                                   const PacketHandler& handle);
  // Encodes the rest; nothing may be encoded afterwards.
  [[nodiscard]] std::string flush(const PacketHandler& handle);

  [[nodiscard]] const AVCodecContext& codec() const { return *codec_; }
  // The number of frames so far, at the encoded sample rate.
  [[nodiscard]] std::uint64_t frames() const { return frames_; }

 private:
  // A source channel that is mixed into a channel of the file.
  struct Source {
    std::uint32_t plane;
    float gain;
  };

  [[nodiscard]] std::string openCodec(const AVCodec& aac, const AacChannels& channels,
                                      std::uint32_t sampleRate_hz, std::uint32_t bitrate_bps);
  [[nodiscard]] std::string openResampler(std::uint32_t sampleRate_hz);
  [[nodiscard]] std::string resample(const float* const* planes, std::uint32_t frames,
                                     const PacketHandler& handle);
  // `write` stores `count` frames of a channel of the file, from frame `first` on, at the given
  // place.
  template <typename Write>
  [[nodiscard]] std::string fill(std::uint32_t frames, const Write& write,
                                 const PacketHandler& handle);
  // Mixes the source's planes into a channel of the file.
  void mix(std::size_t channel, const float* const* planes, std::uint32_t first,
           std::uint32_t count, float* to) const;
  [[nodiscard]] std::string send(AVFrame* frame, const PacketHandler& handle);

  LibavPointer<AVCodecContext> codec_;
  LibavPointer<SwrContext> resampler_;  // null when AAC supports the rate
  LibavPointer<AVFrame> frame_;         // collects the samples of one packet
  LibavPointer<AVPacket> packet_;
  std::vector<std::vector<Source>> sources_;  // by channel of the file
  std::vector<std::vector<float>> resampled_;
  int filled_frames_ = 0;
  std::uint64_t frames_ = 0;
};

}  // namespace linux_host
