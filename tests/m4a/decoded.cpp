// SPDX-License-Identifier: MIT
#include "tests/m4a/decoded.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstring>
#include <memory>

#include "hosts/linux/m4a/libav_pointers.h"

namespace linux_host::test {

namespace {

struct MemoryReader {
  std::span<const std::byte> file;
  std::int64_t position = 0;

  static int read(void* self, std::uint8_t* to, int size) {
    auto& reader = *static_cast<MemoryReader*>(self);
    const auto left = static_cast<std::int64_t>(reader.file.size()) - reader.position;
    if (left <= 0) return AVERROR_EOF;
    const auto count = std::min<std::int64_t>(left, size);
    std::memcpy(to, reader.file.data() + reader.position, static_cast<std::size_t>(count));
    reader.position += count;
    return static_cast<int>(count);
  }
  static std::int64_t seek(void* self, std::int64_t offset, int whence) {
    auto& reader = *static_cast<MemoryReader*>(self);
    const auto size = static_cast<std::int64_t>(reader.file.size());
    if (whence == AVSEEK_SIZE) return size;
    if (whence == SEEK_CUR) offset += reader.position;
    if (whence == SEEK_END) offset += size;
    reader.position = std::clamp<std::int64_t>(offset, 0, size);
    return reader.position;
  }
};

struct CloseInput {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

struct FreeReader {
  void operator()(AVIOContext* context) const {
    av_freep(&context->buffer);
    avio_context_free(&context);
  }
};

void collect(const AVFrame& frame, Decoded* decoded) {
  decoded->planes.resize(static_cast<std::size_t>(frame.ch_layout.nb_channels));
  for (std::size_t i = 0; i < decoded->planes.size(); ++i) {
    const auto* samples = reinterpret_cast<const float*>(frame.extended_data[i]);
    decoded->planes[i].insert(decoded->planes[i].end(), samples, samples + frame.nb_samples);
  }
}

void decode(AVCodecContext* codec, const AVPacket* packet, AVFrame* frame, Decoded* decoded) {
  int code = avcodec_send_packet(codec, packet);
  while (code >= 0) {
    code = avcodec_receive_frame(codec, frame);
    if (code >= 0) collect(*frame, decoded);
  }
  if (code != AVERROR(EAGAIN) && code != AVERROR_EOF) decoded->error = libavErrorText(code);
}

}  // namespace

Decoded decodeM4a(std::span<const std::byte> file) {
  Decoded decoded;
  MemoryReader reader{file};
  constexpr int kBuffer_bytes = 4096;
  const std::unique_ptr<AVIOContext, FreeReader> io(
      avio_alloc_context(static_cast<unsigned char*>(av_malloc(kBuffer_bytes)), kBuffer_bytes, 0,
                         &reader, &MemoryReader::read, nullptr, &MemoryReader::seek));
  AVFormatContext* raw = avformat_alloc_context();
  raw->pb = io.get();
  if (const int code = avformat_open_input(&raw, nullptr, nullptr, nullptr); code < 0) {
    decoded.error = libavErrorText(code);
    return decoded;
  }
  const std::unique_ptr<AVFormatContext, CloseInput> format(raw);
  avformat_find_stream_info(raw, nullptr);
  if (raw->nb_streams != 1) {
    decoded.error = "not one stream";
    return decoded;
  }
  decoded.opened = true;
  const AVDictionaryEntry* tag = nullptr;
  while ((tag = av_dict_get(raw->metadata, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
    decoded.tags[tag->key] = tag->value;
  }
  const AVStream& stream = *raw->streams[0];
  decoded.sampleRate_hz = stream.codecpar->sample_rate;
  decoded.channels = stream.codecpar->ch_layout.nb_channels;
  if (stream.duration > 0) {
    decoded.containerFrames = static_cast<std::uint64_t>(
        av_rescale_q(stream.duration, stream.time_base, {1, decoded.sampleRate_hz}));
  }

  const LibavPointer<AVCodecContext> codec(
      avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC)));
  avcodec_parameters_to_context(codec.get(), stream.codecpar);
  codec->pkt_timebase = stream.time_base;
  if (const int code = avcodec_open2(codec.get(), nullptr, nullptr); code < 0) {
    decoded.error = libavErrorText(code);
    return decoded;
  }
  const LibavPointer<AVPacket> packet(av_packet_alloc());
  const LibavPointer<AVFrame> frame(av_frame_alloc());
  while (av_read_frame(raw, packet.get()) >= 0) {
    if (packet->pts >= 0) decoded.packetFrames += static_cast<std::uint64_t>(packet->duration);
    decode(codec.get(), packet.get(), frame.get(), &decoded);
    av_packet_unref(packet.get());
  }
  decode(codec.get(), nullptr, frame.get(), &decoded);
  return decoded;
}

}  // namespace linux_host::test
