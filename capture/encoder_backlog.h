// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace record_audio {

// How far an encoder is behind what was captured, and how much of it a stop has dropped. Any
// thread.
//
// Invariants
// - Every block is added once, before it is queued, and taken once, when its turn is over.
// - The encoder is behind from the block that makes ten seconds of sound wait until less than five
//   do, so that it is told once.
//
// Memory order: all relaxed. The numbers stand for themselves; the queues order the samples.
class EncoderBacklog {
 public:
  static constexpr std::int64_t kBehind_s = 10;
  static constexpr std::int64_t kCaughtUp_s = 5;

  // The rate of the samples that are added from now on.
  void setRate(int sampleRate_hz) {
    rate_hz_.store(std::max(1, sampleRate_hz), std::memory_order_relaxed);
  }
  // True when the encoder is behind with these samples and was not before.
  [[nodiscard]] bool add(std::int64_t samples);
  void take(std::int64_t samples);
  // Seconds of sound that wait while the encoder is behind; 0 while it is not.
  [[nodiscard]] std::int64_t behind_s() const;

  // These will never be encoded.
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
