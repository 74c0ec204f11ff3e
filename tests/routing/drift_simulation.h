// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "tests/routing/planar_block.h"
#include "tests/routing/play_through_fixture.h"

// Two audio devices on a virtual clock, each with its own crystal, around the real play-through
// callbacks. The loopback delivers a slow sine whose value depends on the sample time alone, so
// every frame played can be compared with the right one. The output device pulls through a
// varispeed stage that interpolates linearly.
//
// Every block goes through the ring, and every frame that the stage pulls is compared. Of the
// stage's output, each block's first and last samples are computed, because blocks can fail to join
// only there. Every 1024th block is computed whole.

namespace routing_test {

struct Scenario {
  const char* name;
  double input_ppm;   // how much faster than nominal the loopback runs
  double output_ppm;  // and how much faster the real device runs
  double outputRate_hz;
  std::uint32_t output_frames;  // the real device's period
  double duration_s;
  double suspension_s = 0;  // in the middle of the simulation, on both devices' clocks
};

struct Findings {
  std::uint64_t inputBlocks = 0;
  std::uint64_t outputBlocks = 0;
  std::uint64_t inputXruns = 0;
  std::uint64_t outputXruns = 0;
  // After the first second and outside of xruns:
  std::uint64_t wrongBlocks = 0;      // blocks of wrong frames
  std::uint64_t discontinuities = 0;  // a second difference beyond what the signal has
  double greatestSecondDifference = 0;
  // After the first second, in frames of the loopback:
  double leastLatency = 1e18;
  double greatestLatency = -1e18;
  double leastFill = 1e18;  // outside of xruns
  double greatestFill = -1e18;
};

// A cheap generator, good enough for jitter.
class Jitter {
 public:
  explicit Jitter(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ULL + 1) {}
  // 0 to 1.
  double next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<double>(state_ >> 11) * 0x1p-53;
  }

 private:
  std::uint64_t state_;
};

// A device's own time line.
struct DeviceClock {
  DeviceClock(double nominal_hz, double offset_ppm, std::uint32_t framesOfPeriod)
      : actual_hz(nominal_hz * (1 + offset_ppm * 1e-6)),
        speed(1 + offset_ppm * 1e-6),
        period_frames(framesOfPeriod) {}
  // When the device reaches frame `count` of the simulation, in seconds.
  [[nodiscard]] double timeOf(double count) const { return count / actual_hz; }

  double actual_hz;
  double speed;  // actual over nominal
  std::uint32_t period_frames;
  std::int64_t frames = 0;   // up to the next callback
  double estimateError = 0;  // of the phase that the speed is estimated from, frames
};

class DriftSimulation {
 public:
  explicit DriftSimulation(const Scenario& scenario);
  Findings run();

 private:
  static constexpr std::int64_t kTail_frames = 4;
  // Where the interpolating stage stands, in frames of the loopback.
  struct Stage {
    double position = 0;                     // of the next output sample
    std::int64_t pulledEnd = 0;              // frames up to here have been pulled
    std::array<float, kTail_frames> tail{};  // the last of what was pulled before
    std::vector<double> lastOutputs{0, 0};
  };

  static constexpr std::int64_t kFirstInputTime = 1'000'000;
  static constexpr double kLargestJitter_s = 0.003;
  static constexpr double kXrunProbability =
      1.0 / 1000;  // for each period: one in ten seconds or so
  // A lost input block is heard, as silence, one latency later.
  static constexpr double kSettling_s = 0.1;

  void render(const platform::AudioTimeStamp& time, std::uint32_t frames,
              platform::AudioBufferList& list);
  // Nothing runs for that time; then everything continues as if it had.
  void suspend();
  void inputCycle();
  void outputCycle(double ideal_s);
  void skipOutputCycle();
  std::uint32_t pull();
  void comparePulled(std::int64_t firstFrame, std::uint32_t frames);
  [[nodiscard]] const float* signal(std::int64_t sampleTime) const;
  [[nodiscard]] float stageSample(std::int64_t frame, std::int64_t pulledBefore);
  void checkOutput(std::int64_t pulledBefore, bool whole);
  void measure(double ideal_s, std::int64_t readTime, std::uint32_t frames);
  double estimatedSpeed(DeviceClock& clock);
  [[nodiscard]] bool settled() const {
    return seconds_ > 1.0 && seconds_ - lastXrun_s_ > kSettling_s;
  }

  Scenario scenario_;
  PlayThroughMachine machine_;
  Jitter jitter_;
  DeviceClock input_;
  DeviceClock output_;
  double ratio_;  // nominal frames of the loopback to one of the real device
  std::vector<float> signal_;
  PlanarBlock<float> block_;
  Stage stage_;
  double seconds_ = 0;
  double lastXrun_s_ = 0;
  Findings findings_;
};

}  // namespace routing_test
