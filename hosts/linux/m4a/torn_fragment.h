// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "hosts/linux/m4a/box_bytes.h"

namespace linux_host {

// What stands before the packets of a fragment (its moof and the header of its mdat, and whatever
// lies before them), changed to describe the first `packets` of them alone; as long as before, so
// that it can be written over it. Null where that many cannot be told of without moving the
// packets, or when `head` is no such head. `media_bytes`: the size of those packets.
[[nodiscard]] std::optional<std::vector<std::byte>> headOfFirstPackets(Bytes head,
                                                                       std::size_t packets,
                                                                       std::size_t media_bytes);

}  // namespace linux_host
