// SPDX-License-Identifier: MIT
#pragma once

namespace routing_test {

// Makes the n-th allocation by malloc, calloc or non-throwing new that the program's own code makes
// from now on (the first is 1) fail; 0: none. Programs that use it wrap malloc and calloc.
void failAllocation(int number);

}  // namespace routing_test
