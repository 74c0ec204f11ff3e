// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/aac_encoder.h"

#include <algorithm>
#include <array>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace linux_host {

namespace {

// libav's layout for a set of speakers.
AVChannelLayout libavLayout(const std::vector<Speaker>& speakers) {
  constexpr std::array<AVChannel, 9> kChannels{
      AV_CHAN_FRONT_LEFT,    AV_CHAN_FRONT_RIGHT, AV_CHAN_FRONT_CENTER,
      AV_CHAN_LOW_FREQUENCY, AV_CHAN_BACK_LEFT,   AV_CHAN_BACK_RIGHT,
      AV_CHAN_BACK_CENTER,   AV_CHAN_SIDE_LEFT,   AV_CHAN_SIDE_RIGHT};
  std::uint64_t mask = 0;
  for (const Speaker speaker : speakers) {
    mask |= std::uint64_t{1} << kChannels.at(static_cast<std::size_t>(speaker));
  }
  AVChannelLayout layout{};
  av_channel_layout_from_mask(&layout, mask);
  return layout;
}

Unexpected<std::string> noMemory() {
  return Unexpected("There is not enough memory for the AAC encoder.");
}

// The encoder refuses a whole packet because of one value that is not finite, and such values must
// not spoil their neighbours. Values more than 24 dB over full scale are not sound.
float clean(float sample) {
  constexpr float kLimit = 16.0F;
  const float bounded = std::min(std::max(sample, -kLimit), kLimit);
  return sample - sample == 0.0F ? bounded : 0.0F;
}

}  // namespace

Status AacEncoder::open(const M4aFormat& format) {
  if (format.sampleRate_hz == 0 || format.speakers.empty() || format.bitrate_bps == 0) {
    return Unexpected(
        "An m4a recording needs at least one channel, a sample rate and a bit rate; it was given " +
        std::to_string(format.speakers.size()) + " channels, " +
        std::to_string(format.sampleRate_hz) + " Hz and " + std::to_string(format.bitrate_bps) +
        " bit/s.");
  }
  const AVCodec* aac = avcodec_find_encoder(AV_CODEC_ID_AAC);
  if (!aac) {
    return Unexpected(
        "libavcodec has no AAC encoder of its own; install a complete libavcodec or record MP3.");
  }
  const std::uint32_t encodedRate_hz = nearestAacRate_hz(format.sampleRate_hz);
  const AacChannels channels = aacChannelsFor(format.speakers);
  Status opened = openCodec(*aac, channels, encodedRate_hz, format.bitrate_bps);
  if (!opened || encodedRate_hz == format.sampleRate_hz) return opened;
  return openResampler(format.sampleRate_hz);
}

Status AacEncoder::openCodec(const AVCodec& aac, const AacChannels& channels,
                             std::uint32_t sampleRate_hz, std::uint32_t bitrate_bps) {
  sources_.resize(channels.layout.size());
  for (const AacRoute& route : channels.routes) {
    sources_[route.to].push_back({route.from, route.gain});
  }
  const AVChannelLayout layout = libavLayout(channels.layout);
  codec_.reset(avcodec_alloc_context3(&aac));
  frame_.reset(av_frame_alloc());
  packet_.reset(av_packet_alloc());
  if (!codec_ || !frame_ || !packet_) return noMemory();
  codec_->sample_rate = static_cast<int>(sampleRate_hz);
  codec_->sample_fmt = AV_SAMPLE_FMT_FLTP;
  codec_->ch_layout = layout;
  codec_->bit_rate = bitrate_bps;
  codec_->time_base = {1, codec_->sample_rate};
  codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;  // MP4 keeps the codec's configuration in its index
  codec_->thread_count = 1;
  if (const int code = avcodec_open2(codec_.get(), &aac, nullptr); code < 0) {
    return Unexpected("The AAC encoder does not take " + std::to_string(layout.nb_channels) +
                      " channels at " + std::to_string(sampleRate_hz) + " Hz: " +
                      libavErrorText(code) + ". Choose another audio source or record MP3.");
  }
  frame_->format = codec_->sample_fmt;
  frame_->ch_layout = layout;
  frame_->sample_rate = codec_->sample_rate;
  frame_->nb_samples = codec_->frame_size;
  if (av_frame_get_buffer(frame_.get(), 0) < 0) return noMemory();
  return {};
}

