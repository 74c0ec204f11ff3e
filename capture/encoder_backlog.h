// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace record_audio {

// How far the encoder is behind the capture, and how much a stop dropped. Any thread.
//
// Invariants
// - Every block is added once, before it is queued, and taken once, when the encoder is through
//   with it.
// - The encoder is behind from the moment when kBehind_s of sound wait until less than kCaughtUp_s
//   wait. So one delay is reported once.
//
// Memory order: all relaxed. Each number is used by itself; the queues order the samples.
class EncoderBacklog {
 public:
  static constexpr std::int64_t kBehind_s = 10;
  static constexpr std::int64_t kCaughtUp_s = 5;

  // The sample rate of what is added from now on.
  void setRate(int sampleRate_hz) {
    rate_hz_.store(std::max(1, sampleRate_hz), std::memory_order_relaxed);
  }
  // True if these samples put the encoder behind, and it was not before.
  [[nodiscard]] bool add(std::int64_t samples);
  void take(std::int64_t samples);
  // Seconds of sound that wait; 0 while the encoder is not behind.
  [[nodiscard]] std::int64_t behind_s() const;

  // Counts samples that will never be encoded.
  void drop(std::int64_t samples) { dropped_.fetch_add(samples, std::memory_order_relaxed); }
  // Seconds of sound dropped since the last call.
  [[nodiscard]] double takeDropped_s();

 private:
  std::atomic<int> rate_hz_{48000};
  std::atomic<std::int64_t> waiting_{0};  // samples
  std::atomic<bool> isBehind_{false};
  std::atomic<std::int64_t> dropped_{0};  // samples
};

}  // namespace record_audio
