// SPDX-License-Identifier: MIT
#include "tests/routing/failing_allocator.h"

#include <cstddef>
#include <new>

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
}

namespace {

int countdown = 0;

bool failsNow() {
  return countdown > 0 && --countdown == 0;
}

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  return failsNow() ? nullptr : __real_malloc(size);
}

extern "C" void* __wrap_calloc(std::size_t count, std::size_t size) {
  return failsNow() ? nullptr : __real_calloc(count, size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return failsNow() ? nullptr : ::operator new(size);
}

namespace routing_test {

void failAllocation(int number) {
  countdown = number;
}

}  // namespace routing_test
