// SPDX-License-Identifier: MIT
#pragma once

namespace record_audio {

// The unique id of the device that loops the computer's own sound back.
inline constexpr const char* kLoopbackDeviceUID = "com.vantrel.loopbackdevice";

}  // namespace record_audio
