// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "routing/ring_buffer.h"

namespace routing_test {

// Puts the ring into the state that a reader finds when the writer has used all slots once while it
// read. The next publication ends that state.
inline void makeBoundsUnstable(record_audio::RingBuffer& ring) {
  const std::uint32_t index = ring.timeBoundsIndex.load();
  ring.timeBounds[index % record_audio::kRingBufferSlotCount].updateCounter.store(
      index + record_audio::kRingBufferSlotCount);
}

}  // namespace routing_test
