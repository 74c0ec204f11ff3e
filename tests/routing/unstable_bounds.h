// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "routing/ring_buffer.h"

namespace routing_test {

// As a reader finds a ring whose writer has gone once round all slots while it read; until the next
// publication.
inline void makeBoundsUnstable(record_audio::RingBuffer& ring) {
  const std::uint32_t index = ring.timeBoundsIndex.load();
  ring.timeBounds[index % record_audio::kRingBufferSlotCount].updateCounter.store(
      index + record_audio::kRingBufferSlotCount);
}

}  // namespace routing_test
