// SPDX-License-Identifier: MIT
#pragma once

#include <spa/buffer/buffer.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

// A device of its own that starts the graph's cycles, as a sound card's interrupt does, at the rate
// of 48 kHz by a crystal of its own.
class DrivenDevice {
 public:
  static constexpr std::uint32_t kRate_Hz = 48000;

  struct Wiring {
    std::string nodeName;
    bool isSink = false;                   // else it is a microphone
    std::vector<std::uint32_t> positions;  // enum spa_audio_channel, one for each channel
    // Above 1 its cycles come faster than the nominal rate says.
    double speed = 1;
    // On the data thread: fills a cycle's buffer, or empties it. `frame` counts from the start,
    // with the cycles that were left out.
    std::function<void(spa_buffer& buffer, std::uint64_t frame, std::uint32_t frames)> exchange;
    // On the crystal's thread, for each cycle: how many are left out before it, as by a device that
    // nobody served in time.
    std::function<std::uint64_t(std::uint64_t cycle_frames)> leftOut = [](std::uint64_t) {
      return std::uint64_t{0};
    };
  };

  // Throws when it cannot connect.
  explicit DrivenDevice(Wiring wiring);
  // Returns when nothing of the wiring is called any more.
  ~DrivenDevice();
  DrivenDevice(const DrivenDevice&) = delete;
  DrivenDevice& operator=(const DrivenDevice&) = delete;

  // Cycles whose turn had passed before they could be started, for want of processor time.
  [[nodiscard]] int lateCycles() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace test_support
