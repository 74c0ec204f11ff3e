// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <numbers>

#include "driver/loopback_protocol.h"
#include "hosts/linux/audio/capture_session.h"
#include "tests/integration/capture_fixture.h"
#include "tests/support/data_threads.h"
#include "tests/support/driven_microphone.h"
#include "tests/support/slow_player.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using test_support::frameNumber;
using test_support::frameNumberOf;
using test_support::SignalFeed;
using test_support::tone1000Hz;
using test_support::toneEachChannel;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::size_t kQuantum_frames = 1024;

std::vector<std::string> names(const std::vector<platform::CaptureDevicePtr>& devices) {
  std::vector<std::string> list;
  for (const auto& device : devices) list.push_back(device->uniqueID());
  return list;
}

class CaptureDevicesTest : public CaptureFixture {};

TEST_F(CaptureDevicesTest, AreSourcesAndTheLoopbackButNoOtherMonitor) {
  control.createMicrophone("mic.a");
  control.createSink("sink.a");
  control.createSink(loopback::kLoopbackDeviceUID);
  ASSERT_NE(device(loopback::kLoopbackDeviceUID), nullptr);
  EXPECT_THAT(names(capture.devicesWithMediaType(platform::MediaType::kAudio)),
              ElementsAre("mic.a", loopback::kLoopbackDeviceUID));
  EXPECT_EQ(capture.deviceWithUniqueID("sink.a"), nullptr);
  EXPECT_TRUE(capture.devicesWithMediaType(platform::MediaType::kVideo).empty());
}

TEST_F(CaptureDevicesTest, AreShownByTheirDescription) {
  control.createMicrophone("mic.a",
                           {{"node.description", "Desk microphone"}, {"device.bus", "pci"}});
  const auto microphone = device("mic.a");
  ASSERT_NE(microphone, nullptr);
  EXPECT_EQ(microphone->localizedName(), "Desk microphone");
  EXPECT_EQ(microphone->manufacturer(), platform::kBuiltInManufacturer);
  EXPECT_EQ(microphone->activeInputSource(), std::nullopt);
}

TEST_F(CaptureDevicesTest, DefaultIsTheUsersChoice) {
  EXPECT_EQ(capture.defaultDeviceWithMediaType(platform::MediaType::kAudio), nullptr);
  control.createMicrophone("mic.a");
  control.createMicrophone("mic.b");
  control.setDefaultSource("mic.b");
  EXPECT_TRUE(mainLoop.runUntil([&] {
    const auto chosen = capture.defaultDeviceWithMediaType(platform::MediaType::kAudio);
    return chosen && chosen->uniqueID() == "mic.b";
  }));
}

TEST_F(CaptureDevicesTest, PluggingAndUnpluggingIsNotified) {
  int connected = 0;
  int disconnected = 0;
  notifications.addObserver(&connected, platform::kCaptureDeviceWasConnectedNotification,
                            [&](const auto&) { ++connected; });
  notifications.addObserver(&connected, platform::kCaptureDeviceWasDisconnectedNotification,
                            [&](const auto&) { ++disconnected; });
  ASSERT_TRUE(connection.withGraph([](const AudioGraph&) {}));
  control.createMicrophone("mic.a");
  EXPECT_TRUE(mainLoop.runUntil([&] { return connected == 1; }));
  control.createSink("sink.a");  // not a source
  control.destroyNode("mic.a");
  EXPECT_TRUE(mainLoop.runUntil([&] { return disconnected == 1; }));
  EXPECT_EQ(connected, 1);
  notifications.removeObserver(&connected);
}

class CaptureTest : public CaptureFixture {
 protected:
  std::shared_ptr<SampleCollector> collector = std::make_shared<SampleCollector>();

  bool collect(std::size_t frames, std::chrono::milliseconds limit = 10s) {
    return mainLoop.runUntil([&] { return collector->frames() >= frames; }, limit);
  }
};

