// SPDX-License-Identifier: MIT
// The play-through on a real sound server, from a loopback device to a sink, each with its own
// clock.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>

#include "driver/loopback_protocol.h"
#include "tests/integration/play_through_rig.h"
#include "tests/routing/sanitizer_budget.h"
#include "tests/support/data_threads.h"
#include "tests/support/driven_sink.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/realtime_trap.h"
#include "tests/support/signal_feed.h"
#include "tests/support/tone_figures.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using test_support::measureTone;
using test_support::PipeWireControl;
using test_support::PrivatePipeWire;
using test_support::SignalFeed;
using test_support::ToneFigures;
using test_support::waitUntil;

constexpr char kSpeakers[] = "speakers";
constexpr double kAmplitude = 0.5;
constexpr std::uint32_t kBuffer_frames = 8192;  // as devices report
constexpr std::uint32_t kCycle_frames = kBuffer_frames / 2;

// How long to listen to drifting clocks. Sanitizers find their faults within any second.
double driftLength_s() {
  const char* wanted_s = std::getenv("RA_DRIFT_SECONDS");
  if (wanted_s != nullptr) return std::atof(wanted_s);
  return routing_test::kSanitized ? 4 : 12;
}

// Fixes the cycle length, whatever streams ask for. It is long where a test listens to sound,
// because virtual machines wake even real-time threads late.
PrivatePipeWire::Options withCycles(std::uint32_t frames) {
  PrivatePipeWire::Options options;
  const std::string number = std::to_string(frames);
  const std::string buffer = std::to_string(kBuffer_frames);
  options.watchdog = 90s + std::chrono::seconds(static_cast<int>(driftLength_s()));
  options.pipewireDropIns = {
      {"10-cycles.conf", "context.properties = { default.clock.quantum = " + buffer +
                             " default.clock.min-quantum = " + number +
                             " default.clock.max-quantum = 8192 }\n"}};
  return options;
}

struct Machine {
  PrivatePipeWire server{withCycles(kCycle_frames)};
  PipeWireControl control;
};

class PlayThroughTest : public testing::Test {
 protected:
  void setUp(const PipeWireControl::Properties& loopback = {},
             const PipeWireControl::Properties& speakers = {}) {
    PipeWireControl::Properties all = loopback;
    all["session.suspend-timeout-seconds"] = "0";
    machine.control.createSink(loopback::kLoopbackDeviceUID, all);
    machine.control.createSink(kSpeakers, speakers);
    feed = std::make_unique<SignalFeed>("program", 2, test_support::tone1000Hz);
    machine.control.link(feed->nodeName(), loopback::kLoopbackDeviceUID);
    rig = std::make_unique<PlayThroughRig>();
  }
  ~PlayThroughTest() override {
    if (HasFailure()) std::fprintf(stderr, "%s\n", machine.server.log().c_str());
  }

  // What is heard between these seconds of the recording.
  static ToneFigures heard(const MonitorRecorder& recorder, double from_s, double to_s) {
    const double rate_Hz = recorder.rate_Hz();
    EXPECT_TRUE(
        waitUntil([&] { return static_cast<double>(recorder.frames()) >= to_s * rate_Hz; }, 30s))
        << recorder.frames();
    return measureTone(recorder.samples(0, static_cast<std::size_t>(from_s * rate_Hz),
                                        static_cast<std::size_t>(to_s * rate_Hz)),
                       rate_Hz);
  }
  // The delay from a sound on the loopback to the same sound on the speakers; without a feed.
  double measuredDelay_frames() {
    MonitorRecorder before(loopback::kLoopbackDeviceUID, 48000, 2);
    MonitorRecorder after(kSpeakers, 48000, 2);
    const auto isQuiet = [](const MonitorRecorder& recorder) {
      const std::size_t frames = recorder.frames();
      return frames > 24000 && recorder.timeOfFirstLouder_s(0.01F, frames - 12000) == 0;
    };
    EXPECT_TRUE(waitUntil([&] { return isQuiet(before) && isQuiet(after); }, 10s));
    const std::size_t beforeFrames = before.frames();
    const std::size_t afterFrames = after.frames();
    feed = std::make_unique<SignalFeed>("program", 2, test_support::tone1000Hz);
    machine.control.link(feed->nodeName(), loopback::kLoopbackDeviceUID);
    EXPECT_TRUE(waitUntil([&] {
      return before.timeOfFirstLouder_s(0.25F, beforeFrames) > 0 &&
             after.timeOfFirstLouder_s(0.25F, afterFrames) > 0;
    }));
    return (after.timeOfFirstLouder_s(0.25F, afterFrames) -
            before.timeOfFirstLouder_s(0.25F, beforeFrames)) *
           48000;
  }
  static void expectCleanTone(const ToneFigures& figures, double rate_Hz,
                              double amplitude = kAmplitude) {
    EXPECT_NEAR(figures.frequency_Hz, 1000, 0.5);
    EXPECT_NEAR(figures.amplitude, amplitude, amplitude * 0.02);
    EXPECT_LT(figures.largestSecondDifference,
              test_support::secondDifferenceOfSine(1000, amplitude, rate_Hz) * 1.1);
  }

