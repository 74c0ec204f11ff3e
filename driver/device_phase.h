// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <utility>

namespace loopback {

// The phases of the driver's life, by the state of its device.
enum class DevicePhase {
  kStarting,  // examines the daemon's objects; has not announced itself yet
  kHidden,    // no device, and no request for one
  kShowing,   // the device is being created, or its removal is being undone
  kShown,     // the device is there and stays; the requests have been answered
  kLeaving,   // the device is being removed: defaults are put back, no request is granted
};

// The allowed changes: from, to.
inline constexpr std::array kDevicePhaseChanges = {
    // The driver has announced itself.
    std::pair{DevicePhase::kStarting, DevicePhase::kHidden},
    // A client asks for the device.
    std::pair{DevicePhase::kHidden, DevicePhase::kShowing},
    // The daemon has created the device.
    std::pair{DevicePhase::kShowing, DevicePhase::kShown},
    // The daemon refuses, or the last request is gone.
    std::pair{DevicePhase::kShowing, DevicePhase::kLeaving},
    // The last request is gone, or the daemon has removed the device.
    std::pair{DevicePhase::kShown, DevicePhase::kLeaving},
    // A client asks again before the device is gone.
    std::pair{DevicePhase::kLeaving, DevicePhase::kShowing},
    // The device is gone.
    std::pair{DevicePhase::kLeaving, DevicePhase::kHidden},
};

constexpr bool mayFollow(DevicePhase from, DevicePhase to) {
  for (const auto& [before, after] : kDevicePhaseChanges) {
    if (before == from && after == to) return true;
  }
  return false;
}

}  // namespace loopback
