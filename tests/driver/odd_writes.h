// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <vector>

namespace driver_test {

// What the next calls of write() do: each writes at most as many bytes, or fails with the negated
// errno. Later calls write everything. A program that uses this has to wrap write.
void letWrites(std::vector<ssize_t> outcomes);

}  // namespace driver_test