  Machine machine;
  std::unique_ptr<SignalFeed> feed;
  std::unique_ptr<PlayThroughRig> rig;
};

TEST_F(PlayThroughTest, ToneIsUnbrokenAfterTheFirstSecond) {
  setUp();
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  MonitorRecorder recorder(kSpeakers, 48000, 2);
  expectCleanTone(heard(recorder, 1.0, 6.0), 48000);
}

TEST_F(PlayThroughTest, DelayIsTwoBuffersWhicheverStreamComesFirst) {
  setUp();
  for (int attempt = 0; attempt < 5; ++attempt) {
    feed.reset();
    ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
    EXPECT_NEAR(measuredDelay_frames(), 2 * kBuffer_frames, 8);
    rig->stop();
  }
}

// Like a computer that is suspended.
TEST_F(PlayThroughTest, ServerThatStalledForSecondsIsHeardAsBeforeAndNoLater) {
  setUp();
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  MonitorRecorder recorder(kSpeakers, 48000, 2);
  expectCleanTone(heard(recorder, 1.0, 2.0), 48000);
  machine.server.daemon().sendSignal(SIGSTOP);
  waitUntil([] { return false; }, 3s);
  machine.server.daemon().sendSignal(SIGCONT);
  const double settled_s = static_cast<double>(recorder.frames()) / 48000 + 3;
  expectCleanTone(heard(recorder, settled_s, settled_s + 2), 48000);
  feed.reset();
  EXPECT_NEAR(measuredDelay_frames(), 2 * kBuffer_frames, kBuffer_frames);
}

struct Layout {
  const char* name;
  const char* loopback;
  const char* speakers;
  std::uint32_t speakerChannels;
  double amplitude;  // on the first speaker; all channels of the loopback play the same
};
void PrintTo(const Layout& layout, std::ostream* out) {
  *out << layout.name;
}

class PlayThroughChannelsTest : public PlayThroughTest,
                                public testing::WithParamInterface<Layout> {};

TEST_P(PlayThroughChannelsTest, ToneIsHeard) {
  setUp({{"audio.position", GetParam().loopback}}, {{"audio.position", GetParam().speakers}});
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  MonitorRecorder recorder(kSpeakers, 48000, GetParam().speakerChannels);
  expectCleanTone(heard(recorder, 1.0, 2.0), 48000, GetParam().amplitude);
}

constexpr const char* kSurround51 = "FL,FR,FC,LFE,RL,RR";
constexpr const char* kSurround71 = "FL,FR,FC,LFE,RL,RR,SL,SR";
INSTANTIATE_TEST_SUITE_P(Layouts, PlayThroughChannelsTest,
                         testing::Values(Layout{"MonoToMono", "MONO", "MONO", 1, 0.5},
                                         Layout{"StereoToMono", "FL,FR", "MONO", 1, 0.5},
                                         Layout{"MonoToStereo", "MONO", "FL,FR", 2, 0.5},
                                         Layout{"StereoToSix", "FL,FR", kSurround51, 6, 0.5},
                                         Layout{"SixToStereo", kSurround51, "FL,FR", 2, 0.5},
                                         Layout{"SixToSix", kSurround51, kSurround51, 6, 0.5},
                                         Layout{"EightToEight", kSurround71, kSurround71, 8, 0.5}),
                         [](const auto& test) { return test.param.name; });

TEST_F(PlayThroughTest, OutputRunsAtItsOwnRate) {
  setUp({}, {{"audio.rate", "44100"}, {"node.force-rate", "44100"}});
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  MonitorRecorder recorder(kSpeakers, 44100, 2);
  expectCleanTone(heard(recorder, 1.0, 3.0), 44100);
}

