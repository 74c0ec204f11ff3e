// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>

#include "hosts/linux/base/expected.h"

namespace linux_host {

// Receives the samples of a capture run. Called only on the run's drain thread.
class CaptureConsumer {
 public:
  virtual ~CaptureConsumer() = default;

  // Whether it wants more samples now; the rest waits in the ring. Not called at the end.
  [[nodiscard]] virtual bool isReady() = 0;
  // Takes the next `frames` samples of each channel, valid during the call. May take time: the ring
  // bridges seconds. After a failure only finish() is called.
  virtual Status take(const float* const* planes, std::uint32_t frames) = 0;
  // There are no more samples. Called exactly once.
  virtual void finish() = 0;
  // How many of the first of `channels` channels it records. Constant.
  [[nodiscard]] virtual std::uint32_t recordedChannels(std::uint32_t channels) const {
    return channels;
  }
  // How long samples may stay in the ring before it gets them. Constant. A longer time makes the
  // thread wake up less often and do more at once.
  [[nodiscard]] virtual std::chrono::milliseconds patience() const { return kUsualPatience; }

 protected:
  static constexpr std::chrono::milliseconds kUsualPatience{25};
};

}  // namespace linux_host
