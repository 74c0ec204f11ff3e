#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Copies to and from memory that another thread may be reading or writing at the same moment. What
// is copied then may be partly old and partly new, but nothing worse: for the language a plain
// memcpy would be a data race, that is, undefined. The memory shared is `shared`; the other side
// belongs to the calling thread. Neither function orders anything: whoever needs an order publishes
// it through an atomic of his own. REAL-TIME: no allocation, no lock, no system call.
//
// On x86-64 one string instruction does the work at memcpy's speed, outside of the language's
// memory model; it never splits an aligned 32-bit sample. Elsewhere, and wherever a sanitizer is to
// see each access, relaxed atomic words do.

namespace record_audio::racing {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define RA_RACING_STRING_INSTRUCTIONS 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define RA_RACING_STRING_INSTRUCTIONS 0
#endif
#endif
#ifndef RA_RACING_STRING_INSTRUCTIONS
#ifdef __x86_64__
#define RA_RACING_STRING_INSTRUCTIONS 1
#else
#define RA_RACING_STRING_INSTRUCTIONS 0
#endif
#endif

#if RA_RACING_STRING_INSTRUCTIONS

inline void copyIn(std::byte* shared, const std::byte* own, std::size_t size_bytes) {
  asm volatile("rep movsb" : "+D"(shared), "+S"(own), "+c"(size_bytes) : : "memory");
}

inline void copyOut(std::byte* own, const std::byte* shared, std::size_t size_bytes) {
  asm volatile("rep movsb" : "+D"(own), "+S"(shared), "+c"(size_bytes) : : "memory");
}

inline void zero(std::byte* shared, std::size_t size_bytes) {
  asm volatile("rep stosb" : "+D"(shared), "+c"(size_bytes) : "a"(0) : "memory");
}

#else

namespace detail {

using Word __attribute__((may_alias)) = std::uint64_t;
using Byte __attribute__((may_alias)) = std::uint8_t;

// Cuts shared memory into single bytes up to the first aligned word, words, and bytes again. The
// action gets an atomically accessible pointer and its offset.
template <typename Action>
void forEachPiece(std::byte* shared, std::size_t size_bytes, Action action) {
  std::size_t at = 0;
  const auto isWord = [&] {
    return reinterpret_cast<std::uintptr_t>(shared + at) % sizeof(Word) == 0 &&
           size_bytes - at >= sizeof(Word);
  };
  while (at < size_bytes) {
    if (isWord()) {
      action(static_cast<Word*>(static_cast<void*>(shared + at)), at);
      at += sizeof(Word);
    } else {
      action(static_cast<Byte*>(static_cast<void*>(shared + at)), at);
      at += sizeof(Byte);
    }
  }
}

}  // namespace detail

inline void copyIn(std::byte* shared, const std::byte* own, std::size_t size_bytes) {
  detail::forEachPiece(shared, size_bytes, [own]<typename T>(T* piece, std::size_t at) {
    T value;
    std::memcpy(&value, own + at, sizeof value);
    __atomic_store_n(piece, value, __ATOMIC_RELAXED);
  });
}

inline void copyOut(std::byte* own, const std::byte* shared, std::size_t size_bytes) {
  detail::forEachPiece(const_cast<std::byte*>(shared), size_bytes,
                       [own]<typename T>(T* piece, std::size_t at) {
                         const T value = __atomic_load_n(piece, __ATOMIC_RELAXED);
                         std::memcpy(own + at, &value, sizeof value);
                       });
}

inline void zero(std::byte* shared, std::size_t size_bytes) {
  detail::forEachPiece(shared, size_bytes, []<typename T>(T* piece, std::size_t) {
    __atomic_store_n(piece, T{0}, __ATOMIC_RELAXED);
  });
}

#endif

#undef RA_RACING_STRING_INSTRUCTIONS

}  // namespace record_audio::racing