TEST_F(PlayThroughTest, LoopbackRunsAtItsOwnRate) {
  setUp({{"audio.rate", "44100"}, {"node.force-rate", "44100"}}, {});
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  MonitorRecorder recorder(kSpeakers, 48000, 2);
  // The feed generates frames for 48 kHz but plays them at 44.1.
  const ToneFigures figures = heard(recorder, 1.0, 3.0);
  EXPECT_NEAR(figures.frequency_Hz, 1000.0 * 44100 / 48000, 1);
  EXPECT_LT(figures.largestSecondDifference,
            test_support::secondDifferenceOfSine(1000, kAmplitude, 48000) * 1.1);
}

TEST_F(PlayThroughTest, StopsAndStartsAgainAtOnce) {
  setUp();
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
    if (i % 2 == 0) continue;
    MonitorRecorder recorder(kSpeakers, 48000, 2);
    EXPECT_TRUE(waitUntil([&] { return recorder.timeOfFirstLouder_s(0.1F, 0) > 0; }, 10s));
  }
}

TEST_F(PlayThroughTest, LongerCyclesInMidStreamAreFollowed) {
  setUp();
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  MonitorRecorder recorder(kSpeakers, 48000, 2);
  expectCleanTone(heard(recorder, 1.0, 2.0), 48000);
  const std::string set = "pw-metadata -n settings 0 clock.force-quantum 8192 >/dev/null";
  ASSERT_EQ(std::system(set.c_str()), 0);
  const double settled_s = static_cast<double>(recorder.frames()) / 48000 + 3;
  expectCleanTone(heard(recorder, settled_s, settled_s + 2), 48000);
}

TEST_F(PlayThroughTest, ShorterCyclesInMidStreamAreFollowed) {
  setUp();
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  MonitorRecorder recorder(kSpeakers, 48000, 2);
  expectCleanTone(heard(recorder, 1.0, 2.0), 48000);
  const std::string set = "pw-metadata -n settings 0 clock.force-quantum 2048 >/dev/null";
  ASSERT_EQ(std::system(set.c_str()), 0);
  const double settled_s = static_cast<double>(recorder.frames()) / 48000 + 1;
  expectCleanTone(heard(recorder, settled_s, settled_s + 2), 48000);
}

TEST_F(PlayThroughTest, VanishedOutputEndsTheSoundAndNothingElse) {
  setUp();
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  MonitorRecorder recorder(loopback::kLoopbackDeviceUID, 48000, 2);
  ASSERT_TRUE(waitUntil([&] { return recorder.frames() > 48000; }));
  machine.control.destroyNode(kSpeakers);
  const std::size_t then = recorder.frames();
  EXPECT_TRUE(waitUntil([&] { return recorder.frames() > then + 48000; }));
  EXPECT_FALSE(recorder.hasEnded());
  EXPECT_EQ(rig->playThrough->stop(), platform::noErr);
}

TEST_F(PlayThroughTest, StopReturnsWhenTheServerHasDiedOrHangs) {
  for (const bool hangs : {true, false}) {
    if (!rig) setUp();
    ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
    {
      MonitorRecorder recorder(kSpeakers, 48000, 2);
      ASSERT_TRUE(waitUntil([&] { return recorder.timeOfFirstLouder_s(0.1F, 0) > 0; }, 10s));
    }
    machine.server.daemon().sendSignal(hangs ? SIGSTOP : SIGKILL);
    const auto before = std::chrono::steady_clock::now();
    rig->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 2s) << hangs;
    if (hangs) machine.server.daemon().sendSignal(SIGCONT);
  }
}

DeviceRun* runOf(platform::AudioUnit handle) {
  return dynamic_cast<DeviceUnit&>(*reinterpret_cast<Unit*>(handle)).run();
}

// Both streams' callbacks with everything that they call: clocks, the core's callbacks, the ring,
// the converter. The server is stopped, so that it does not call them.
TEST_F(PlayThroughTest, NoCycleAllocatesLocksOrMakesASystemCall) {
  setUp({}, {{"audio.rate", "44100"}, {"node.force-rate", "44100"}});
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);  // waits until all devices are known
  rig->stop();
  machine.server.daemon().sendSignal(SIGSTOP);
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  platform::AudioUnit handle = nullptr;
  ASSERT_EQ(rig->units.AUGraphNodeInfo(rig->playThrough->graph, 2, &handle), platform::noErr);
  DeviceRun* const output = runOf(handle);
  DeviceRun* const input = runOf(rig->playThrough->inputUnit);
  ASSERT_TRUE(output != nullptr && input != nullptr);

  std::vector<float> samples(std::size_t{2} * kCycle_frames, 0.5F);
  std::vector<float> played(samples.size());
  const std::array<float*, 2> in{samples.data(), samples.data() + kCycle_frames};
  const std::array<float*, 2> out{played.data(), played.data() + kCycle_frames};
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto begin_ns = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
                        static_cast<std::uint64_t>(now.tv_nsec);
  const realtime_trap::Report report = realtime_trap::runTrapped([&] {
    bool isHeard = false;
    for (std::uint64_t i = 0; i < 100; ++i) {
      const std::uint64_t lost = i < 50 ? 0 : 3;  // cycles
      const std::uint64_t time_ns = begin_ns + (i + lost) * kCycle_frames * 1'000'000'000 / 48000;
      input->process({time_ns, 1, kCycle_frames, 48000}, in.data(), kCycle_frames);
      output->process({time_ns, 2, kCycle_frames, 48000}, out.data(), kCycle_frames * 147 / 160);
      isHeard = isHeard || played[100] > 0.4F;
    }
    return isHeard;
  });
  EXPECT_TRUE(report.clean()) << realtime_trap::describe(report);
  machine.server.daemon().sendSignal(SIGCONT);
}