TEST_F(CaptureTest, ToneArrivesWithItsFrequencyAndLevelWithoutAGlitch) {
  control.createMicrophone("mic");
  SignalFeed feed("feed", 2, toneEachChannel);
  control.link("feed", "mic");
  const auto session = dataSession("mic", collector);
  repeatOnSlowMachine([&]() -> std::string {
    collector->clear();
    if (!start(session) || !collect(96000)) return "nothing was recorded";
    session->stopRunning();
    pendingWork.waitUntilIdle();
    EXPECT_EQ(collector->channels(), 2U);
    EXPECT_EQ(collector->rate_Hz(), 48000);
    for (std::size_t channel = 0; channel < 2; ++channel) {
      const double frequency_Hz = channel == 0 ? 1000 : 500;
      const std::vector<float> samples = withoutLeadingSilence(collector->channel(channel));
      const ToneFigures figures = measureTone(samples, 48000);
      const double step = 2 * std::numbers::pi * frequency_Hz / 48000;
      if (samples.size() < 90000) return "the tone came late";
      if (std::abs(figures.frequency_Hz - frequency_Hz) > 0.01) return "wrong frequency";
      if (std::abs(figures.amplitude - 0.5) > 0.001) return "wrong level";
      if (figures.largestSecondDifference > 0.5 * step * step * 1.01) return "glitch";
    }
    return {};
  });
}

TEST_F(CaptureTest, FramesFollowTheClock) {
  control.createMicrophone("mic");
  SignalFeed feed("feed", 2, frameNumber);
  control.link("feed", "mic");
  const auto session = dataSession("mic", collector);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(1));
  const auto begin = steady_clock::now();
  const std::size_t before = collector->frames();
  ASSERT_TRUE(collect(before + 3 * 48000));
  const std::chrono::duration<double> passed = steady_clock::now() - begin;
  const auto counted = static_cast<double>(collector->frames() - before);
  session->stopRunning();
  EXPECT_NEAR(counted, passed.count() * 48000, 2 * kQuantum_frames);
  expectUnbroken(collector->channel(0), 48000);
}

TEST_F(CaptureTest, NothingThatWasCapturedWhileTheHandlersRanIsMissing) {
  control.createMicrophone("mic");
  SignalFeed feed("feed", 2, frameNumber);
  control.link("feed", "mic");
  ASSERT_TRUE(test_support::waitUntil([&] { return feed.framesPlayed() > 0; }));
  const auto session = dataSession("mic", collector);
  std::uint64_t playedAtHandler = 0;
  notifications.addObserver(collector.get(), platform::kCaptureSessionDidStartRunningNotification,
                            [&](const auto&) {
                              playedAtHandler = feed.framesPlayed();
                              poll(nullptr, 0, 500);
                              EXPECT_EQ(collector->frames(), 0U);
                            });
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(48000));
  session->stopRunning();
  notifications.removeObserver(collector.get());
  const std::vector<float> samples = withoutLeadingSilence(collector->channel(0));
  ASSERT_FALSE(samples.empty());
  // What was in transit when the handler began: one cycle of the feed, one of the stream.
  EXPECT_GT(playedAtHandler, 0U);
  EXPECT_LE(frameNumberOf(samples.front()), playedAtHandler + 2 * kQuantum_frames);
  expectUnbroken(samples, 24000);
}

TEST_F(CaptureTest, RestartsBringFreshSamplesOnly) {
  control.createMicrophone("mic");
  SignalFeed feed("feed", 2, frameNumber);
  control.link("feed", "mic");
  const auto session = dataSession("mic", collector);
  std::uint64_t playedAtStart = 0;
  for (int round = 0; round < 8; ++round) {
    collector->clear();
    playedAtStart = feed.framesPlayed();
    ASSERT_TRUE(start(session)) << round;
    EXPECT_TRUE(session->isRunning());
    ASSERT_TRUE(collect(4800)) << round;
    session->stopRunning();
    EXPECT_FALSE(session->isRunning());
    pendingWork.waitUntilIdle();
    const std::vector<float> samples = withoutLeadingSilence(collector->channel(0));
    ASSERT_FALSE(samples.empty());
    EXPECT_GE(frameNumberOf(samples.front()) + kQuantum_frames, playedAtStart) << round;
    EXPECT_EQ(countJumps(samples), 0U) << round;
  }
  EXPECT_EQ(started(), 8);
  EXPECT_THAT(errors(), ElementsAre());
}

