// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <regex>
#include <thread>
#include <tuple>

#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/tool_fixture.h"

// The program and its file when the sound goes away, or was never there.

namespace e2e {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class LostSoundTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  // Records for two seconds.
  std::unique_ptr<test_support::ChildProcess> recordTwoSeconds() {
    writeSettings({{"SoundFormat", GetParam()}});
    plugInMicrophone();
    return startRecording(2.0);
  }

  // Expects that the tool reports the error and ends, and that the recording stays where it was
  // written.
  void expectTheErrorsPath(test_support::ChildProcess& tool) {
    EXPECT_TRUE(endsByItself(tool, 1));
    EXPECT_THAT(log(), HasSubstr("An error occurred while recording audio. Error: "));
    EXPECT_THAT(filesIn(musicFolder()), IsEmpty());
    const DecodedSound sound = decodeSound(onlyFileIn(temporaryFolder()), server.directory());
    EXPECT_EQ(sound.error, "");
    EXPECT_GT(sound.duration_s(), 1.8);
    ASSERT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
    EXPECT_EQ(events()[2]["details"], (Json{{"Error", true}}));
  }
};

TEST_P(LostSoundTest, SoundServerThatDiesEndsTheRecording) {
  const auto tool = recordTwoSeconds();
  server.killDaemon();
  expectTheErrorsPath(*tool);
  EXPECT_THAT(log(), HasSubstr("PipeWire"));
}

TEST_P(LostSoundTest, UnpluggedMicrophoneEndsTheRecording) {
  const auto tool = recordTwoSeconds();
  control->destroyNode("microphone");
  expectTheErrorsPath(*tool);
}

// The user has not chosen to be recorded by another microphone.
TEST_P(LostSoundTest, RecordingDoesNotMoveToAnotherMicrophone) {
  const auto tool = recordTwoSeconds();
  control->createMicrophone("other");
  control->destroyNode("microphone");
  expectTheErrorsPath(*tool);
}

TEST_P(LostSoundTest, ClickAfterTheLossRecordsAgain) {
  const auto tool = recordTwoSeconds();
  control->destroyNode("microphone");
  ASSERT_TRUE(waitForState("idle"));
  feed.reset();
  control.reset();
  plugInMicrophone();
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitForState("recording"));
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_EQ(decodeSound(onlyFileIn(musicFolder()), server.directory()).error, "");
  EXPECT_TRUE(endsAtOnce(*tool, 1)) << "the first recording was not saved";
}

class StoppedToolTest : public ToolFixture,
                        public testing::WithParamInterface<std::tuple<int, int>> {
 protected:
  // By the clock of the microphone's signal.
  bool pass(double time_s) {
    const std::uint64_t until = feed->framesPlayed() + static_cast<std::uint64_t>(time_s * 48000);
    return test_support::waitUntil([&] { return feed->framesPlayed() >= until; },
                                   std::chrono::seconds(30));
  }
  // A stop drops what still waits for the MP3 encoder, which may be a lot on a busy machine after
  // fifteen seconds at once. The log says how much.
  [[nodiscard]] double saidToBeDropped_s() const {
    std::smatch said;
    const std::string text = log();
    const std::regex line("The last ([0-9.]+) seconds of sound were dropped at the stop");
    return std::regex_search(text, said, line) ? std::stod(said[1]) : 0;
  }
};

TEST_P(StoppedToolTest, WhatItMissedIsSilenceAndIsCountedAndReported) {
  const auto [format, stopped_s] = GetParam();
  writeSettings({{"SoundFormat", format}});
  plugInMicrophone();
  const auto tool = startRecording(1.0);
  const std::uint64_t before = feed->framesPlayed();
  tool->sendSignal(SIGSTOP);
  ASSERT_TRUE(pass(stopped_s));
  tool->sendSignal(SIGCONT);
  ASSERT_TRUE(pass(1.0));
  const double passed_s = static_cast<double>(feed->framesPlayed() - before) / 48000;
  const Json now = status();
  EXPECT_EQ(now["state"], "recording");
  EXPECT_NEAR(now.value("lostFrames", 0.0) / 48000, stopped_s, 0.2);
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_THAT(log(), HasSubstr("of sound by second"));

  const DecodedSound sound = decodeSound(onlyFileIn(musicFolder()), server.directory());
  EXPECT_EQ(sound.error, "");
  const double saved_s = sound.duration_s() + saidToBeDropped_s();
  // The second before, and the time that a busy machine takes to ask and to stop.
  EXPECT_GT(saved_s, passed_s + 0.9);
  EXPECT_LT(saved_s, passed_s + 3.0);
  const auto silent = std::count_if(sound.samples[0].begin(), sound.samples[0].end(),
                                    [](float s) { return std::abs(s) < 1e-4F; });
  EXPECT_NEAR(static_cast<double>(silent) / sound.rate_Hz, stopped_s, 0.5 + saidToBeDropped_s());
  EXPECT_TRUE(endsAtOnce(*tool));
}