// For the ring's first lap, in which every page is new.
TEST_F(PlayThroughTest, DataThreadsNeverWaitForAPage) {
  setUp();
  const auto others = test_support::threads();
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  const auto heard_frames = [&] {
    std::int64_t start = 0;
    std::int64_t end = 0;
    static_cast<void>(rig->playThrough->ringBuffer->getTimeBounds(start, end));
    return end;
  };
  ASSERT_TRUE(waitUntil([&] { return heard_frames() > 0; }, 10s));
  const auto threads = test_support::dataThreads(others);
  ASSERT_EQ(threads.size(), 2U);
  const std::uint64_t before = test_support::pageFaults(threads);
  const std::int64_t lap_frames = heard_frames() + rig->playThrough->ringBuffer->capacityFrames;
  ASSERT_TRUE(waitUntil([&] { return heard_frames() >= lap_frames; }, 30s));
  const std::uint64_t after = test_support::pageFaults(threads);
  std::cout << before << " pages in the first cycle, " << after - before << " in a lap\n";
  if (!test_support::kCountsPageFaults) return;
  EXPECT_EQ(after, before);
}

// The speakers' crystal is off by more than any real crystal.
class PlayThroughDriftTest : public PlayThroughTest, public testing::WithParamInterface<int> {};

TEST_P(PlayThroughDriftTest, SoundIsUnbrokenAndTheDelayStaysTheSame) {
  machine.control.createSink(loopback::kLoopbackDeviceUID,
                             {{"session.suspend-timeout-seconds", "0"}});
  const double length_s = driftLength_s();
  test_support::DrivenSink speakers(kSpeakers, GetParam(), length_s + 20);
  feed = std::make_unique<SignalFeed>("program", 2, test_support::tone1000Hz);
  machine.control.link(feed->nodeName(), loopback::kLoopbackDeviceUID);
  rig = std::make_unique<PlayThroughRig>();
  ASSERT_EQ(rig->start(kSpeakers), platform::noErr);
  const auto frames = [](double seconds) { return static_cast<std::size_t>(seconds * 48000); };
  ASSERT_TRUE(waitUntil([&] { return speakers.frames() > 4800; }, 10s));
  const std::size_t from = speakers.frames() + frames(2);
  ASSERT_TRUE(waitUntil([&] { return speakers.frames() > from + frames(length_s); },
                        std::chrono::seconds(static_cast<int>(length_s) + 30)))
      << speakers.frames() << " " << machine.server.log();

  const std::vector<float> played = speakers.samples(from, from + frames(length_s));
  const ToneFigures figures = measureTone(played, 48000);
  const double expected_Hz = 1000 / (1 + GetParam() * 1e-6);
  const double bound = test_support::secondDifferenceOfSine(1000, kAmplitude, 48000) * 1.1;
  std::cout << GetParam() << " ppm for " << length_s << " s: " << figures.frequency_Hz
            << " Hz of the device's own frames (" << expected_Hz << " expected), largest bend "
            << figures.largestSecondDifference << " (" << bound << " allowed), late cycles "
            << speakers.lateCycles() << "\n";
  EXPECT_THAT(test_support::brokenSeconds(played, 48000, bound), testing::IsEmpty());
  EXPECT_NEAR(figures.frequency_Hz, expected_Hz, 0.05);
  EXPECT_NEAR(figures.amplitude, kAmplitude, kAmplitude * 0.01);
}

INSTANTIATE_TEST_SUITE_P(Crystals, PlayThroughDriftTest, testing::Values(300, -300));

}  // namespace
}  // namespace linux_host
