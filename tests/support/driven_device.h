// SPDX-License-Identifier: MIT
#pragma once

#include <spa/buffer/buffer.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

// A device that starts the graph's cycles, like a sound card's interrupt, at 48 kHz by its own
// crystal.
class DrivenDevice {
 public:
  static constexpr std::uint32_t kRate_Hz = 48000;

  struct Wiring {
    std::string nodeName;
    bool isSink = false;                   // else it is a microphone
    std::vector<std::uint32_t> positions;  // enum spa_audio_channel, one for each channel
    // Above 1, its cycles come faster than at the nominal rate.
    double speed = 1;
    // On the data thread: fills a cycle's buffer, or empties it. `frame` counts from the start,
    // including skipped cycles.
    std::function<void(spa_buffer& buffer, std::uint64_t frame, std::uint32_t frames)> exchange;
    // On the crystal's thread, for each cycle: how many cycles to skip before it, like a device
    // that was not served in time.
    std::function<std::uint64_t(std::uint64_t cycle_frames)> leftOut = [](std::uint64_t) {
      return std::uint64_t{0};
    };
  };

  // Throws when it cannot connect.
  explicit DrivenDevice(Wiring wiring);
  // Returns when the wiring's functions are no longer called.
  ~DrivenDevice();
  DrivenDevice(const DrivenDevice&) = delete;
  DrivenDevice& operator=(const DrivenDevice&) = delete;

  // Cycles that could not be started in time for lack of processor time.
  [[nodiscard]] int lateCycles() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
