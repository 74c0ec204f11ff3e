// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Which channel of a source goes into which channel of an AAC file. Pure functions; any thread.

namespace linux_host {

// The position of a channel.
enum class Speaker : std::uint8_t {
  // In the encoder's order of channels.
  kFrontLeft,
  kFrontRight,
  kFrontCenter,
  kLowFrequency,
  kBackLeft,
  kBackRight,
  kBackCenter,
  kSideLeft,
  kSideRight,
  // Positions that no layout here has.
  kElsewhereLeft,
  kElsewhereRight,
  kNowhere,  // an input without a position, or one that is neither left nor right
};

// Maps one channel of the source to one of the file.
struct AacRoute {
  std::uint32_t from;  // index of the source's plane
  std::uint32_t to;    // index in `layout`
  float gain;
};

struct AacChannels {
  std::vector<Speaker> layout;   // of the file, in the encoder's order
  std::vector<AacRoute> routes;  // channels of the file without a route are silent
  // For the log if a channel does not have its own position in the file; else empty.
  std::string remark;
};

// A source with one channel becomes mono. Otherwise takes the smallest of the layouts whose
// channels players know by name (mono, stereo, 2.1, 3.0, 4.0, quad, 5.0, 5.1, 7.1) that has the
// positions of all channels. Side channels without back channels count as back channels, as
// everywhere in AAC. Channels without a position in the layout, such as the inputs of an interface,
// take the free places in order, but never the low-frequency channel, of which AAC keeps only low
// frequencies. Eight channels that do not fit are put in order into a layout of eight full
// channels, of which players know only the order. More than eight are mixed down to stereo.
[[nodiscard]] AacChannels aacChannelsFor(std::span<const Speaker> speakers);

// The number of channels for the encoder's bit rate: the source's channels that the file keeps
// separate.
[[nodiscard]] std::uint32_t aacSoundingChannels(std::uint32_t sourceChannels);

// The AAC sample rate nearest to the given one, Hz.
[[nodiscard]] std::uint32_t nearestAacRate_hz(std::uint32_t sampleRate_hz);

}  // namespace linux_host