Status AacEncoder::openResampler(std::uint32_t sampleRate_hz) {
  SwrContext* resampler = nullptr;
  const int code = swr_alloc_set_opts2(&resampler, &codec_->ch_layout, AV_SAMPLE_FMT_FLTP,
                                       codec_->sample_rate, &codec_->ch_layout, AV_SAMPLE_FMT_FLTP,
                                       static_cast<int>(sampleRate_hz), 0, nullptr);
  resampler_.reset(resampler);
  if (code < 0 || swr_init(resampler) < 0) {
    return Unexpected("Sound at " + std::to_string(sampleRate_hz) +
                      " Hz cannot be converted for AAC. Choose another sample rate for the audio "
                      "source or record MP3.");
  }
  resampled_.resize(static_cast<std::size_t>(codec_->ch_layout.nb_channels));
  return {};
}

template <typename Write>
Status AacEncoder::fill(std::uint32_t frames, const Write& write, const PacketHandler& handle) {
  std::uint32_t taken = 0;
  while (taken < frames) {
    if (av_frame_make_writable(frame_.get()) < 0) {
      return noMemory();
    }
    const std::uint32_t now =
        std::min(frames - taken, static_cast<std::uint32_t>(codec_->frame_size - filled_frames_));
    for (std::size_t channel = 0; channel < sources_.size(); ++channel) {
      auto* plane = reinterpret_cast<float*>(frame_->extended_data[channel]);
      write(channel, taken, now, plane + filled_frames_);
    }
    filled_frames_ += static_cast<int>(now);
    taken += now;
    if (filled_frames_ < codec_->frame_size) break;
    if (Status sent = send(frame_.get(), handle); !sent) return sent;
  }
  return {};
}

Status AacEncoder::encode(const float* const* planes, std::uint32_t frames,
                          const PacketHandler& handle) {
  if (resampler_) return resample(planes, frames, handle);
  const auto mixed = [this, planes](std::size_t channel, std::uint32_t first, std::uint32_t length,
                                    float* to) { mix(channel, planes, first, length, to); };
  return fill(frames, mixed, handle);
}

Status AacEncoder::resample(const float* const* planes, std::uint32_t frames,
                            const PacketHandler& handle) {
  std::array<const std::uint8_t*, 8> in{};
  std::array<std::uint8_t*, 8> out{};
  const int space = swr_get_out_samples(resampler_.get(), static_cast<int>(frames));
  std::vector<std::vector<float>> mixed(planes ? resampled_.size() : 0);
  for (std::size_t i = 0; i < resampled_.size(); ++i) {
    resampled_[i].resize(static_cast<std::size_t>(std::max(space, 1)));
    out[i] = reinterpret_cast<std::uint8_t*>(resampled_[i].data());
    if (!planes) continue;
    mixed[i].resize(frames);
    mix(i, planes, 0, frames, mixed[i].data());
    in[i] = reinterpret_cast<const std::uint8_t*>(mixed[i].data());
  }
  const int count = swr_convert(resampler_.get(), out.data(), space, planes ? in.data() : nullptr,
                                static_cast<int>(frames));
  if (count < 0) {
    return Unexpected("Converting the sample rate for AAC failed: " + libavErrorText(count) + ".");
  }
  const auto copy = [this](std::size_t channel, std::uint32_t first, std::uint32_t length,
                           float* to) {
    std::copy_n(resampled_[channel].data() + first, length, to);
  };
  return fill(static_cast<std::uint32_t>(count), copy, handle);
}

void AacEncoder::mix(std::size_t channel, const float* const* planes, std::uint32_t first,
                     std::uint32_t count, float* to) const {
  std::fill_n(to, count, 0.0F);
  for (const Source& source : sources_[channel]) {
    const float* from = planes[source.plane] + first;
    for (std::uint32_t i = 0; i < count; ++i) to[i] = clean(to[i] + source.gain * clean(from[i]));
  }
}

Status AacEncoder::flush(const PacketHandler& handle) {
  if (resampler_) {
    if (Status resampled = resample(nullptr, 0, handle); !resampled) return resampled;
  }
  if (filled_frames_ > 0) {
    frame_->nb_samples = filled_frames_;
    if (Status sent = send(frame_.get(), handle); !sent) return sent;
  }
  return send(nullptr, handle);
}

// A null `frame` means the end.
Status AacEncoder::send(AVFrame* frame, const PacketHandler& handle) {
  if (frame) {
    frame->pts = static_cast<std::int64_t>(frames_);
    frames_ += static_cast<std::uint64_t>(filled_frames_);
    filled_frames_ = 0;
  }
  int code = avcodec_send_frame(codec_.get(), frame);
  while (code >= 0) {
    code = avcodec_receive_packet(codec_.get(), packet_.get());
    if (code < 0) break;
    Status handled = handle(*packet_);
    av_packet_unref(packet_.get());
    if (!handled) return handled;
  }
  if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return {};
  return Unexpected("The AAC encoder failed: " + libavErrorText(code) + ".");
}

}  // namespace linux_host
