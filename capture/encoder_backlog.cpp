// SPDX-License-Identifier: MIT
#include "capture/encoder_backlog.h"

namespace record_audio {

bool EncoderBacklog::add(std::int64_t samples) {
  const std::int64_t waiting = waiting_.fetch_add(samples, std::memory_order_relaxed) + samples;
  if (waiting < kBehind_s * rate_hz_.load(std::memory_order_relaxed)) return false;
  return !isBehind_.exchange(true, std::memory_order_relaxed);
}

void EncoderBacklog::take(std::int64_t samples) {
  const std::int64_t waiting = waiting_.fetch_sub(samples, std::memory_order_relaxed) - samples;
  if (waiting < kCaughtUp_s * rate_hz_.load(std::memory_order_relaxed)) {
    isBehind_.store(false, std::memory_order_relaxed);
  }
}

std::int64_t EncoderBacklog::behind_s() const {
  if (!isBehind_.load(std::memory_order_relaxed)) return 0;
  return waiting_.load(std::memory_order_relaxed) / rate_hz_.load(std::memory_order_relaxed);
}

double EncoderBacklog::takeDropped_s() {
  return static_cast<double>(dropped_.exchange(0, std::memory_order_relaxed)) /
         rate_hz_.load(std::memory_order_relaxed);
}

}  // namespace record_audio
