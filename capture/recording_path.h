// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/host.h"

namespace record_audio {

// What the names of growing recordings begin with, in the temporary directory.
inline constexpr const char* kTemporaryNamePrefix = "Audio_recording_";

// What a recording that began at `start` is called: the name of its file without number and
// extension. Main thread.
std::string recordingTitle(const platform::Host& host, platform::Date start);

// The highest number of a recording's name at a stop.
inline constexpr int kLastFileNumber = 99;

// The final path in `folder` (without a trailing slash) of a recording that began at `start`:
// numbered from (1) on while names are taken. If all are, the one with the last number, which
// exists.
// `extension` without its dot. Main thread.
std::string recordingPath(const platform::Host& host, const std::string& folder,
                          platform::Date start, const std::string& extension,
                          int lastNumber = kLastFileNumber);

}  // namespace record_audio
