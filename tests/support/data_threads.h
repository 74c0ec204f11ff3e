// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <set>
#include <vector>

// The threads on which PipeWire runs the callbacks of this process' streams, seen from outside.

namespace test_support {

// All threads of this process.
std::set<pid_t> threads();

// The data threads of the program's streams that were started since.
std::vector<pid_t> dataThreads(const std::set<pid_t>& threadsBefore);

// How many pages those threads had to wait for since their start. Throws when one is gone.
std::uint64_t pageFaults(const std::vector<pid_t>& threads);

// The pages that a sanitizer keeps beside those of the program are counted with them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kCountsPageFaults = false;
#else
inline constexpr bool kCountsPageFaults = true;
#endif

}  // namespace test_support
