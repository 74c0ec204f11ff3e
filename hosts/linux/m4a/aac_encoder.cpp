#include "hosts/linux/m4a/aac_encoder.h"

#include <algorithm>
#include <array>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace linux_host {

namespace {

// The layouts that AAC names with a plain number; every player knows them.
AVChannelLayout layoutFor(std::uint32_t channels) {
  switch (channels) {
    case 1:
      return AV_CHANNEL_LAYOUT_MONO;
    case 3:
      return AV_CHANNEL_LAYOUT_SURROUND;
    case 4:
      return AV_CHANNEL_LAYOUT_4POINT0;
    case 5:
      return AV_CHANNEL_LAYOUT_5POINT0_BACK;
    case 6:
      return AV_CHANNEL_LAYOUT_5POINT1_BACK;
    case 8:
      return AV_CHANNEL_LAYOUT_7POINT1;
    default:
      return AV_CHANNEL_LAYOUT_STEREO;
  }
}

// The sample rates that AAC has a number for (ISO/IEC 14496-3), the highest first. The encoder
// takes all of them; each release of libavcodec has another way of saying so.
constexpr std::array<std::uint32_t, 13> kRates_hz{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                  22050, 16000, 12000, 11025, 8000,  7350};

std::uint32_t encodedRateFor(std::uint32_t sampleRate_hz) {
  const auto* nearest = std::ranges::find_if(
      kRates_hz, [&](std::uint32_t rate_hz) { return rate_hz <= sampleRate_hz; });
  return nearest != kRates_hz.end() ? *nearest : kRates_hz.back();
}

// The encoder refuses a whole packet for one value that is not finite, and such values must not
// spoil their neighbours; beyond 24 dB over full scale nothing is sound any more.
void copyClean(float* to, const float* from, std::uint32_t frames) {
  constexpr float kLimit = 16.0F;
  for (std::uint32_t i = 0; i < frames; ++i) {
    const float sample = from[i];
    const float bounded = std::min(std::max(sample, -kLimit), kLimit);
    to[i] = sample - sample == 0.0F ? bounded : 0.0F;
  }
}

}  // namespace

std::string AacEncoder::open(std::uint32_t sampleRate_hz, std::uint32_t channels,
                             std::uint32_t bitrate_bps) {
  if (sampleRate_hz == 0 || channels == 0 || bitrate_bps == 0) {
    return "An m4a recording needs at least one channel, a sample rate and a bit rate; it was "
           "given " +
           std::to_string(channels) + " channels, " + std::to_string(sampleRate_hz) + " Hz and " +
           std::to_string(bitrate_bps) + " bit/s.";
  }
  const AVCodec* aac = avcodec_find_encoder(AV_CODEC_ID_AAC);
  if (!aac) {
    return "libavcodec has no AAC encoder of its own; install a complete libavcodec or record MP3.";
  }
  std::string error =
      openCodec(*aac, encodedRateFor(sampleRate_hz), layoutFor(channels), bitrate_bps);
  if (!error.empty()) return error;
  if (static_cast<std::uint32_t>(codec_->sample_rate) == sampleRate_hz) return "";
  return openResampler(sampleRate_hz);
}

std::string AacEncoder::openCodec(const AVCodec& aac, std::uint32_t sampleRate_hz,
                                  const AVChannelLayout& layout, std::uint32_t bitrate_bps) {
  codec_.reset(avcodec_alloc_context3(&aac));
  frame_.reset(av_frame_alloc());
  packet_.reset(av_packet_alloc());
  if (!codec_ || !frame_ || !packet_) return "There is no memory left for the AAC encoder.";
  codec_->sample_rate = static_cast<int>(sampleRate_hz);
  codec_->sample_fmt = AV_SAMPLE_FMT_FLTP;
  codec_->ch_layout = layout;
  codec_->bit_rate = bitrate_bps;
  codec_->time_base = {1, codec_->sample_rate};
  codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;  // MP4 keeps the codec's set-up in its index
  codec_->thread_count = 1;
  if (const int code = avcodec_open2(codec_.get(), &aac, nullptr); code < 0) {
    return "The AAC encoder does not take " + std::to_string(layout.nb_channels) + " channels at " +
           std::to_string(sampleRate_hz) + " Hz: " + libavErrorText(code) +
           ". Choose another audio source or record MP3.";
  }
  frame_->format = codec_->sample_fmt;
  frame_->ch_layout = layout;
  frame_->sample_rate = codec_->sample_rate;
  frame_->nb_samples = codec_->frame_size;
  if (av_frame_get_buffer(frame_.get(), 0) < 0)
    return "There is no memory left for the AAC encoder.";
  return "";
}

