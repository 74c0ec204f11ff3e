// SPDX-License-Identifier: MIT
// play_through_latency [JSON-FILE]
//
// Measures how much later a sound is heard on the real output than it was played to the loopback,
// through the play-through and, on the same devices, through pw-loopback.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "driver/loopback_protocol.h"
#include "tests/integration/play_through_rig.h"
#include "tests/support/child_process.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/signal_feed.h"

namespace {

using linux_host::MonitorRecorder;
using linux_host::PlayThroughRig;
using test_support::ChildProcess;
using test_support::PipeWireControl;
using test_support::PrivatePipeWire;
using test_support::SignalFeed;
using test_support::waitUntil;

constexpr char kSpeakers[] = "speakers";
constexpr double kRate_Hz = 48000;
constexpr double kBuffer_frames = 1024;
constexpr int kRuns = 7;
constexpr float kLoud = 0.25F;

// The delay of a tone's beginning between the two monitors, frames; null when it is not heard.
std::optional<double> delay_frames(PipeWireControl& control) {
  MonitorRecorder played(loopback::kLoopbackDeviceUID, kRate_Hz, 2);
  MonitorRecorder heard(kSpeakers, kRate_Hz, 2);
  const auto second = static_cast<std::size_t>(kRate_Hz);
  if (!waitUntil([&] { return played.frames() > second && heard.frames() > second; })) return {};
  const std::size_t playedBefore = played.frames();
  const std::size_t heardBefore = heard.frames();
  const SignalFeed feed("program", 2, test_support::tone1000Hz);
  control.link(feed.nodeName(), loopback::kLoopbackDeviceUID);
  const auto isHeard = [&] {
    return played.timeOfFirstLouder_s(kLoud, playedBefore) > 0 &&
           heard.timeOfFirstLouder_s(kLoud, heardBefore) > 0;
  };
  if (!waitUntil(isHeard)) return {};
  return (heard.timeOfFirstLouder_s(kLoud, heardBefore) -
          played.timeOfFirstLouder_s(kLoud, playedBefore)) *
         kRate_Hz;
}

// The median of several runs; null when one failed.
template <typename Start>
std::optional<double> median(PipeWireControl& control, Start start) {
  std::vector<double> delays;
  for (int i = 0; i < kRuns; ++i) {
    const auto running = start();
    const std::optional<double> delay = delay_frames(control);
    if (!delay) return {};
    delays.push_back(*delay);
  }
  std::sort(delays.begin(), delays.end());
  return delays[delays.size() / 2];
}

bool writeJson(const char* path, double ours_frames, double theirs_frames) {
  std::FILE* file = std::fopen(path, "w");
  if (file == nullptr) return false;
  std::fprintf(file, R"({"play_through_ms": %.3f, "pw_loopback_ms": %.3f, "buffer_ms": %.3f})",
               ours_frames / kRate_Hz * 1e3, theirs_frames / kRate_Hz * 1e3,
               kBuffer_frames / kRate_Hz * 1e3);
  return std::fclose(file) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  const PrivatePipeWire server;
  PipeWireControl control;
  control.createSink(loopback::kLoopbackDeviceUID, {{"session.suspend-timeout-seconds", "0"}});
  control.createSink(kSpeakers);
  PlayThroughRig rig;

  struct Stop {
    void operator()(PlayThroughRig* running) const { running->stop(); }
  };
  const auto ours = median(control, [&] {
    rig.start(kSpeakers);
    return std::unique_ptr<PlayThroughRig, Stop>(&rig);
  });
  const auto theirs = median(control, [] {
    return std::make_unique<ChildProcess>(ChildProcess::Command{
        {"pw-loopback",
         std::string("--capture-props={ stream.capture.sink = true target.object = ") +
             loopback::kLoopbackDeviceUID + " }",
         std::string("--playback-props={ target.object = ") + kSpeakers + " }"},
        {},
        {}});
  });
  if (!ours || !theirs) {
    std::fprintf(stderr, "The tone was not heard (%s).\n", ours ? "pw-loopback" : "play-through");
    return EXIT_FAILURE;
  }
  std::printf("play-through: %.0f frames, %.1f ms (%.2f buffers of %.0f)\n", *ours,
              *ours / kRate_Hz * 1e3, *ours / kBuffer_frames, kBuffer_frames);
  std::printf("pw-loopback:  %.0f frames, %.1f ms\n", *theirs, *theirs / kRate_Hz * 1e3);
  if (*theirs >= 1) std::printf("ratio: %.2f\n", *ours / *theirs);
  if (argc > 1 && !writeJson(argv[1], *ours, *theirs)) {
    std::perror(argv[1]);
    return EXIT_FAILURE;
  }
  return *ours <= 2 * kBuffer_frames + 8 ? EXIT_SUCCESS : EXIT_FAILURE;
}
