// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace platform {

// Not a port: for all rooms that hand memory to audio threads.
//
// A system gives memory its pages when they are first written to. This writes to each page now, so
// that no audio thread has to wait for one. The contents stay as they are. No other thread may use
// the memory yet. Any thread that may wait.
inline void makeResident(void* memory, std::size_t size_bytes) {
  constexpr std::size_t kPage_bytes = 4096;  // no system has smaller ones
  volatile auto* const bytes = static_cast<unsigned char*>(memory);
  for (std::size_t at = 0; at < size_bytes; at += kPage_bytes) bytes[at] = bytes[at];
  if (size_bytes > 0) bytes[size_bytes - 1] = bytes[size_bytes - 1];
}

}  // namespace platform