std::string AacEncoder::openResampler(std::uint32_t sampleRate_hz) {
  SwrContext* resampler = nullptr;
  const int code = swr_alloc_set_opts2(&resampler, &codec_->ch_layout, AV_SAMPLE_FMT_FLTP,
                                       codec_->sample_rate, &codec_->ch_layout, AV_SAMPLE_FMT_FLTP,
                                       static_cast<int>(sampleRate_hz), 0, nullptr);
  resampler_.reset(resampler);
  if (code < 0 || swr_init(resampler) < 0) {
    return "Sound at " + std::to_string(sampleRate_hz) +
           " Hz cannot be converted for AAC. Choose another sample rate for the audio source or "
           "record MP3.";
  }
  resampled_.resize(static_cast<std::size_t>(codec_->ch_layout.nb_channels));
  return "";
}

std::string AacEncoder::encode(const float* const* planes, std::uint32_t frames,
                               const PacketHandler& handle) {
  return resampler_ ? resample(planes, frames, handle) : fill(planes, frames, handle);
}

std::string AacEncoder::resample(const float* const* planes, std::uint32_t frames,
                                 const PacketHandler& handle) {
  std::array<const std::uint8_t*, 8> in{};
  std::array<std::uint8_t*, 8> out{};
  std::array<const float*, 8> done{};
  const int space = swr_get_out_samples(resampler_.get(), static_cast<int>(frames));
  std::vector<std::vector<float>> clean(planes ? resampled_.size() : 0);
  for (std::size_t i = 0; i < resampled_.size(); ++i) {
    resampled_[i].resize(static_cast<std::size_t>(std::max(space, 1)));
    out[i] = reinterpret_cast<std::uint8_t*>(resampled_[i].data());
    done[i] = resampled_[i].data();
    if (!planes) continue;
    clean[i].resize(frames);
    copyClean(clean[i].data(), planes[i], frames);
    in[i] = reinterpret_cast<const std::uint8_t*>(clean[i].data());
  }
  const int count = swr_convert(resampler_.get(), out.data(), space, planes ? in.data() : nullptr,
                                static_cast<int>(frames));
  if (count < 0) return "Converting the sample rate for AAC failed: " + libavErrorText(count) + ".";
  return fill(done.data(), static_cast<std::uint32_t>(count), handle);
}

std::string AacEncoder::fill(const float* const* planes, std::uint32_t frames,
                             const PacketHandler& handle) {
  std::uint32_t taken = 0;
  while (taken < frames) {
    if (av_frame_make_writable(frame_.get()) < 0) {
      return "There is no memory left for the AAC encoder.";
    }
    const std::uint32_t now =
        std::min(frames - taken, static_cast<std::uint32_t>(codec_->frame_size - filled_frames_));
    for (int channel = 0; channel < codec_->ch_layout.nb_channels; ++channel) {
      auto* plane = reinterpret_cast<float*>(frame_->extended_data[channel]);
      copyClean(plane + filled_frames_, planes[channel] + taken, now);
    }
    filled_frames_ += static_cast<int>(now);
    taken += now;
    if (filled_frames_ < codec_->frame_size) break;
    if (std::string error = send(frame_.get(), handle); !error.empty()) return error;
  }
  return "";
}

std::string AacEncoder::flush(const PacketHandler& handle) {
  if (resampler_) {
    if (std::string error = resample(nullptr, 0, handle); !error.empty()) return error;
  }
  if (filled_frames_ > 0) {
    frame_->nb_samples = filled_frames_;
    if (std::string error = send(frame_.get(), handle); !error.empty()) return error;
  }
  return send(nullptr, handle);
}

// `frame` null: the end.
std::string AacEncoder::send(AVFrame* frame, const PacketHandler& handle) {
  if (frame) {
    frame->pts = static_cast<std::int64_t>(frames_);
    frames_ += static_cast<std::uint64_t>(filled_frames_);
    filled_frames_ = 0;
  }
  int code = avcodec_send_frame(codec_.get(), frame);
  while (code >= 0) {
    code = avcodec_receive_packet(codec_.get(), packet_.get());
    if (code < 0) break;
    std::string error = handle(*packet_);
    av_packet_unref(packet_.get());
    if (!error.empty()) return error;
  }
  if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return "";
  return "The AAC encoder failed: " + libavErrorText(code) + ".";
}

}  // namespace linux_host
