// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Which channel of a source goes into which of an AAC file. Pure; any thread.

namespace linux_host {

// Where the sound of a channel belongs.
enum class Speaker : std::uint8_t {
  // In the order in which the encoder takes the channels of a layout.
  kFrontLeft,
  kFrontRight,
  kFrontCenter,
  kLowFrequency,
  kBackLeft,
  kBackRight,
  kBackCenter,
  kSideLeft,
  kSideRight,
  // What no layout here has.
  kElsewhereLeft,
  kElsewhereRight,
  kNowhere,  // an input without a position, or one in the middle of the room
};

// One channel of the source on its way into one of the file.
struct AacRoute {
  std::uint32_t from;  // counted as the source counts its planes
  std::uint32_t to;    // counted as `layout` does
  float gain;
};

struct AacChannels {
  std::vector<Speaker> layout;   // of the file, in the encoder's order
  std::vector<AacRoute> routes;  // channels of the file that nothing goes to are silent
  // For the user's log, when a channel has not its own position in the file; else empty.
  std::string remark;
};

// A source of one channel becomes mono. Of the layouts that players know by the names of their
// channels (mono, stereo, 2.1, 3.0, 4.0, quad, 5.0, 5.1, 7.1) the smallest is taken that has the
// positions of all channels. Side channels without back ones count as back ones, as everywhere in
// AAC. Channels that have no position there, such as the inputs of an interface, take the free
// places in their order, but never that of the low-frequency channel, of which AAC keeps deep sound
// only. Eight that do not fit so are put, in their order, into a layout of eight full channels of
// which players know the order alone. More than eight are mixed down to stereo.
[[nodiscard]] AacChannels aacChannelsFor(std::span<const Speaker> speakers);

// What an encoder's bit rate is to be counted for: the channels of the source that the file keeps
// apart.
[[nodiscard]] std::uint32_t aacSoundingChannels(std::uint32_t sourceChannels);

// The sample rate of AAC that is nearest to the given one, Hz.
[[nodiscard]] std::uint32_t nearestAacRate_hz(std::uint32_t sampleRate_hz);

}  // namespace linux_host
