// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Ends the process when `condition` does not hold, saying what was expected: the fuzzer keeps the
// input, the replay fails.
inline void expect(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "expected: %s\n", what);
  std::abort();
}

}  // namespace fuzz
