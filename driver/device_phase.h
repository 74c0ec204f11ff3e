// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <utility>

namespace loopback {

// The life of the driver: what it does about its device.
enum class DevicePhase {
  kStarting,  // has not announced itself: it looks at what there is
  kHidden,    // no device; nobody asks for one
  kShowing,   // on its way in: the device is being made, or what took it away is being undone
  kShown,     // it is there and stays; those who ask for it have been told so
  kLeaving,   // on its way out: the defaults are put back, and nobody may begin to use it
};

// Who may follow whom.
inline constexpr std::array kDevicePhaseChanges = {
    // Announced.
    std::pair{DevicePhase::kStarting, DevicePhase::kHidden},
    // Somebody asks.
    std::pair{DevicePhase::kHidden, DevicePhase::kShowing},
    // The daemon has made it.
    std::pair{DevicePhase::kShowing, DevicePhase::kShown},
    // The daemon refuses it, or nobody asks any more.
    std::pair{DevicePhase::kShowing, DevicePhase::kLeaving},
    // Nobody asks any more, or the daemon has removed it.
    std::pair{DevicePhase::kShown, DevicePhase::kLeaving},
    // Somebody asks again before it is gone.
    std::pair{DevicePhase::kLeaving, DevicePhase::kShowing},
    // Gone.
    std::pair{DevicePhase::kLeaving, DevicePhase::kHidden},
};

constexpr bool mayFollow(DevicePhase from, DevicePhase to) {
  for (const auto& [before, after] : kDevicePhaseChanges) {
    if (before == from && after == to) return true;
  }
  return false;
}

}  // namespace loopback
