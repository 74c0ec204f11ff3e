// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/fragment_muxer.h"

#include <algorithm>
#include <ctime>
#include <numeric>
#include <string_view>
#include <utility>

#include "hosts/linux/m4a/box_bytes.h"
#include "hosts/linux/m4a/m4a_index.h"

namespace linux_host {

namespace {

// As long as the name of a file; a file's head stays small.
constexpr std::size_t kLongestTitle_bytes = 255;
constexpr const char* kNoMemory = "There is no memory left for the m4a recording.";

std::string failure(const char* what, int code) {
  return std::string("libavformat could not ") + what + ": " + libavErrorText(code) +
         ". Start a new recording, or choose the MP3 format.";
}

std::string isoTime(std::uint64_t unix_s) {
  const auto time = static_cast<std::time_t>(unix_s);
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[32];
  return {text, std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

std::string fittingTitle(std::string_view title) {
  std::size_t end = std::min(title.size(), kLongestTitle_bytes);
  const auto isInCharacter = [&] { return end < title.size() && (title[end] & 0xC0) == 0x80; };
  while (end > 0 && isInCharacter()) --end;
  return std::string(title.substr(0, end));
}

// Players show the day of the text as it stands, so it is the user's own.
std::string localTime(std::uint64_t unix_s) {
  const auto time = static_cast<std::time_t>(unix_s);
  std::tm local{};
  localtime_r(&time, &local);
  char text[32];
  std::string iso{text, std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S%z", &local)};
  constexpr std::size_t kOffsetMinutes_chars = 2;
  return iso.insert(iso.size() - kOffsetMinutes_chars, ":");
}

}  // namespace

template <typename Byte>
int FragmentMuxer::collect(void* self, Byte* data, int size_bytes) {
  auto& written = static_cast<FragmentMuxer*>(self)->written_;
  const auto bytes = std::as_bytes(std::span(data, static_cast<std::size_t>(size_bytes)));
  written.insert(written.end(), bytes.begin(), bytes.end());
  return size_bytes;
}

std::string FragmentMuxer::open(const AVCodecContext& codec, std::uint64_t creationTime_unix_s,
                                const M4aLabels& labels, std::vector<std::byte>* movie) {
  AVFormatContext* format = nullptr;
  int code = avformat_alloc_output_context2(&format, nullptr, "mp4", nullptr);
  format_.reset(format);
  if (code < 0) return failure("make an MP4 file", code);

  constexpr int kIoBuffer_bytes = 16 * 1024;
  auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBuffer_bytes));
  if (!buffer) return kNoMemory;
  io_.reset(avio_alloc_context(buffer, kIoBuffer_bytes, 1, this, nullptr, &collect, nullptr));
  if (!io_) {
    av_free(buffer);
    return kNoMemory;
  }
  format->pb = io_.get();
  format->flags |= AVFMT_FLAG_BITEXACT;  // no library versions in the user's file

  AVStream* stream = avformat_new_stream(format, nullptr);
  if (!stream) return kNoMemory;
  stream->time_base = codec.time_base;
  if (avcodec_parameters_from_context(stream->codecpar, &codec) < 0) return kNoMemory;
  av_dict_set(&format->metadata, "creation_time", isoTime(creationTime_unix_s).c_str(), 0);
  if (!labels.title.empty()) {
    av_dict_set(&format->metadata, "title", fittingTitle(labels.title).c_str(), 0);
  }
  if (labels.start_unix_s > 0) {
    av_dict_set(&format->metadata, "date", localTime(labels.start_unix_s).c_str(), 0);
  }
  priming_frames_ = codec.initial_padding;

  AVDictionary* options = nullptr;
  av_dict_set(&options, "movflags", "+empty_moov+default_base_moof+frag_custom+skip_trailer", 0);
  code = avformat_write_header(format, &options);
  av_dict_free(&options);
  if (code < 0) return failure("begin an MP4 file", code);
  avio_flush(io_.get());

  const auto moov = findBox(written_, boxType("moov"));
  if (!moov) return failure("begin an MP4 file", AVERROR_BUG);
  movie->assign(moov->all.begin(), moov->all.end());
  written_.clear();
  return "";
}

std::string FragmentMuxer::add(AVPacket& packet) {
  const auto size_bytes = static_cast<std::uint32_t>(packet.size);
  packet.stream_index = 0;
  // Fragments count from the first packet; the encoder counts from the first recorded frame.
  packet.pts += priming_frames_;
  packet.dts = packet.pts;
  packet.duration = kAacPacket_frames;
  const int code = av_write_frame(format_.get(), &packet);
  if (code < 0) return failure("take a packet of AAC", code);
  packetSizes_.push_back(size_bytes);
  return "";
}

std::string FragmentMuxer::endFragment(Fragment* fragment) {
  const int code = av_write_frame(format_.get(), nullptr);
  if (code < 0) return failure("end a fragment", code);
  avio_flush(io_.get());

  fragment->bytes = std::exchange(written_, {});
  fragment->packetSizes_bytes = std::exchange(packetSizes_, {});
  const std::size_t media_bytes = std::accumulate(
      fragment->packetSizes_bytes.begin(), fragment->packetSizes_bytes.end(), std::size_t{0});
  const auto media = findBox(fragment->bytes, boxType("mdat"));
  if (!media || media->payload.size() != media_bytes ||
      media->all.data() + media->all.size() != fragment->bytes.data() + fragment->bytes.size()) {
    return failure("end a fragment", AVERROR_BUG);
  }
  fragment->mediaOffset_bytes = fragment->bytes.size() - media_bytes;
  return "";
}

}  // namespace linux_host