TEST_F(CaptureTest, StopBeforeTheFirstSamplesIsSilent) {
  control.createMicrophone("mic");
  const auto session = dataSession("mic", collector);
  for (int round = 0; round < 5; ++round) {
    session->startRunning();
    session->stopRunning();
  }
  pendingWork.waitUntilIdle();
  EXPECT_FALSE(mainLoop.runUntil([&] { return started() > 0; }, 100ms));
  EXPECT_EQ(collector->frames(), 0U);
}

TEST_F(CaptureTest, DevicesRateAndChannelsAreKept) {
  control.createMicrophone("mic.44", {{"audio.rate", "44100"}, {"audio.position", "MONO"}});
  control.createMicrophone("mic.6", {{"audio.position", "FL,FR,FC,LFE,RL,RR"}});
  auto session = dataSession("mic.44", collector);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(4410));
  EXPECT_EQ(collector->rate_Hz(), 44100);
  EXPECT_EQ(collector->channels(), 1U);
  session->stopRunning();
  pendingWork.waitUntilIdle();
  collector = std::make_shared<SampleCollector>();
  session = dataSession("mic.6", collector);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(4800));
  EXPECT_EQ(collector->channels(), 6U);
}

// A stream with a long cycle must not delay another one.
TEST_F(CaptureTest, TwoSessionsHaveADataThreadEach) {
  // A stream's loop thread, and the data thread that it starts. In PipeWire 0.3 that has its
  // starter's name, in 1.4 its own.
  const auto streamThreads = [] {
    std::size_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      std::string name;
      std::ifstream file(task.path() / "comm");
      std::getline(file, name);
      count += name == "audio-capture" || name.starts_with("data-loop") ? 1 : 0;
    }
    return count;
  };
  control.createMicrophone("mic.a");
  control.createMicrophone("mic.b");
  ASSERT_NE(device("mic.b"), nullptr);
  const std::size_t before = streamThreads();
  const auto other = std::make_shared<SampleCollector>();
  const auto first = dataSession("mic.a", collector);
  const auto second = dataSession("mic.b", other);
  ASSERT_TRUE(start(first));
  EXPECT_EQ(streamThreads(), before + 2);
  ASSERT_TRUE(start(second));
  EXPECT_EQ(streamThreads(), before + 4);
  ASSERT_TRUE(collect(4800));
  EXPECT_TRUE(mainLoop.runUntil([&] { return other->frames() >= 4800; }));
}

// From the first samples on, in the ring's first lap, where every page is new.
TEST_F(CaptureTest, DataThreadNeverWaitsForAPage) {
  control.createMicrophone("mic");
  const auto session = dataSession("mic", collector);
  const auto others = test_support::threads();
  ASSERT_TRUE(start(session));
  const auto thread = test_support::dataThreads(others);
  ASSERT_EQ(thread.size(), 1U);
  const std::uint64_t before = test_support::pageFaults(thread);
  ASSERT_TRUE(collect(4 * 48000));
  const std::uint64_t after = test_support::pageFaults(thread);
  std::cout << before << " pages in the first cycle, " << after - before << " in 4 s\n";
  if (!test_support::kCountsPageFaults) return;
  EXPECT_EQ(after, before);
}

