// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace linux_host {

// Who receives the samples of a capture run. Called on the run's drain thread alone.
class CaptureConsumer {
 public:
  virtual ~CaptureConsumer() = default;

  // Whether it wants more samples now; what it refuses waits in the ring. Not asked at the end.
  [[nodiscard]] virtual bool isReady() = 0;
  // The next `frames` samples of each channel, valid during the call. May take its time: seconds
  // are bridged by the ring. Returns an error text, empty on success; after an error nothing but
  // finish() is called.
  [[nodiscard]] virtual std::string take(const float* const* planes, std::uint32_t frames) = 0;
  // No more samples come. Called exactly once.
  virtual void finish() = 0;
  // Of so many channels it records the first how many? Constant.
  [[nodiscard]] virtual std::uint32_t recordedChannels(std::uint32_t channels) const {
    return channels;
  }
  // How long samples may lie in the ring before it is given them. Constant. The longer, the fewer
  // times the thread wakes up and the more it gets done each time.
  [[nodiscard]] virtual std::chrono::milliseconds patience() const { return kUsualPatience; }

 protected:
  static constexpr std::chrono::milliseconds kUsualPatience{10};
};

}  // namespace linux_host
