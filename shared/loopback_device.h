// SPDX-License-Identifier: MIT
#pragma once

namespace record_audio {

// The unique id of the loopback device: what the computer plays into it can be recorded from it.
inline constexpr const char* kLoopbackDeviceUID = "com.vantrel.loopbackdevice";

}  // namespace record_audio
