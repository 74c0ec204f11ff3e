#pragma once

#include <optional>

#include "hosts/linux/files/open_file.h"

namespace linux_host {

// How many seconds of sound an MP3 stream of constant bit rate holds, as this program writes them:
// its first byte begins its first frame. 0 when no second frame has begun: the first one is the
// encoder's delay, and players refuse a stream of it alone. Null when the file does not begin
// with the head of a frame, or goes on with what is no other of the same stream.
[[nodiscard]] std::optional<double> mp3Duration_s(const OpenFile& file);

}  // namespace linux_host
