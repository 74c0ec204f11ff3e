// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

// Watches what the program's own code allocates by malloc, calloc, or non-throwing new. A program
// that uses this has to wrap malloc, calloc and free.

namespace routing_test {

// Lets the n-th allocation from now on fail; the first is 1, and 0 lets none fail.
void failAllocation(int number);

// A block that has not been freed. Not those of a plain non-throwing new.
struct Block {
  const std::byte* begin = nullptr;
  std::size_t size_bytes = 0;
  [[nodiscard]] const std::byte* end() const { return begin + size_bytes; }
};
// The block that holds the address; an empty one if there is none.
Block blockAt(const void* address);
std::size_t blockCount();

}  // namespace routing_test
