// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/host.h"

namespace record_audio {

// What the names of growing recordings begin with, in the temporary directory.
inline constexpr const char* kTemporaryNamePrefix = "Audio_recording_";

// The name of a recording that began at `start`: that of its file without number and extension.
// Main thread.
std::string recordingTitle(const platform::Host& host, platform::Date start);

// The highest number that a stop tries.
inline constexpr int kLastFileNumber = 99;

// The final path in `folder` (without a trailing slash) of a recording that began at `start`. If
// the name is taken, a number follows it: the first free one from (1) to `lastNumber`. If all are
// taken, the result is the path with the last number, which exists. `extension` has no dot. Main
// thread.
std::string recordingPath(const platform::Host& host, const std::string& folder,
                          platform::Date start, const std::string& extension,
                          int lastNumber = kLastFileNumber);

}  // namespace record_audio
