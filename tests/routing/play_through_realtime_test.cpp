// SPDX-License-Identifier: MIT
// The callbacks in the real-time trap. On no path do they allocate, lock or enter the kernel, and
// they use a small part of their period.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <iostream>
#include <vector>

#include "tests/routing/planar_block.h"
#include "tests/routing/play_through_fixture.h"
#include "tests/routing/unstable_bounds.h"
#include "tests/support/realtime_trap.h"

namespace record_audio {
namespace {

using platform::noErr;
using routing_test::at;
using routing_test::kBuffer_frames;
using routing_test::kLoopback;
using routing_test::kSpeakers;

// The thread's own processor time, so that a busy machine does not matter.
double threadTime_s() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

class PlayThroughRealtime : public testing::Test, protected routing_test::PlayThroughMachine {
 protected:
  PlayThroughRealtime() { startPlaying(); }

  bool input(double time_frames) {
    return host.audioUnits.driveInput(at(time_frames), kBuffer_frames) == noErr;
  }
  bool output(double time_frames) {
    out.resetSizes();
    return host.audioUnits.driveOutput(at(time_frames), kBuffer_frames, &out.list()) == noErr;
  }

  // Takes every path through both callbacks.
  bool takeEveryPath() {
    auto& hardware = host.audioHardware;
    bool good = output(0);                                 // before any input
    for (int i = 0; i < 100; ++i) good &= input(i * 512);  // the ring fills and wraps
    good &= input(200 * 512) && input(100 * 512);          // a gap, a step back
    hardware.failCurrentTime(kLoopback, -1);
    good &= output(0);
    hardware.failCurrentTime(kLoopback, noErr);
    hardware.failCurrentTime(kSpeakers, -1);
    good &= !output(0);
    hardware.failCurrentTime(kSpeakers, noErr);
    host.audioUnits.setParameterStatus = -1;
    good &= !output(0);
    host.audioUnits.setParameterStatus = noErr;
    good &= output(0);  // anchors
    for (int i = 1; i < 100; ++i) good &= input((100 + i) * 512) && output(i * 512);
    good &= output(1e9);  // nothing held there
    routing_test::makeBoundsUnstable(*playThrough->ringBuffer);
    good &= output(100 * 512);  // anchors again
    host.audioUnits.renderStatus = -1;
    good &= !input(300 * 512);
    host.audioUnits.renderStatus = noErr;
    return good;
  }

  routing_test::PlanarBlock<float> out{2, kBuffer_frames};
};

TEST_F(PlayThroughRealtime, NoPathAllocatesLocksOrMakesASystemCall) {
  const realtime_trap::Report report =
      realtime_trap::runTrapped([this] { return takeEveryPath(); });
  EXPECT_TRUE(report.clean()) << realtime_trap::describe(report);
  RecordProperty("LocksAndSystemCallsWatched",
                 realtime_trap::watchesLocksAndSystemCalls() ? "yes" : "no");
}

TEST_F(PlayThroughRealtime, TheTrapWouldSeeAnAllocationInACallback) {
  host.audioUnits.render = [](const platform::AudioTimeStamp&, std::uint32_t,
                              platform::AudioBufferList&) {
    int* volatile kept = new int(1);
    delete kept;
  };
  const auto report = realtime_trap::runTrapped([this] { return input(0); });
  EXPECT_THAT(report.violations, testing::IsSupersetOf({testing::StrEq("malloc 1 times"),
                                                        testing::StrEq("free 1 times")}));
}

TEST_F(PlayThroughRealtime, NearlyEveryCallbackTakesLessThanATwentiethOfItsPeriod) {
  constexpr int kPeriods = 5000;
  constexpr double kPeriod_s = kBuffer_frames / 48000.0;
  std::vector<double> inputs_s;
  std::vector<double> outputs_s;
  for (int i = 0; i < kPeriods; ++i) {
    const double start_s = threadTime_s();
    ASSERT_TRUE(input(i * 512));
    const double between_s = threadTime_s();
    ASSERT_TRUE(output(i * 512));
    const double end_s = threadTime_s();
    inputs_s.push_back(between_s - start_s);
    outputs_s.push_back(end_s - between_s);
  }
  const auto p999 = [](std::vector<double>& times) {
    const auto rank = times.begin() + static_cast<std::ptrdiff_t>(times.size() * 999 / 1000);
    std::nth_element(times.begin(), rank, times.end());
    return *rank;
  };
  const double input_s = p999(inputs_s);
  const double output_s = p999(outputs_s);
  RecordProperty("InputP999_ns", static_cast<int>(input_s * 1e9));
  RecordProperty("OutputP999_ns", static_cast<int>(output_s * 1e9));
  std::cout << "p99.9 of the callbacks: input " << input_s * 1e6 << " us, output " << output_s * 1e6
            << " us of a period of " << kPeriod_s * 1e6 << " us\n";
  EXPECT_LT(input_s, kPeriod_s / 20);
  EXPECT_LT(output_s, kPeriod_s / 20);
}

}  // namespace
}  // namespace record_audio
