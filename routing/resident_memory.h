// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace record_audio {

// Systems give memory its pages when they are first written to. Has that done now, so that no audio
// thread waits for one. For memory that no other thread uses yet; it stays as it is.
inline void makeResident(void* memory, std::size_t size_bytes) {
  constexpr std::size_t kPage_bytes = 4096;  // no system has shorter ones
  volatile auto* const bytes = static_cast<unsigned char*>(memory);
  for (std::size_t at = 0; at < size_bytes; at += kPage_bytes) bytes[at] = bytes[at];
  if (size_bytes > 0) bytes[size_bytes - 1] = bytes[size_bytes - 1];
}

}  // namespace record_audio
