// SPDX-License-Identifier: MIT
#include "hosts/linux/m4a/aac_channels.h"

#include <algorithm>
#include <array>
#include <optional>

namespace linux_host {
namespace {

using enum Speaker;
using Layout = std::vector<Speaker>;

constexpr std::uint32_t kMostChannels = 8;
// Makes two speakers as loud as one.
constexpr float kInTheMiddle = 0.70710678F;

constexpr std::array<std::uint32_t, 13> kRates_hz{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                  22050, 16000, 12000, 11025, 8000,  7350};

// Smaller ones first; among equal ones, first those that AAC describes with a plain number.
const std::array<Layout, 9>& namedLayouts() {
  static const std::array<Layout, 9> layouts{
      Layout{kFrontCenter},
      Layout{kFrontLeft, kFrontRight},
      Layout{kFrontLeft, kFrontRight, kFrontCenter},
      Layout{kFrontLeft, kFrontRight, kLowFrequency},
      Layout{kFrontLeft, kFrontRight, kFrontCenter, kBackCenter},
      Layout{kFrontLeft, kFrontRight, kBackLeft, kBackRight},
      Layout{kFrontLeft, kFrontRight, kFrontCenter, kBackLeft, kBackRight},
      Layout{kFrontLeft, kFrontRight, kFrontCenter, kLowFrequency, kBackLeft, kBackRight},
      Layout{kFrontLeft, kFrontRight, kFrontCenter, kLowFrequency, kBackLeft, kBackRight, kSideLeft,
             kSideRight},
  };
  return layouts;
}

const Layout& eightFullChannels() {
  static const Layout layout{kFrontLeft, kFrontRight, kFrontCenter, kBackLeft,
                             kBackRight, kBackCenter, kSideLeft,    kSideRight};
  return layout;
}

const char* nameOf(Speaker speaker) {
  constexpr std::array<const char*, 9> kNames{"front left",    "front right", "front center",
                                              "low frequency", "back left",   "back right",
                                              "back center",   "side left",   "side right"};
  return kNames.at(static_cast<std::size_t>(speaker));
}

bool has(std::span<const Speaker> speakers, Speaker wanted) {
  return std::ranges::find(speakers, wanted) != speakers.end();
}

Layout withSidesAtTheBack(std::span<const Speaker> speakers) {
  Layout result(speakers.begin(), speakers.end());
  if (has(speakers, kBackLeft) || has(speakers, kBackRight)) return result;
  std::ranges::replace(result, kSideLeft, kBackLeft);
  std::ranges::replace(result, kSideRight, kBackRight);
  return result;
}

struct Placing {
  std::vector<std::uint32_t> places;     // for each channel of the source
  std::vector<std::uint32_t> elsewhere;  // the channels without their own position
};

// Null when the layout does not have room for all channels.
std::optional<Placing> place(const Layout& speakers, const Layout& layout) {
  constexpr std::uint32_t kNoPlace = UINT32_MAX;
  Placing placing{std::vector<std::uint32_t>(speakers.size(), kNoPlace), {}};
  std::vector<bool> isTaken(layout.size(), false);
  for (std::uint32_t channel = 0; channel < speakers.size(); ++channel) {
    const auto found = std::ranges::find(layout, speakers[channel]);
    const auto at = static_cast<std::size_t>(found - layout.begin());
    if (found == layout.end() || isTaken[at]) {
      placing.elsewhere.push_back(channel);
    } else {
      placing.places[channel] = static_cast<std::uint32_t>(at);
      isTaken[at] = true;
    }
  }
  std::uint32_t free = 0;
  for (const std::uint32_t channel : placing.elsewhere) {
    while (free < layout.size() && (isTaken[free] || layout[free] == kLowFrequency)) ++free;
    if (free == layout.size()) return std::nullopt;
    placing.places[channel] = free++;
  }
  return placing;
}

AacChannels inLayout(const Layout& layout, const Placing& placing) {
  AacChannels channels{layout, {}, {}};
  for (std::uint32_t channel = 0; channel < placing.places.size(); ++channel) {
    channels.routes.push_back({channel, placing.places[channel], 1.0F});
  }
  // With one or two inputs this is what everybody expects.
  if (placing.elsewhere.empty() || layout.size() <= 2) return channels;
  channels.remark =
      "AAC has no position for some channels of the sound source. In the "
      "file";
  const char* before = " ";
  for (const std::uint32_t channel : placing.elsewhere) {
    channels.remark += before + std::string("channel ") + std::to_string(channel + 1) + " is " +
                       nameOf(layout[placing.places[channel]]);
    before = ", ";
  }
  channels.remark +=
      layout.size() > placing.places.size()
          ? "; the others of its " + std::to_string(layout.size()) + " channels are silent."
          : ".";
  return channels;
}

AacChannels mixedDown(std::span<const Speaker> speakers) {
  AacChannels channels{{kFrontLeft, kFrontRight}, {}, {}};
  constexpr std::uint32_t kLeft = 0;
  constexpr std::uint32_t kRight = 1;
  for (std::uint32_t channel = 0; channel < speakers.size(); ++channel) {
    switch (speakers[channel]) {
      case kFrontLeft:
      case kBackLeft:
      case kSideLeft:
      case kElsewhereLeft:
        channels.routes.push_back({channel, kLeft, 1.0F});
        break;
      case kFrontRight:
      case kBackRight:
      case kSideRight:
      case kElsewhereRight:
        channels.routes.push_back({channel, kRight, 1.0F});
        break;
      default:
        channels.routes.push_back({channel, kLeft, kInTheMiddle});
        channels.routes.push_back({channel, kRight, kInTheMiddle});
        break;
    }
  }
  channels.remark = "The sound source has " + std::to_string(speakers.size()) +
                    " channels, more than an m4a can keep separate; they are mixed down to stereo.";
  return channels;
}

}  // namespace

AacChannels aacChannelsFor(std::span<const Speaker> speakers) {
  if (speakers.size() > kMostChannels) return mixedDown(speakers);
  if (speakers.size() == 1) return {{kFrontCenter}, {{0, 0, 1.0F}}, {}};
  const Layout wanted = withSidesAtTheBack(speakers);
  const Layout* best = nullptr;
  std::optional<Placing> placing;
  for (const Layout& layout : namedLayouts()) {
    auto candidate = place(wanted, layout);
    if (!candidate) continue;
    if (placing && candidate->elsewhere.size() >= placing->elsewhere.size()) continue;
    best = &layout;
    placing = std::move(candidate);
  }
  if (best != nullptr) return inLayout(*best, *placing);
  return inLayout(eightFullChannels(), *place(wanted, eightFullChannels()));
}

std::uint32_t aacSoundingChannels(std::uint32_t sourceChannels) {
  return sourceChannels <= kMostChannels ? sourceChannels : 2;
}

std::uint32_t nearestAacRate_hz(std::uint32_t sampleRate_hz) {
  const auto distance = [&](std::uint32_t rate_hz) {
    return std::max(rate_hz, sampleRate_hz) - std::min(rate_hz, sampleRate_hz);
  };
  return *std::ranges::min_element(kRates_hz, {}, distance);
}

}  // namespace linux_host
