// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "tests/support/amplitude_at.h"

namespace linux_host::test {

// An m4a as decoded by a player.
struct Decoded {
  std::string error;  // empty when the file opened and every packet decoded
  bool opened = false;
  int sampleRate_hz = 0;
  int channels = 0;
  std::uint64_t containerFrames = 0;        // the duration that the container states
  std::uint64_t packetFrames = 0;           // the durations of all packets, without skipped parts
  std::map<std::string, std::string> tags;  // of the file as a whole
  std::vector<std::vector<float>>
      planes;  // decoded; the encoder's delay is skipped as the file says

  // A player stops at the end of the container's duration, in the middle of the last packet.
  void cutToContainer() {
    for (auto& plane : planes) {
      if (plane.size() > containerFrames) plane.resize(containerFrames);
    }
  }
};

[[nodiscard]] Decoded decodeM4a(std::span<const std::byte> file);

using test_support::amplitudeAt;

}  // namespace linux_host::test
