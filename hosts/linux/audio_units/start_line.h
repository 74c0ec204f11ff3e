// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace linux_host {

// Lets an output begin exactly when the input's first block is there, so that the delay between the
// two streams does not depend on which one the server sets up first.
//
// Invariants
// - `inputs_` counts the running inputs; while it is 0, outputs do not wait.
// - `firstBlock_ns_` is 0 until the first block of the running inputs has been handed over.
//
// Memory order: `firstBlock_ns_` is stored with release after the input's callback has returned and
// loaded with acquire by the output: what it then pulls sees everything that the callback has
// stored. The rest is set before streams start and after they have ended.
class StartLine {
 public:
  // Ordinary threads.
  void inputStarts() {
    if (inputs_.fetch_add(1, std::memory_order_acq_rel) == 0) {
      firstBlock_ns_.store(0, std::memory_order_release);
    }
  }
  void inputHasStopped() { inputs_.fetch_sub(1, std::memory_order_acq_rel); }

  // REAL-TIME, both. The input's thread, after each block; `played_ns` is when its first frame was
  // played.
  void blockDelivered(std::uint64_t played_ns) {
    if (firstBlock_ns_.load(std::memory_order_relaxed) == 0) {
      firstBlock_ns_.store(played_ns, std::memory_order_release);
    }
  }
  // The output's thread, until it has begun. Returns the moment from which its time counts; 0: not
  // yet.
  [[nodiscard]] std::uint64_t beginningFor(std::uint64_t cycle_ns) const {
    if (inputs_.load(std::memory_order_acquire) == 0) return cycle_ns;
    const std::uint64_t first_ns = firstBlock_ns_.load(std::memory_order_acquire);
    return first_ns <= cycle_ns ? first_ns : 0;
  }

 private:
  std::atomic<int> inputs_{0};
  std::atomic<std::uint64_t> firstBlock_ns_{0};
};

}  // namespace linux_host
