// SPDX-License-Identifier: MIT
#pragma once

namespace routing_test {

// Lets the n-th allocation from now on fail; the first is 1, and 0 lets none fail. It counts what
// the program's own code allocates by malloc, calloc or non-throwing new. A program that uses it
// has to wrap malloc and calloc.
void failAllocation(int number);

}  // namespace routing_test
