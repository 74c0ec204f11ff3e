// SPDX-License-Identifier: MIT
#include "hosts/linux/audio_units/speaker_layout.h"

#include <spa/param/audio/raw.h>

#include <algorithm>
#include <array>

namespace linux_host {
namespace {

// The usual layouts of up to eight channels.
std::vector<std::uint32_t> usualLayout(std::uint32_t channels) {
  switch (channels) {
    case 1:
      return {SPA_AUDIO_CHANNEL_MONO};
    case 3:
      return {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_LFE};
    case 4:
      return {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_RL,
              SPA_AUDIO_CHANNEL_RR};
    case 5:
      return {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC,
              SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR};
    default:
      return {SPA_AUDIO_CHANNEL_FL,  SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC,
              SPA_AUDIO_CHANNEL_LFE, SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR,
              SPA_AUDIO_CHANNEL_SL,  SPA_AUDIO_CHANNEL_SR};
  }
}

}  // namespace

std::vector<std::uint32_t> speakerLayout(const std::vector<std::uint32_t>& devicePositions,
                                         std::uint32_t channels) {
  if (devicePositions.size() == channels) return devicePositions;
  std::vector<std::uint32_t> positions = usualLayout(channels);
  const auto known = static_cast<std::uint32_t>(positions.size());
  for (std::uint32_t extra = known; extra < channels; ++extra) {
    positions.push_back(SPA_AUDIO_CHANNEL_AUX0 + extra - known);
  }
  positions.resize(channels);
  return positions;
}

}  // namespace linux_host
