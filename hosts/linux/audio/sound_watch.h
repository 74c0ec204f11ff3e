// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace linux_host {

// Checks whether anything but digital silence comes in on the recorded channels: a muted device, an
// unplugged microphone or the wrong input is silent to the last bit.
class SoundWatch {
 public:
  // Silence of this length, from the start or after sound, means that something is wrong.
  static constexpr std::uint64_t kSilentStart_s = 3;
  static constexpr std::uint64_t kLongSilence_s = 10;

  explicit SoundWatch(std::uint32_t rate_Hz) : rate_Hz_(rate_Hz) {}

  // Takes the next `frames` of all `channels`, of which the first `recorded` are recorded. Call
  // from one thread.
  void listen(const float* const* planes, std::uint32_t channels, std::uint32_t recorded,
              std::uint32_t frames);
  // Whether it has been silent for long. Any thread.
  [[nodiscard]] bool isSilent() const { return isSilent_.load(std::memory_order_relaxed); }
  // Whether it has been silent while another channel was not. The listening thread.
  [[nodiscard]] bool hasSoundElsewhere() const { return hasSoundElsewhere_; }

 private:
  const std::uint32_t rate_Hz_;
  std::uint64_t silent_frames_ = 0;  // at the end of the samples so far
  bool hasHeardSound_ = false;
  bool hasSoundElsewhere_ = false;
  std::atomic<bool> isSilent_{false};
};

}  // namespace linux_host
