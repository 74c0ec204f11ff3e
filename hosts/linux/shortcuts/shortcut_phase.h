// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <utility>

namespace linux_host {

// The phases of getting a key from the desktop.
enum class ShortcutPhase {
  kUnknown,   // not known yet whether the desktop has keys for programs, or it has none
  kLooking,   // asking the desktop
  kOffered,   // the desktop has keys; we have none
  kClosing,   // ending the session of an earlier key
  kOpening,   // creating a session
  kListing,   // asking the desktop whether it knows our earlier key
  kBinding,   // the desktop assigns a key, or asks the user for one
  kChecking,  // the desktop agreed; asking for which key
  kBound,     // the session has our key, or had it until the user removed it
};

// The allowed changes: from, to.
inline constexpr std::array kShortcutPhaseChanges = {
    // The preferences ask, or a key is wanted.
    std::pair{ShortcutPhase::kUnknown, ShortcutPhase::kLooking},
    // The desktop has answered.
    std::pair{ShortcutPhase::kLooking, ShortcutPhase::kUnknown},
    std::pair{ShortcutPhase::kLooking, ShortcutPhase::kOffered},
    // The user wants a key, now or at an earlier start.
    std::pair{ShortcutPhase::kOffered, ShortcutPhase::kOpening},
    // The user wants another key.
    std::pair{ShortcutPhase::kBound, ShortcutPhase::kClosing},
    std::pair{ShortcutPhase::kClosing, ShortcutPhase::kOpening},
    // The session exists; some desktops give it the earlier key at once.
    std::pair{ShortcutPhase::kOpening, ShortcutPhase::kListing},
    std::pair{ShortcutPhase::kOpening, ShortcutPhase::kBinding},
    std::pair{ShortcutPhase::kOpening, ShortcutPhase::kBound},
    // The desktop knows the earlier key, or does not.
    std::pair{ShortcutPhase::kListing, ShortcutPhase::kBound},
    std::pair{ShortcutPhase::kListing, ShortcutPhase::kBinding},
    // The desktop agreed; some do not say to which key.
    std::pair{ShortcutPhase::kBinding, ShortcutPhase::kBound},
    std::pair{ShortcutPhase::kBinding, ShortcutPhase::kChecking},
    std::pair{ShortcutPhase::kChecking, ShortcutPhase::kBound},
    // Declined, failed, or closed by the desktop.
    std::pair{ShortcutPhase::kOpening, ShortcutPhase::kOffered},
    std::pair{ShortcutPhase::kListing, ShortcutPhase::kOffered},
    std::pair{ShortcutPhase::kBinding, ShortcutPhase::kOffered},
    std::pair{ShortcutPhase::kChecking, ShortcutPhase::kOffered},
    std::pair{ShortcutPhase::kBound, ShortcutPhase::kOffered},
    // The portal has left the bus.
    std::pair{ShortcutPhase::kOffered, ShortcutPhase::kUnknown},
    std::pair{ShortcutPhase::kClosing, ShortcutPhase::kUnknown},
    std::pair{ShortcutPhase::kOpening, ShortcutPhase::kUnknown},
    std::pair{ShortcutPhase::kListing, ShortcutPhase::kUnknown},
    std::pair{ShortcutPhase::kBinding, ShortcutPhase::kUnknown},
    std::pair{ShortcutPhase::kChecking, ShortcutPhase::kUnknown},
    std::pair{ShortcutPhase::kBound, ShortcutPhase::kUnknown},
};

constexpr bool mayFollow(ShortcutPhase from, ShortcutPhase to) {
  for (const auto& [before, after] : kShortcutPhaseChanges) {
    if (before == from && after == to) return true;
  }
  return false;
}

}  // namespace linux_host
