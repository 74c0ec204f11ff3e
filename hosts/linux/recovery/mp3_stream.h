// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "hosts/linux/files/open_file.h"

namespace linux_host {

// How many seconds of sound an MP3 stream of constant bit rate holds, as this program writes them:
// its first byte begins its first frame. 0 when no second frame has begun: the first one is the
// encoder's delay, and players refuse a stream of it alone. Null when the file does not begin
// with the head of a frame, or goes on with what is no other of the same stream.
[[nodiscard]] std::optional<double> mp3Duration_s(const OpenFile& file);

// Where the last frame of such a stream begins that the file does not hold whole. Null when there
// is none, and when something in between is no frame: then nobody knows where the next one begins.
[[nodiscard]] std::optional<std::uint64_t> tornMp3Frame_bytes(const OpenFile& file);

}  // namespace linux_host
