#pragma once

#include <optional>

#include "hosts/linux/files/open_file.h"

namespace linux_host {

// How many seconds of sound an MP3 stream of constant bit rate holds, as this program writes them:
// its first byte begins its first frame. 0 when not even one frame is whole. Null when the file
// does not begin with two frames of one stream, or with one and nothing behind it.
[[nodiscard]] std::optional<double> mp3Duration_s(const OpenFile& file);

}  // namespace linux_host
