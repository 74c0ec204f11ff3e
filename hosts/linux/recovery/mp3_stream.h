// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "hosts/linux/files/open_file.h"

namespace linux_host {

// The duration of an MP3 stream of constant bit rate, in seconds, as this program writes them: the
// first byte begins the first frame. 0 when no second frame has begun: the first one is the
// encoder's delay, and players refuse a stream with nothing else. Null when the file does not begin
// with a frame header, or the next frame does not belong to the same stream.
[[nodiscard]] std::optional<double> mp3Duration_s(const OpenFile& file);

// The offset of the incomplete frame at the end of such a stream. Null when there is none, when
// players would refuse what is left without it, or when something before it is not a frame, as the
// next frame cannot be found then.
[[nodiscard]] std::optional<std::uint64_t> tornMp3Frame_bytes(const OpenFile& file);

}  // namespace linux_host
