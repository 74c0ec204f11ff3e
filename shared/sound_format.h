// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace record_audio {

// The stored codes of the sound format.
enum SoundFormat : std::uint64_t {
  kM4aFormat = 0,
  kMp3Format = 1,
};

}  // namespace record_audio
