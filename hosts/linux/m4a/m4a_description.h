// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "hosts/linux/m4a/box_bytes.h"
#include "hosts/linux/m4a/m4a_writer.h"

namespace linux_host {

// What a decoder has to know about the packets.
struct AacDescription {
  std::uint32_t sampleRate_hz = 0;
  std::uint32_t bitrate_bps = 0;
  Bytes config;  // the encoder's AudioSpecificConfig; names the channels, too
};

// The stsd box.
[[nodiscard]] std::vector<std::byte> m4aSampleDescription(const AacDescription& aac);

// The udta box with title and date; empty if there is neither.
[[nodiscard]] std::vector<std::byte> m4aLabelsBox(const M4aLabels& labels);

}  // namespace linux_host
