// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

// A stereo sink with a crystal of its own: its cycles come faster or slower than the nominal rate
// of 48 kHz says. Keeps what is played to its first channel.
class DrivenSink {
 public:
  // `speed_ppm` above 0 is fast. Room for that many seconds.
  DrivenSink(std::string nodeName, double speed_ppm, double room_s);
  ~DrivenSink();
  DrivenSink(const DrivenSink&) = delete;
  DrivenSink& operator=(const DrivenSink&) = delete;

  // Frames played since the start; silence counts.
  [[nodiscard]] std::size_t frames() const;
  [[nodiscard]] std::vector<float> samples(std::size_t from, std::size_t to) const;
  // Cycles whose turn had passed before they could be started, for want of processor time.
  [[nodiscard]] int lateCycles() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