TEST_F(CaptureTest, UnpluggedSourceIsAnErrorThatNamesIt) {
  control.createMicrophone("mic", {{"node.description", "Desk microphone"}});
  control.createMicrophone("other");
  const auto session = dataSession("mic", collector);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(4800));
  const auto begin = steady_clock::now();
  control.destroyNode("mic");
  ASSERT_TRUE(mainLoop.runUntil([&] { return !errors().empty(); }));
  EXPECT_LT(steady_clock::now() - begin, 1s);
  EXPECT_THAT(errors(), ElementsAre(HasSubstr("\"Desk microphone\" is gone")));
  EXPECT_FALSE(session->isRunning());
  // The stream has not moved to the other device.
  pendingWork.waitUntilIdle();
  const std::size_t frames = collector->frames();
  EXPECT_FALSE(mainLoop.runUntil([&] { return collector->frames() > frames; }, 200ms));

  session->startRunning();
  ASSERT_TRUE(mainLoop.runUntil([&] { return errors().size() == 2; }));
  EXPECT_THAT(errors().back(), HasSubstr("is not there"));
  control.createMicrophone("mic");
  ASSERT_NE(device("mic"), nullptr);
  EXPECT_TRUE(start(session));
}

TEST_F(CaptureTest, DeathOfTheDaemonIsAnErrorWithinASecond) {
  control.createMicrophone("mic");
  const auto session = dataSession("mic", collector);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(4800));
  const auto begin = steady_clock::now();
  server.killDaemon();
  ASSERT_TRUE(mainLoop.runUntil([&] { return !errors().empty(); }));
  EXPECT_LT(steady_clock::now() - begin, 1s);
  EXPECT_THAT(errors(), ElementsAre(HasSubstr("PipeWire broke")));
  EXPECT_FALSE(session->isRunning());
}

TEST_F(CaptureTest, DaemonThatHangsIsAnErrorAfterFiveSeconds) {
  control.createMicrophone("mic", {{"node.description", "Desk microphone"}});
  const auto session = dataSession("mic", collector);
  ASSERT_TRUE(start(session));
  const auto begin = steady_clock::now();
  server.daemon().sendSignal(SIGSTOP);
  ASSERT_TRUE(mainLoop.runUntil([&] { return !errors().empty(); }));
  EXPECT_GT(steady_clock::now() - begin, 4s);
  EXPECT_LT(steady_clock::now() - begin, 7s);
  EXPECT_THAT(errors(), ElementsAre(HasSubstr("sent nothing for 5 seconds")));
  server.daemon().sendSignal(SIGCONT);
}

TEST_F(CaptureTest, ReceiverThatStallsForFiveSecondsLosesNothing) {
  control.createMicrophone("mic");
  SignalFeed feed("feed", 2, frameNumber);
  control.link("feed", "mic");
  const auto session = dataSession("mic", collector);
  collector->stallOnce(5s);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(7 * 48000, 20s));
  session->stopRunning();
  expectUnbroken(collector->channel(0), 6 * 48000);
  EXPECT_THAT(errors(), ElementsAre());
}

TEST_F(CaptureTest, SourceLinkedTooLateForTheFirstStreamIsRecordedByTheSecond) {
  control.createMicrophone("mic");
  const auto session = dataSession("mic", collector);
  server.sessionManager().sendSignal(SIGSTOP);
  session->startRunning();
  // The stopped session manager links nothing; when it continues, it links the second stream.
  EXPECT_FALSE(mainLoop.runUntil([&] { return started() > 0 || !errors().empty(); }, 6s));
  server.sessionManager().sendSignal(SIGCONT);
  EXPECT_TRUE(mainLoop.runUntil([&] { return started() == 1; }));
  EXPECT_TRUE(collect(4800));
  EXPECT_THAT(errors(), ElementsAre());
}

