// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/audio_types.h"

namespace routing_test {

// A buffer list with one plane per buffer and its own storage. A test may change the sizes. Behind
// the last buffer is one more, which does not belong to the list: who touches it fails the test.
template <typename Sample = float>
class PlanarBlock {
 public:
  PlanarBlock(std::uint32_t channels, std::uint32_t frames, Sample fill = {})
      : storage_(platform::audioBufferListSize_bytes(channels + 1) / sizeof(std::uint64_t)),
        planes_(channels, std::vector<Sample>(frames, fill)),
        behind_(frames + 1, kBehind) {
    list().mNumberBuffers = channels;
    for (std::uint32_t i = 0; i < channels; ++i) {
      buffer(i) = {1, static_cast<std::uint32_t>(frames * sizeof(Sample)), planes_[i].data()};
    }
    buffer(channels) = {1, behindSize_bytes(), behind_.data()};
  }
  ~PlanarBlock() {
    EXPECT_EQ(buffer(static_cast<std::uint32_t>(planes_.size())).mDataByteSize, behindSize_bytes());
    EXPECT_EQ(behind_, std::vector<Sample>(behind_.size(), kBehind));
  }
  PlanarBlock(const PlanarBlock&) = delete;
  PlanarBlock& operator=(const PlanarBlock&) = delete;

  platform::AudioBufferList& list() {
    return *static_cast<platform::AudioBufferList*>(static_cast<void*>(storage_.data()));
  }
  platform::AudioBuffer& buffer(std::uint32_t i) {
    platform::AudioBuffer* const first = list().mBuffers;
    return first[i];
  }
  std::vector<Sample>& plane(std::uint32_t i) { return planes_[i]; }

  // Gives every buffer the full size of its plane again.
  void resetSizes() {
    for (std::uint32_t i = 0; i < planes_.size(); ++i) {
      buffer(i).mDataByteSize = static_cast<std::uint32_t>(planes_[i].size() * sizeof(Sample));
    }
  }

 private:
  static constexpr Sample kBehind = 77;

  [[nodiscard]] std::uint32_t behindSize_bytes() const {
    return static_cast<std::uint32_t>(behind_.size() * sizeof(Sample));
  }

  std::vector<std::uint64_t> storage_;
  std::vector<std::vector<Sample>> planes_;
  std::vector<Sample> behind_;
};

}  // namespace routing_test
