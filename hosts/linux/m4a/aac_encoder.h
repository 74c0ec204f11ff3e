// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "hosts/linux/base/expected.h"
#include "hosts/linux/m4a/libav_pointers.h"
#include "hosts/linux/m4a/m4a_writer.h"

namespace linux_host {

// AAC-LC with libavcodec's own encoder. One thread at a time; allocates.
class AacEncoder {
 public:
  // Called for each packet. If it fails, the call that produced the packet fails in the same way.
  using PacketHandler = std::function<Status(AVPacket&)>;

  // Once per encoder.
  Status open(const M4aFormat& format);
  Status encode(const float* const* planes, std::uint32_t frames, const PacketHandler& handle);
  // Encodes the rest; nothing may be encoded afterwards.
  Status flush(const PacketHandler& handle);

  [[nodiscard]] const AVCodecContext& codec() const { return *codec_; }
  // The number of frames so far, at the encoded sample rate.
  [[nodiscard]] std::uint64_t frames() const { return frames_; }

 private:
  // A source channel that is mixed into a channel of the file.
  struct Source {
    std::uint32_t plane;
    float gain;
  };

  Status openCodec(const AVCodec& aac, const AacChannels& channels, std::uint32_t sampleRate_hz,
                   std::uint32_t bitrate_bps);
  Status openResampler(std::uint32_t sampleRate_hz);
  Status resample(const float* const* planes, std::uint32_t frames, const PacketHandler& handle);
  // `write` stores `count` frames of a channel of the file, from frame `first` on, at the given
  // place.
  template <typename Write>
  Status fill(std::uint32_t frames, const Write& write, const PacketHandler& handle);
  // Mixes the source's planes into a channel of the file.
  void mix(std::size_t channel, const float* const* planes, std::uint32_t first,
           std::uint32_t count, float* to) const;
  Status send(AVFrame* frame, const PacketHandler& handle);

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
