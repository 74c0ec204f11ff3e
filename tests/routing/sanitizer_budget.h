// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace routing_test {

// Sanitizers and coverage slow these tests down. With one of them only a share of the work is done.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(RA_COVERAGE)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
inline constexpr std::uint32_t kSanitizedShare = 20;
inline constexpr double kSanitizedTimeShare = 100;  // of simulated time

constexpr std::uint32_t budget(std::uint32_t full) {
  return kSanitized ? full / kSanitizedShare : full;
}

}  // namespace routing_test
