// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// If `condition` is false, prints what was expected and ends the process: the fuzzer then keeps the
// input, and the replay fails.
inline void expect(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "expected: %s\n", what);
  std::abort();
}

}  // namespace fuzz
