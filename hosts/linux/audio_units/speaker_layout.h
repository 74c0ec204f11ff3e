// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

namespace linux_host {

// Where each of `channels` lies (enum spa_audio_channel): as on the device if it has that many,
// else the usual places, so that the server mixes the device's channels and ours into each other.
std::vector<std::uint32_t> speakerLayout(const std::vector<std::uint32_t>& devicePositions,
                                         std::uint32_t channels);

}  // namespace linux_host