INSTANTIATE_TEST_SUITE_P(Formats, StoppedToolTest,
                         testing::Combine(testing::Values(kM4a, kMp3), testing::Values(3, 15)),
                         [](const auto& test) {
                           return extensionOf(std::get<0>(test.param)) +
                                  std::to_string(std::get<1>(test.param));
                         });

INSTANTIATE_TEST_SUITE_P(Formats, LostSoundTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

class QuietMicrophoneTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  void SetUp() override {
    writeSettings({{"SoundFormat", GetParam()}});
    plugInMicrophone();
    tool = startRecording(1.0);
    EXPECT_FALSE(status().contains("silent"));
  }
  // Within a little more than the ten seconds after which silence is reported.
  bool waitForSilence(bool silent) {
    return test_support::waitUntil([&] { return status().value("silent", false) == silent; },
                                   std::chrono::seconds(15));
  }
  DecodedSound stopAndDecode() {
    EXPECT_EQ(run({"--stop"}).exitStatus, 0);
    EXPECT_TRUE(endsAtOnce(*tool));
    return decodeSound(onlyFileIn(musicFolder()), server.directory());
  }
  static bool isLoudAtItsEnd(const DecodedSound& sound) {
    const std::vector<float>& samples = sound.samples.at(0);
    return std::any_of(samples.end() - sound.rate_Hz / 2, samples.end() - sound.rate_Hz / 4,
                       [](float s) { return std::abs(s) > 0.1F; });
  }
  std::unique_ptr<test_support::ChildProcess> tool;
};

TEST_P(QuietMicrophoneTest, SilenceAfterSoundIsReportedUntilSoundComesAgain) {
  feed.reset();
  EXPECT_TRUE(waitForSilence(true));
  EXPECT_THAT(log(), HasSubstr("No sound is coming in"));
  feed = std::make_unique<test_support::SignalFeed>("feed", 2, test_support::tone1000Hz);
  control->link("feed", "microphone");
  EXPECT_TRUE(waitForSilence(false));
  waitSeconds(1.0);
  const DecodedSound sound = stopAndDecode();
  EXPECT_EQ(sound.error, "");
  EXPECT_TRUE(isLoudAtItsEnd(sound));
}

// The server resumes it at once, but existing links may stay silent.
TEST_P(QuietMicrophoneTest, IsHeardAgainAfterASuspensionInMidRecording) {
  const auto suspended = Clock::now();
  control->suspend("microphone");
  waitSeconds(2.0);
  EXPECT_EQ(status()["state"], "recording");
  const double passed_s = secondsBetween(suspended, Clock::now());
  const DecodedSound sound = stopAndDecode();
  EXPECT_EQ(sound.error, "");
  EXPECT_GT(sound.duration_s(), 1.0 + passed_s - 0.3);
  EXPECT_TRUE(isLoudAtItsEnd(sound));
}

INSTANTIATE_TEST_SUITE_P(Formats, QuietMicrophoneTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

class HeldStartTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  // Records once, then clicks for another recording while the sound server is stopped.
  void clickWhileTheServerIsHeld() {
    writeSettings({{"SoundFormat", GetParam()}});
    plugInMicrophone();
    tool = startRecording();
    first = run({"--stop"}).output;
    ASSERT_NE(first, "");
    server.daemon().sendSignal(SIGSTOP);
    EXPECT_EQ(run({}).exitStatus, 0);
    ASSERT_TRUE(waitForState("starting"));
  }
  // The result of --stop when the server continues `after_s` later; null: never.
  FinishedCommand stopAndRelease(double after_s) {
    std::thread release([&] {
      waitSeconds(after_s);
      server.daemon().sendSignal(SIGCONT);
    });
    FinishedCommand stop = run({"--stop"});
    release.join();
    return stop;
  }

  std::unique_ptr<test_support::ChildProcess> tool;
  std::string first;  // what the first --stop printed
};