TEST_F(CaptureTest, ErrorBeforeTheStartIsHandledIsTheOnlyReport) {
  control.createMicrophone("mic");
  const auto session = dataSession("mic", collector);
  ASSERT_TRUE(mainLoop.runUntil([&] { return mainLoop.items() == 0; }));
  session->startRunning();
  // The samples are announced and the device goes before the main loop handles either.
  ASSERT_TRUE(test_support::waitUntil([&] { return mainLoop.items() == 1; }));
  control.destroyNode("mic");
  // Two messages: a device has gone, and the recording has failed.
  ASSERT_TRUE(test_support::waitUntil([&] { return mainLoop.items() == 3; }));
  ASSERT_TRUE(mainLoop.runUntil([&] { return !errors().empty(); }));
  EXPECT_FALSE(mainLoop.runUntil([&] { return errors().size() > 1; }, 200ms));
  EXPECT_EQ(started(), 0);
  EXPECT_FALSE(session->isRunning());
}

TEST_F(CaptureTest, LoopbackIsNeverSilentWhenItIsRecordedAgainAtOnce) {
  control.createSink(loopback::kLoopbackDeviceUID, {{"monitor.channel-volumes", "false"}});
  SignalFeed feed("feed", 2, frameNumber);
  control.link("feed", loopback::kLoopbackDeviceUID);
  const auto session = dataSession(loopback::kLoopbackDeviceUID, collector);
  for (int round = 0; round < 20; ++round) {
    collector->clear();
    ASSERT_TRUE(start(session)) << round;
    ASSERT_TRUE(collect(4800)) << round;
    session->stopRunning();
    EXPECT_FALSE(withoutLeadingSilence(collector->channel(0)).empty()) << round;
  }
}

TEST_F(CaptureTest, LevelSetByAMixerForAnEarlierRecordingIsNotRemembered) {
  control.createMicrophone("mic");
  SignalFeed feed("feed", 2, tone1000Hz);
  control.link("feed", "mic");
  const auto session = dataSession("mic", collector);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(4800));
  control.setVolume("record-audio", 0.0F);
  ASSERT_TRUE(mainLoop.runUntil([&] {
    const std::vector<float> samples = collector->channel(0);
    return std::all_of(samples.end() - 1000, samples.end(), [](float s) { return s == 0.0F; });
  }));
  session->stopRunning();
  pendingWork.waitUntilIdle();
  ASSERT_TRUE(mainLoop.runUntil([&] { return !control.hasNode("record-audio"); }));

  collector->clear();
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(9600));
  session->stopRunning();
  const std::vector<float> samples = withoutLeadingSilence(collector->channel(0));
  ASSERT_GT(samples.size(), 4800U);
  EXPECT_NEAR(measureTone(samples, 48000).amplitude, 0.5, 0.01);
}

TEST_F(CaptureTest, CyclesThatADeviceSkipsAreCountedAndReplacedBySilence) {
  test_support::DrivenMicrophone microphone("mic");
  const auto session = dataSession("mic", collector);
  ASSERT_TRUE(start(session));
  ASSERT_TRUE(collect(24000));
  microphone.skip(5);
  ASSERT_TRUE(mainLoop.runUntil([&] { return microphone.skippedFrames() > 0; }));
  ASSERT_TRUE(collect(collector->frames() + 24000));
  session->stopRunning();
  pendingWork.waitUntilIdle();

  const std::vector<float> samples = withoutLeadingSilence(collector->channel(0));
  ASSERT_FALSE(samples.empty());
  const std::uint64_t first = frameNumberOf(samples.front());
  std::size_t silent = 0;
  std::size_t misplaced = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (samples[i] == 0.0F) {
      ++silent;
    } else {
      misplaced += frameNumberOf(samples[i]) != first + i ? 1 : 0;
    }
  }
  EXPECT_GE(silent, 5 * kQuantum_frames);
  EXPECT_EQ(misplaced, 0U) << "what follows the gap is not where it belongs";
}

