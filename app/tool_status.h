// SPDX-License-Identifier: MIT
#pragma once

namespace record_audio {

// The tool's status, as the suite is told it.
inline constexpr int kToolInactive = 0;
inline constexpr int kToolActive = 1;

}  // namespace record_audio
