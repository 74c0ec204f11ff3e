// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "hosts/linux/m4a/box_bytes.h"

namespace linux_host {

// A moof box, which describes AAC packets, and the mdat box that contains them.
struct M4aFragment {
  std::vector<std::byte> bytes;
  std::size_t mediaOffset_bytes = 0;  // of the first packet in `bytes`
  std::vector<std::uint32_t> packetSizes_bytes;
};

// Builds the fragments of one recording from its packets, in memory. One thread at a time;
// allocates.
class M4aFragments {
 public:
  // Adds a packet of kAacPacket_frames to the current fragment.
  void add(Bytes packet);
  // The number of packets in the current fragment.
  [[nodiscard]] std::size_t packetCount() const { return packetSizes_.size(); }
  // Ends the current fragment, which must contain at least one packet.
  [[nodiscard]] M4aFragment end();

 private:
  std::vector<std::byte> media_;
  std::vector<std::uint32_t> packetSizes_;
  std::uint32_t fragments_ = 0;     // ended
  std::uint64_t endedPackets_ = 0;  // in those
};

}  // namespace linux_host
