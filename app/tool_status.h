// SPDX-License-Identifier: MIT
#pragma once

namespace record_audio {

// What the suite is told of the tool.
inline constexpr int kToolInactive = 0;
inline constexpr int kToolActive = 1;

}  // namespace record_audio