TEST_F(CaptureTest, SilenceFromTheStartIsNoticedAfterThreeSeconds) {
  control.createMicrophone("mic");
  control.createMicrophone("loud");
  SignalFeed feed("feed", 2, tone1000Hz);
  control.link("feed", "loud");
  const auto other = std::make_shared<SampleCollector>();
  const auto silent = dataSession("mic", collector);
  const auto loud = dataSession("loud", other);
  const auto isSilent = [](const platform::CaptureSessionPtr& session) {
    return std::static_pointer_cast<PipeWireCaptureSession>(session)->isSilent();
  };
  ASSERT_TRUE(start(silent));
  ASSERT_TRUE(start(loud));
  ASSERT_TRUE(collect(2 * 48000));
  EXPECT_FALSE(isSilent(silent));
  ASSERT_TRUE(mainLoop.runUntil([&] { return isSilent(silent); }, 3s));
  EXPECT_FALSE(isSilent(loud));
}

// With a player that asks for long cycles at another rate, the cycle length changes whenever a
// recording begins or ends.
class ChangingCyclesTest : public CaptureFixture {
 protected:
  ChangingCyclesTest() {
    control.createMicrophone("mic", {{"audio.position", "MONO"}});
    player = std::make_unique<test_support::SlowPlayer>(server.directory(), control, "mic");
  }

  // Records repeatedly, with pauses that grow to `longestPause`, and returns the recordings that
  // were completely silent. A player that is merely delayed by a busy machine is heard within
  // seconds.
  std::vector<int> silentRounds(int rounds, std::chrono::milliseconds longestPause) {
    std::vector<int> silent;
    const auto collector = std::make_shared<SampleCollector>();
    const auto session = dataSession("mic", collector);
    for (int round = 0; round < rounds; ++round) {
      collector->clear();
      EXPECT_TRUE(start(session)) << round;
      const auto isSilent = [&] { return withoutLeadingSilence(collector->channel(0)).empty(); };
      std::size_t frames = 7200;
      do {
        frames *= 2;
        if (!mainLoop.runUntil([&] { return collector->frames() >= frames; })) {
          ADD_FAILURE() << "no sound in round " << round;
          return silent;
        }
      } while (isSilent() && frames < 3 * 48000);
      session->stopRunning();
      if (isSilent()) silent.push_back(round);
      mainLoop.runUntil([] { return false; }, longestPause * round / rounds);
    }
    return silent;
  }

  std::unique_ptr<test_support::SlowPlayer> player;
};

// If recordings requested a cycle length, every second one would be silent.
TEST_F(ChangingCyclesTest, NoRecordingThatFollowsAtOnceIsSilent) {
  EXPECT_THAT(silentRounds(50, 0ms), ElementsAre());
}

TEST_F(ChangingCyclesTest, NoRecordingThatFollowsSoonIsSilent) {
  EXPECT_THAT(silentRounds(25, 100ms), ElementsAre());
}

TEST(CaptureWithoutSessionManager, StreamThatIsNeverLinkedIsConnectedAgainAndThenFails) {
  test_support::PrivatePipeWire::Options options;
  options.sessionManager = false;
  test_support::PrivatePipeWire server(options);
  PendingWork work;
  std::promise<std::string> failure;
  CaptureRun::Events events;
  events.onSamples = [] { ADD_FAILURE() << "there is nothing to record from"; };
  events.onFailed = [&](const std::string& message) { failure.set_value(message); };
  std::atomic<int> warnings{0};
  events.onWarning = [&](const std::string& message) {
    EXPECT_THAT(message, HasSubstr("connecting to it again"));
    ++warnings;
  };
  const auto begin = steady_clock::now();
  CaptureRun run({"mic", "Desk microphone", false, 48000, {3, 4}}, events,
                 std::make_shared<SourceRest>(), work);
  auto future = failure.get_future();
  // Twice the time limit of one stream.
  ASSERT_EQ(future.wait_for(13s), std::future_status::ready);
  EXPECT_GT(steady_clock::now() - begin, 9s);
  EXPECT_THAT(future.get(), HasSubstr("Desk microphone"));
  EXPECT_EQ(warnings, 1);
}

}  // namespace
}  // namespace linux_host
