// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "hosts/linux/m4a/box_bytes.h"

namespace linux_host {

// Changes the bytes before the packets of a fragment (its moof, the header of its mdat, and
// anything before them) so that they describe only the first `packets` packets. The result has the
// same length, so that it can overwrite the original. Null if so few packets cannot be described
// without moving them, or if `head` is not such a head. `media_bytes`: the size of those packets.
[[nodiscard]] std::optional<std::vector<std::byte>> headOfFirstPackets(Bytes head,
                                                                       std::size_t packets,
                                                                       std::size_t media_bytes);

}  // namespace linux_host
