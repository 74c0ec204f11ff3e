// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

// Copies to and from memory that another thread may be reading or writing at the same moment. With
// a plain memcpy that is undefined behaviour. `shared` is the shared memory; the other side belongs
// to the calling thread. REAL-TIME: no allocation, no lock, no system call.
//
// Invariants
// - If the address of `shared` and the size are multiples of four bytes, every 32-bit sample is
//   read and written as a whole. A copy may be partly old and partly new, but each sample is one
//   or the other. Otherwise this holds for single bytes only.
// - While more than one thread has the memory, it is used only through this header.
//
// Memory order
// - Relaxed everywhere, and the string instructions promise no more: samples order nothing. A
//   caller that needs an order publishes through its own atomic, with release after copyIn() and
//   acquire before copyOut().
//
// On x86-64 a string instruction with steps of four bytes does the work at memcpy's speed, outside
// the language's memory model. If it is aligned, the processor performs each step as a whole and
// takes interrupts only between steps. `rep movsb`, with steps of one byte, promises neither. Words
// moved by std::atomic_ref do the same on any processor, but compilers do not combine them. They
// are used on other processors, and under sanitizers, which must see each access. Measured, with
// memcpy's time as 1: `rep movsb` 0.99 to 1.03, `rep movsl` 0.99 to 1.04, relaxed 64-bit
// atomics 3.0 to 5.8, 32-bit ones 6.0 to 8.2.

#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define RA_RACING_STRING_INSTRUCTIONS 1
#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#undef RA_RACING_STRING_INSTRUCTIONS
#endif
#endif
#endif

#ifndef RA_RACING_STRING_INSTRUCTIONS
#include <atomic>
#include <cstring>
#endif

namespace record_audio::racing {
namespace detail {

inline bool holdsSamples(const std::byte* shared, std::size_t size_bytes) {
  return (reinterpret_cast<std::uintptr_t>(shared) | size_bytes) % sizeof(std::uint32_t) == 0;
}

#ifdef RA_RACING_STRING_INSTRUCTIONS

inline void move(std::byte* to, const std::byte* from, std::size_t size_bytes, bool areSamples) {
  if (areSamples) {
    std::size_t count = size_bytes / sizeof(std::uint32_t);
    asm volatile("rep movsl" : "+D"(to), "+S"(from), "+c"(count) : : "memory");
  } else {
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size_bytes) : : "memory");
  }
}

#else

template <typename T>
void storeEach(std::byte* shared, const std::byte* own, std::size_t size_bytes) {
  for (std::size_t at = 0; at < size_bytes; at += sizeof(T)) {
    T value = 0;
    if (own != nullptr) std::memcpy(&value, own + at, sizeof value);
    std::atomic_ref<T>(*reinterpret_cast<T*>(shared + at)).store(value, std::memory_order_relaxed);
  }
}

template <typename T>
void loadEach(std::byte* own, std::byte* shared, std::size_t size_bytes) {
  for (std::size_t at = 0; at < size_bytes; at += sizeof(T)) {
    const T value =
        std::atomic_ref<T>(*reinterpret_cast<T*>(shared + at)).load(std::memory_order_relaxed);
    std::memcpy(own + at, &value, sizeof value);
  }
}

// A null `own` stands for silence.
inline void store(std::byte* shared, const std::byte* own, std::size_t size_bytes) {
  if (holdsSamples(shared, size_bytes)) {
    storeEach<std::uint32_t>(shared, own, size_bytes);
  } else {
    storeEach<std::uint8_t>(shared, own, size_bytes);
  }
}

#endif

}  // namespace detail

inline void copyIn(std::byte* shared, const std::byte* own, std::size_t size_bytes) {
#ifdef RA_RACING_STRING_INSTRUCTIONS
  detail::move(shared, own, size_bytes, detail::holdsSamples(shared, size_bytes));
#else
  detail::store(shared, own, size_bytes);
#endif
}

inline void copyOut(std::byte* own, const std::byte* shared, std::size_t size_bytes) {
#ifdef RA_RACING_STRING_INSTRUCTIONS
  detail::move(own, shared, size_bytes, detail::holdsSamples(shared, size_bytes));
#else
  // It is only read, but std::atomic_ref does not take a const type.
  std::byte* const source = const_cast<std::byte*>(shared);
  if (detail::holdsSamples(shared, size_bytes)) {
    detail::loadEach<std::uint32_t>(own, source, size_bytes);
  } else {
    detail::loadEach<std::uint8_t>(own, source, size_bytes);
  }
#endif
}

inline void zero(std::byte* shared, std::size_t size_bytes) {
#ifdef RA_RACING_STRING_INSTRUCTIONS
  if (detail::holdsSamples(shared, size_bytes)) {
    std::size_t count = size_bytes / sizeof(std::uint32_t);
    asm volatile("rep stosl" : "+D"(shared), "+c"(count) : "a"(0) : "memory");
  } else {
    asm volatile("rep stosb" : "+D"(shared), "+c"(size_bytes) : "a"(0) : "memory");
  }
#else
  detail::store(shared, nullptr, size_bytes);
#endif
}

#undef RA_RACING_STRING_INSTRUCTIONS

}  // namespace record_audio::racing
