// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

namespace linux_host {

// The position of each of `channels` (enum spa_audio_channel): as on the device if it has that many
// channels, else the usual positions, so that the server converts between the device's channels and
// ours.
std::vector<std::uint32_t> speakerLayout(const std::vector<std::uint32_t>& devicePositions,
                                         std::uint32_t channels);

}  // namespace linux_host
