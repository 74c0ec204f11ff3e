// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "hosts/linux/m4a/aac_channels.h"

namespace linux_host {

// The bytes of a platform::AudioChannelLayout with one description per channel; positions are enum
// spa_audio_channel.
std::vector<std::byte> channelLayout(const std::vector<std::uint32_t>& positions);

// The same for the m4a writer.
std::vector<Speaker> speakersAt(const std::vector<std::uint32_t>& positions);

// The bytes of a platform::AudioBufferList with one interleaved stream, or with none if there are
// no channels.
std::vector<std::byte> streamConfiguration(std::uint32_t channels);

}  // namespace linux_host
