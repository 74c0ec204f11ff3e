// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

// Copies to and from memory that another thread may be reading or writing at the same moment, which
// for the language is undefined with a plain memcpy. The memory shared is `shared`; the other side
// belongs to the calling thread. REAL-TIME: no allocation, no lock, no system call.
//
// Invariants
// - Where `shared` begins at a multiple of four bytes and the size is one, every 32-bit sample of
//   it is read and written as a whole: what is copied may be partly old and partly new, but each
//   sample is one or the other. Otherwise this holds for bytes only.
// - Shared memory is touched through this header alone, while more than one thread has it.
//
// Memory order
// - Relaxed everywhere, and the string instructions promise no more: samples order nothing. Whoever
//   needs an order publishes it through an atomic of his own, with release after copyIn() and
//   acquire before copyOut().
//
// On x86-64 a string instruction of four bytes a step does the work at memcpy's speed, outside of
// the language's memory model. The processor promises each step of an aligned one to be whole, and
// takes interrupts only between them; of `rep movsb`, with steps of a byte, neither holds. Words
// moved by std::atomic_ref do the same anywhere, but compilers leave them single, which takes six
// to eight times as long. They serve other processors, and sanitizers, which are to see each
// access.

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

// Null is silence.
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
  // Only read, but std::atomic_ref takes no const.
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
