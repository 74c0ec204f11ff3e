// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <set>
#include <vector>

// The threads on which PipeWire runs the callbacks of this process's streams, as the kernel shows
// them.

namespace test_support {

// All threads of this process.
std::set<pid_t> threads();

// The data threads of streams that were started since.
std::vector<pid_t> dataThreads(const std::set<pid_t>& threadsBefore);

// The number of pages that these threads have waited for since their start. Throws when one is
// gone.
std::uint64_t pageFaults(const std::vector<pid_t>& threads);

// A sanitizer's own pages would be counted, too.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kCountsPageFaults = false;
#else
inline constexpr bool kCountsPageFaults = true;
#endif

}  // namespace test_support
