// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/audio_types.h"

namespace linux_host {

// 32-bit float with one plane per channel: the format of all audio units here.
bool isPlanarFloat(const platform::AudioStreamBasicDescription& format);

// A buffer list with one buffer per channel, over samples stored elsewhere.
class PlaneList {
 public:
  PlaneList() : PlaneList(0) {}
  // Throws std::bad_alloc.
  explicit PlaneList(std::uint32_t channels);

  // REAL-TIME (all below).
  void setPlane(std::uint32_t channel, float* samples, std::uint32_t frames);
  [[nodiscard]] platform::AudioBufferList& list();
  [[nodiscard]] std::uint32_t channels() const { return channels_; }
  [[nodiscard]] float* plane(std::uint32_t channel);
  // The number of frames in the buffer.
  [[nodiscard]] std::uint32_t frames(std::uint32_t channel);

 private:
  std::uint32_t channels_ = 0;
  std::vector<std::byte> bytes_;
};

}  // namespace linux_host
