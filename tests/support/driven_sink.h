// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

// A stereo sink with its own crystal: its cycles come faster or slower than at the nominal rate of
// 48 kHz. Records what is played to its first channel.
class DrivenSink {
 public:
  // `speed_ppm` above 0 is fast. Has room for this many seconds.
  DrivenSink(std::string nodeName, double speed_ppm, double room_s);
  ~DrivenSink();
  DrivenSink(const DrivenSink&) = delete;
  DrivenSink& operator=(const DrivenSink&) = delete;

  // Frames played since the start; silence counts.
  [[nodiscard]] std::size_t frames() const;
  [[nodiscard]] std::vector<float> samples(std::size_t from, std::size_t to) const;
  // Cycles that could not be started in time for lack of processor time.
  [[nodiscard]] int lateCycles() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
