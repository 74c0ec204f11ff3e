// SPDX-License-Identifier: MIT
#include "bench/encoders_alone.h"

#include <lame/lame.h>

#include <algorithm>
#include <cstddef>
#include <ctime>

#include "capture/mp3_encoder.h"
#include "hosts/linux/m4a/libav_pointers.h"

namespace {

constexpr std::size_t kMp3Block_frames = 2048;

}  // namespace

double threadCpuTime_s() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double aacAloneCpu_s(const std::vector<std::vector<float>>& channels) {
  using linux_host::LibavPointer;
  const double begin_s = threadCpuTime_s();
  const AVCodec* aac = avcodec_find_encoder(AV_CODEC_ID_AAC);
  const LibavPointer<AVCodecContext> codec(avcodec_alloc_context3(aac));
  codec->sample_rate = kBenchRate_Hz;
  codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
  codec->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
  codec->bit_rate = kBenchAacBitrate_bps;
  codec->thread_count = 1;
  if (avcodec_open2(codec.get(), aac, nullptr) < 0) return -1;
  const LibavPointer<AVFrame> frame(av_frame_alloc());
  const LibavPointer<AVPacket> packet(av_packet_alloc());
  frame->format = codec->sample_fmt;
  frame->ch_layout = codec->ch_layout;
  frame->nb_samples = codec->frame_size;
  av_frame_get_buffer(frame.get(), 0);
  const auto frameSize = static_cast<std::size_t>(codec->frame_size);
  for (std::size_t done = 0; done + frameSize <= channels[0].size(); done += frameSize) {
    av_frame_make_writable(frame.get());
    for (std::size_t channel = 0; channel < 2; ++channel) {
      std::copy_n(channels[channel].data() + done, frameSize,
                  reinterpret_cast<float*>(frame->extended_data[channel]));
    }
    frame->pts = static_cast<std::int64_t>(done);
    avcodec_send_frame(codec.get(), frame.get());
    while (avcodec_receive_packet(codec.get(), packet.get()) >= 0) av_packet_unref(packet.get());
  }
  return threadCpuTime_s() - begin_s;
}

double mp3AloneCpu_s(const std::vector<std::vector<float>>& channels) {
  const double begin_s = threadCpuTime_s();
  const auto lame = record_audio::createLame({2, static_cast<int>(kBenchRate_Hz), 0, 0});
  if (lame == nullptr) return -1;
  // LAME's own bound for the output of a block.
  std::vector<unsigned char> bytes(kMp3Block_frames * 5 / 4 + 7200);
  const std::size_t frames = channels[0].size();
  for (std::size_t done = 0; done < frames; done += kMp3Block_frames) {
    const int count = static_cast<int>(std::min(kMp3Block_frames, frames - done));
    const int written = lame_encode_buffer_ieee_float(lame.get(), channels[0].data() + done,
                                                      channels[1].data() + done, count,
                                                      bytes.data(), static_cast<int>(bytes.size()));
    if (written < 0) return -1;
  }
  return threadCpuTime_s() - begin_s;
}
