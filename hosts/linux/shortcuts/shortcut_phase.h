// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <utility>

namespace linux_host {

// How far the program is with the desktop about its key.
enum class ShortcutPhase {
  kUnknown,   // nobody has asked whether the desktop has keys for programs, or it has none
  kLooking,   // it is being asked
  kOffered,   // it has; there is none for us
  kClosing,   // the session of an earlier key is being ended
  kOpening,   // a session is being made
  kListing,   // the desktop is asked whether it knows our key from before
  kBinding,   // it gives us a key, or asks the user for one
  kChecking,  // it agreed, and is asked to what
  kBound,     // the session has our key, or had it until the user took it away
};

// Who may follow whom.
inline constexpr std::array kShortcutPhaseChanges = {
    // Somebody wants to know.
    std::pair{ShortcutPhase::kUnknown, ShortcutPhase::kLooking},
    // The desktop answered.
    std::pair{ShortcutPhase::kLooking, ShortcutPhase::kUnknown},
    std::pair{ShortcutPhase::kLooking, ShortcutPhase::kOffered},
    // The user wants a key, now or at an earlier start.
    std::pair{ShortcutPhase::kOffered, ShortcutPhase::kOpening},
    // Or another one.
    std::pair{ShortcutPhase::kBound, ShortcutPhase::kClosing},
    std::pair{ShortcutPhase::kClosing, ShortcutPhase::kOpening},
    // A session is there; some desktops give it the key of before at once.
    std::pair{ShortcutPhase::kOpening, ShortcutPhase::kListing},
    std::pair{ShortcutPhase::kOpening, ShortcutPhase::kBinding},
    std::pair{ShortcutPhase::kOpening, ShortcutPhase::kBound},
    // The key of before is known, or it is not.
    std::pair{ShortcutPhase::kListing, ShortcutPhase::kBound},
    std::pair{ShortcutPhase::kListing, ShortcutPhase::kBinding},
    // Agreed; some desktops do not say to what.
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
