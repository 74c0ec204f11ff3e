// SPDX-License-Identifier: MIT
#include "tests/routing/failing_allocator.h"

#include <cstddef>
#include <cstdlib>
#include <map>
#include <new>

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* memory);
}

namespace {

int countdown = 0;

bool failsNow() {
  return countdown > 0 && --countdown == 0;
}

// Its own allocations are made in the standard library, which is not wrapped.
std::map<const std::byte*, std::size_t>& blocks() {
  static auto& all = *new std::map<const std::byte*, std::size_t>;
  return all;
}

void* noted(void* memory, std::size_t size) {
  if (memory != nullptr) blocks()[static_cast<const std::byte*>(memory)] = size;
  return memory;
}

void forget(void* memory) {
  blocks().erase(static_cast<const std::byte*>(memory));
}

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  return failsNow() ? nullptr : noted(__real_malloc(size), size);
}

extern "C" void* __wrap_calloc(std::size_t count, std::size_t size) {
  return failsNow() ? nullptr : noted(__real_calloc(count, size), count * size);
}

extern "C" void __wrap_free(void* memory) {
  forget(memory);
  __real_free(memory);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return failsNow() ? nullptr : ::operator new(size);
}

void* operator new[](std::size_t size, std::align_val_t alignment,
                     const std::nothrow_t& /*tag*/) noexcept {
  void* memory = nullptr;
  if (failsNow() || posix_memalign(&memory, static_cast<std::size_t>(alignment), size) != 0) {
    return nullptr;
  }
  return noted(memory, size);
}

void operator delete[](void* memory, std::align_val_t /*alignment*/) noexcept {
  forget(memory);
  __real_free(memory);
}

namespace routing_test {

void failAllocation(int number) {
  countdown = number;
}

Block blockAt(const void* address) {
  const auto* const at = static_cast<const std::byte*>(address);
  for (const auto& [begin, size_bytes] : blocks()) {
    if (begin <= at && at < begin + size_bytes) return {begin, size_bytes};
  }
  return {};
}

std::size_t blockCount() {
  return blocks().size();
}

}  // namespace routing_test
