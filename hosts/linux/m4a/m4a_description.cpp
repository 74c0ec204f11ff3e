// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/m4a_description.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "hosts/linux/m4a/m4a_index.h"

namespace linux_host {
namespace {

// The limit of a file name; keeps the file's head small.
constexpr std::size_t kLongestTitle_bytes = 255;
constexpr std::uint32_t kUtf8 = 1;

std::string_view fittingTitle(std::string_view title) {
  std::size_t end = std::min(title.size(), kLongestTitle_bytes);
  const auto isInCharacter = [&] { return end < title.size() && (title[end] & 0xC0) == 0x80; };
  while (end > 0 && isInCharacter()) --end;
  return title.substr(0, end);
}

// Players show the text's date as it is, so it is in the user's time zone.
std::string localTime(std::uint64_t unix_s) {
  const auto time = static_cast<std::time_t>(unix_s);
  std::tm local{};
  localtime_r(&time, &local);
  char text[32];
  std::string iso{text, std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S%z", &local)};
  constexpr std::size_t kOffsetMinutes_chars = 2;
  return iso.insert(iso.size() - kOffsetMinutes_chars, ":");
}

void label(BoxBuilder& out, std::uint32_t type, std::string_view text) {
  out.box(type, [&] {
    out.box(boxType("data"), [&] {
      out.u32(kUtf8);
      out.u32(0);  // any language
      out.raw(std::as_bytes(std::span(text)));
    });
  });
}

// A descriptor of MPEG-4 Systems: a tag, the length in four groups of seven bits, and the content
// that `fill` writes.
template <typename Fill>
std::vector<std::byte> descriptor(std::uint32_t tag, Fill&& fill) {
  BoxBuilder content;
  std::forward<Fill>(fill)(content);
  const std::vector<std::byte> bytes = content.take();
  BoxBuilder out;
  out.u8(tag);
  for (const int shift : {21, 14, 7}) {
    out.u8(static_cast<std::uint32_t>(bytes.size() >> shift & 0x7F) | 0x80);
  }
  out.u8(static_cast<std::uint32_t>(bytes.size() & 0x7F));
  out.raw(bytes);
  return out.take();
}

std::vector<std::byte> elementaryStream(const AacDescription& aac) {
  constexpr std::uint32_t kStreamTag = 3;
  constexpr std::uint32_t kDecoderTag = 4;
  constexpr std::uint32_t kDecoderConfigTag = 5;
  constexpr std::uint32_t kPacketingTag = 6;
  constexpr std::uint32_t kMpeg4Audio = 0x40;
  constexpr std::uint32_t kAudioStream = 0x15;
  constexpr std::uint32_t kPacketsOfMp4 = 2;
  return descriptor(kStreamTag, [&](BoxBuilder& out) {
    out.u16(kM4aTrackId);
    out.u8(0);
    out.raw(descriptor(kDecoderTag, [&](BoxBuilder& decoder) {
      decoder.u8(kMpeg4Audio);
      decoder.u8(kAudioStream);
      decoder.u24(0);  // size of the decoder's buffer: unspecified
      decoder.u32(aac.bitrate_bps);
      decoder.u32(aac.bitrate_bps);
      decoder.raw(
          descriptor(kDecoderConfigTag, [&](BoxBuilder& config) { config.raw(aac.config); }));
    }));
    out.raw(descriptor(kPacketingTag, [](BoxBuilder& packets) { packets.u8(kPacketsOfMp4); }));
  });
}

}  // namespace

std::vector<std::byte> m4aSampleDescription(const AacDescription& aac) {
  // Rates that do not fit in here, and the channels, are in the decoder's configuration.
  const bool isRateTold = aac.sampleRate_hz <= std::numeric_limits<std::uint16_t>::max();
  BoxBuilder out;
  out.fullBox(boxType("stsd"), 0, 0, [&] {
    out.u32(1);
    out.box(boxType("mp4a"), [&] {
      out.zeros(6);
      out.u16(1);  // the media is in this file
      out.zeros(8);
      out.u16(2);   // channels: always two
      out.u16(16);  // bits per sample: always sixteen
      out.zeros(4);
      out.u16(isRateTold ? aac.sampleRate_hz : 0);
      out.u16(0);
      out.fullBox(boxType("esds"), 0, 0, [&] { out.raw(elementaryStream(aac)); });
      out.box(boxType("btrt"), [&] {
        out.u32(0);
        out.u32(aac.bitrate_bps);
        out.u32(aac.bitrate_bps);
      });
    });
  });
  return out.take();
}

std::vector<std::byte> m4aLabelsBox(const M4aLabels& labels) {
  if (labels.title.empty() && labels.start_unix_s == 0) return {};
  BoxBuilder out;
  out.box(boxType("udta"), [&] {
    out.fullBox(boxType("meta"), 0, 0, [&] {
      out.fullBox(boxType("hdlr"), 0, 0, [&] {
        out.zeros(4);
        out.u32(boxType("mdir"));
        out.u32(boxType("appl"));
        out.zeros(9);
      });
      out.box(boxType("ilst"), [&] {
        if (!labels.title.empty()) label(out, boxType("\xA9nam"), fittingTitle(labels.title));
        if (labels.start_unix_s > 0)
          label(out,
                boxType("\xA9"
                        "day"),
                localTime(labels.start_unix_s));
      });
    });
  });
  return out.take();
}

}  // namespace linux_host