TEST_P(HeldStartTest, AStopWaitsForTheSecondTryAndReportsItsFile) {
  clickWhileTheServerIsHeld();
  const FinishedCommand stop = stopAndRelease(7.0);
  EXPECT_EQ(stop.exitStatus, 0) << stop.errors;
  EXPECT_NE(stop.output, first);
  EXPECT_THAT(filesIn(musicFolder()), testing::SizeIs(2));
  EXPECT_THAT(log(), HasSubstr("connecting to it again"));
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_P(HeldStartTest, StoppingAFailingStartReportsNoOtherFile) {
  clickWhileTheServerIsHeld();
  const auto begin = Clock::now();
  const FinishedCommand stop = stopAndRelease(15.0);
  EXPECT_LT(secondsBetween(begin, Clock::now()), 16.0);
  EXPECT_EQ(stop.exitStatus, 1);
  EXPECT_EQ(stop.output, "");
  EXPECT_THAT(filesIn(musicFolder()), testing::SizeIs(1));
  EXPECT_THAT(log(), HasSubstr("although it was connected twice"));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
}

INSTANTIATE_TEST_SUITE_P(Formats, HeldStartTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

class NoSoundTest : public ToolFixture {
 protected:
  using ToolFixture::ToolFixture;

  void expectNoRecording(const std::string& said) {
    EXPECT_THAT(log(), HasSubstr(said));
    EXPECT_THAT(filesIn(musicFolder()), IsEmpty());
    EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
  }
};

class NoServerTest : public NoSoundTest {
 protected:
  NoServerTest() : NoSoundTest(test_support::PrivatePipeWire::Options::busOnly()) {}
};

TEST_F(NoServerTest, StartWithoutASoundServerSaysSoAndEnds) {
  const auto tool = start();
  EXPECT_TRUE(endsByItself(*tool, kNoScreen));
  expectNoRecording("No sound recorded");
  EXPECT_THAT(log(), HasSubstr("PipeWire"));
  EXPECT_THAT(eventNames(), ElementsAre("Launch", "Quit"));
}

TEST_F(NoSoundTest, StartWithoutAMicrophoneSaysSoAndEnds) {
  const auto tool = start();
  EXPECT_TRUE(endsByItself(*tool, kNoScreen));
  expectNoRecording("No sound recorded");
  EXPECT_THAT(eventNames(), ElementsAre("Launch", "Quit"));
}

TEST_F(NoSoundTest, MonitorOfASinkIsNotAMicrophone) {
  control = std::make_unique<test_support::PipeWireControl>();
  control->createSink("speakers");
  const auto tool = start();
  EXPECT_TRUE(endsByItself(*tool, kNoScreen));
  expectNoRecording("No sound recorded");
}

TEST_F(NoSoundTest, SourceNoSoundRecordsNothing) {
  plugInMicrophone();
  writeSettings({{"AudioSourceType", 0}});
  const auto tool = start();
  EXPECT_TRUE(endsByItself(*tool, kNoScreen));
  expectNoRecording("No sound recorded");
}

TEST_F(NoSoundTest, MutedMicrophoneIsReportedAndRefused) {
  plugInMicrophone();
  control->setMute("microphone", true);
  const auto tool = start();
  EXPECT_TRUE(endsByItself(*tool, kNoScreen));
  expectNoRecording(
      "Microphone muted: Computer microphone is muted. Un-mute microphone to record sound.");
  ASSERT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
  EXPECT_EQ(events()[2]["details"], (Json{{"Error", true}}));
}

TEST_F(NoSoundTest, MicrophoneTurnedDownToNothingCountsAsMuted) {
  plugInMicrophone();
  control->setVolume("microphone", 0.0F);
  const auto tool = start();
  EXPECT_TRUE(endsByItself(*tool, kNoScreen));
  expectNoRecording("Microphone muted");
}

}  // namespace
}  // namespace e2e
