// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <numbers>

#include "hosts/linux/audio/capture_session.h"
#include "platform/file_url.h"
#include "tests/integration/capture_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/why_not.h"

namespace linux_host {
namespace {

using namespace std::chrono_literals;
using platform::CaptureException;
using platform::kCaptureSessionPresetHigh;
using platform::kFileTypeMPEG4;
using test_support::ChildProcess;
using test_support::SignalFeed;
using test_support::tone1000Hz;
using testing::ElementsAre;
using testing::HasSubstr;

class Recorder : public platform::CaptureFileOutputRecordingDelegate {
 public:
  void captureOutputDidStartRecording(platform::CaptureOutput&, const std::string&) override {
    ++begun;
  }
  void captureOutputDidFinishRecording(platform::CaptureOutput&, const std::string&,
                                       const std::string& error) override {
    results.push_back(error);
  }
  int begun = 0;
  std::vector<std::string> results;
};

class FileOutputTest : public CaptureFixture {
 protected:
  ~FileOutputTest() override { notifications.removeObserver(&output); }

  void makeSession(const std::string& nodeName, const char* preset = kCaptureSessionPresetHigh) {
    session = fileSession(nodeName, preset, &output);
    // Like the recorder, starts the file in the handler.
    notifications.addObserver(&output, platform::kCaptureSessionDidStartRunningNotification,
                              [this](const auto&) {
                                output->startRecordingToOutputFileURL(
                                    platform::fileURLWithPath(path), kFileTypeMPEG4, recorder);
                              });
  }
  bool recordFor(std::chrono::milliseconds time) {
    if (!start(session)) return false;
    mainLoop.runUntil([] { return false; }, time);
    return true;
  }
  void stop() {
    output->stopRecording();
    session->stopRunning();
  }
  bool finishes() {
    const std::size_t before = recorder->results.size();
    return mainLoop.runUntil([&] { return recorder->results.size() > before; });
  }
  // The first channel of the file, from an independent decoder.
  std::vector<float> decode() {
    const std::string raw = server.directory() + "/decoded.raw";
    std::filesystem::remove(raw);
    ChildProcess decoder(
        {{"ffmpeg", "-v", "error", "-i", path, "-af", "pan=mono|c0=c0", "-f", "f32le", raw},
         {},
         {}});
    EXPECT_EQ(decoder.waitForExit(20s), 0);
    std::vector<float> samples(std::filesystem::file_size(raw) / sizeof(float));
    std::ifstream(raw, std::ios::binary)
        .read(reinterpret_cast<char*>(samples.data()),
              static_cast<std::streamsize>(samples.size() * sizeof(float)));
    return samples;
  }

  const std::string path = server.directory() + "/recording with blank";
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::shared_ptr<platform::CaptureAudioFileOutput> output;
  platform::CaptureSessionPtr session;
};

TEST_F(FileOutputTest, ToneIsInTheFileWithItsFrequencyLevelAndDuration) {
  control.createMicrophone("mic");
  SignalFeed feed("feed", 2, tone1000Hz);
  control.link("feed", "mic");
  makeSession("mic");
  repeatOnSlowMachine([&]() -> std::string {
    if (!start(session)) return "nothing was recorded";
    const auto begin = std::chrono::steady_clock::now();
    mainLoop.runUntil([] { return false; }, 2s);
    const auto called = std::chrono::steady_clock::now();
    stop();
    const auto end = std::chrono::steady_clock::now();
    if (session->isRunning()) return "the session still runs";
    if (!finishes() || !recorder->results.back().empty()) return "the file is not complete";
    const std::vector<float> samples = decode();
    const std::chrono::duration<double> recorded = end - begin;
    if (end - called > 20ms) return "the stop was waited for";
    // The first buffer was there when the start was reported.
    if (std::abs(static_cast<double>(samples.size()) / 48000 - recorded.count()) > 0.06) {
      return "wrong duration";
    }
    const ToneFigures figures = measureTone({samples.begin() + 24000, samples.end() - 4800}, 48000);
    if (std::abs(figures.frequency_Hz - 1000) > 0.1) return "wrong frequency";
    if (std::abs(figures.amplitude - 0.5) > 0.01) return "wrong level";
    const double step = 2 * std::numbers::pi * 1000 / 48000;
    if (figures.largestSecondDifference > 0.5 * step * step * 1.3) return "glitch";
    return {};
  });
  EXPECT_EQ(recorder->begun, static_cast<int>(recorder->results.size()));
}

TEST_F(FileOutputTest, EveryStartOfTheSessionMakesAFileOfItsOwn) {
  control.createMicrophone("mic");
  makeSession("mic");
  for (int round = 1; round <= 3; ++round) {
    std::filesystem::remove(path);
    ASSERT_TRUE(recordFor(200ms));
    stop();
    ASSERT_TRUE(finishes());
    const double duration_s = static_cast<double>(decode().size()) / 48000;
    EXPECT_NEAR(duration_s, 0.2, 0.15) << round;
  }
  EXPECT_THAT(recorder->results, ElementsAre("", "", ""));
}

TEST_F(FileOutputTest, FileIsCompleteUnderTheNameItWasMovedTo) {
  control.createMicrophone("mic");
  makeSession("mic");
  ASSERT_TRUE(recordFor(500ms));
  stop();
  const std::string moved = server.directory() + "/moved.m4a";
  ASSERT_EQ(test_support::whyNot(files.move(path, moved)), "");
  pendingWork.waitUntilIdle();
  std::filesystem::rename(moved, path);
  EXPECT_GT(decode().size(), 20000U);
}

TEST_F(FileOutputTest, SoundRecordedBeforeAFaultIsCompleted) {
  control.createMicrophone("mic");
  makeSession("mic");
  ASSERT_TRUE(recordFor(500ms));
  server.killDaemon();
  ASSERT_TRUE(mainLoop.runUntil([&] { return !errors().empty(); }));
  ASSERT_TRUE(recorder->results.size() == 1 || finishes());
  EXPECT_THAT(recorder->results, ElementsAre(""));
  EXPECT_GT(decode().size(), 20000U);
}

TEST_F(FileOutputTest, UnpluggedSourceLeavesACompleteFileAndTheNextStartAnother) {
  control.createMicrophone("mic");
  makeSession("mic");
  ASSERT_TRUE(recordFor(500ms));
  control.destroyNode("mic");
  ASSERT_TRUE(mainLoop.runUntil([&] { return !errors().empty(); }));
  ASSERT_TRUE(recorder->results.size() == 1 || finishes());
  EXPECT_GT(decode().size(), 20000U);
  control.createMicrophone("mic");
  ASSERT_NE(device("mic"), nullptr);
  ASSERT_TRUE(recordFor(500ms));
  stop();
  ASSERT_TRUE(finishes());
  EXPECT_THAT(recorder->results, ElementsAre("", ""));
}

TEST_F(FileOutputTest, FileThatCannotBeCreatedOrHasTheWrongTypeIsAnException) {
  control.createMicrophone("mic");
  session = fileSession("mic", kCaptureSessionPresetHigh, &output);
  const auto record = [&](const std::string& where, const char* type) {
    output->startRecordingToOutputFileURL(platform::fileURLWithPath(where), type, recorder);
  };
  EXPECT_THROW(record(path, kFileTypeMPEG4), CaptureException) << "before the session runs";
  ASSERT_TRUE(start(session));
  EXPECT_THROW(record(path, "AVFileTypeWAVE"), CaptureException);
  EXPECT_FALSE(std::filesystem::exists(path));
  try {
    record("/proc/no-such-folder/file", kFileTypeMPEG4);
    ADD_FAILURE() << "the folder does not exist";
  } catch (const CaptureException& exception) {
    EXPECT_THAT(exception.what(), HasSubstr("/proc/no-such-folder/file"));
  }
  EXPECT_THROW(output->startRecordingToOutputFileURL("http://x/", kFileTypeMPEG4, recorder),
               CaptureException);
  record(path, kFileTypeMPEG4);
  EXPECT_THROW(record(path + "2", kFileTypeMPEG4), CaptureException) << "one at a time";
  stop();
  EXPECT_THROW(record(path, kFileTypeMPEG4), CaptureException);
  ASSERT_TRUE(finishes());
}

TEST_F(FileOutputTest, FullDiskIsARuntimeErrorAndKeepsWhatIsThere) {
  control.createMicrophone("mic");
  // No file of this process may grow beyond this: the next write fails as on a full disk.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  SignalFeed feed("feed", 2, tone1000Hz);
  control.link("feed", "mic");
  makeSession("mic");
  ASSERT_TRUE(recordFor(1s));
  const rlimit small{std::filesystem::file_size(path) + 4096, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const bool hasFailed = mainLoop.runUntil([&] { return !errors().empty(); });
  setrlimit(RLIMIT_FSIZE, &before);
  ASSERT_TRUE(hasFailed);
  EXPECT_THAT(errors(), ElementsAre(HasSubstr(path)));
  EXPECT_FALSE(session->isRunning());
  EXPECT_TRUE(recorder->results.size() == 1 || finishes());
  EXPECT_GT(decode().size(), 30000U);
}

TEST_F(FileOutputTest, AbandonedSessionStillCompletesItsFile) {
  control.createMicrophone("mic");
  makeSession("mic");
  ASSERT_TRUE(recordFor(500ms));
  notifications.removeObserver(&output);
  session.reset();
  output.reset();
  pendingWork.waitUntilIdle();
  EXPECT_GT(decode().size(), 20000U);
}

TEST(AacRate, IsTheDevicesOrTheNearestThatAacSupports) {
  OpenFiles files;
  M4aWriterFactory writers(nullptr, {RA_TEST_MODULE_FOLDER});
  const FileOutput output(files, writers, [](const std::function<void()>&) {});
  EXPECT_EQ(output.wantedRate_Hz(44100), 44100U);
  EXPECT_EQ(output.wantedRate_Hz(192000), 96000U);
  EXPECT_EQ(output.wantedRate_Hz(37800), 32000U);
  EXPECT_EQ(output.wantedRate_Hz(50000), 48000U);
}

TEST(AacBitrate, IsThePresetsForStereoAndHalfOfThatForMono) {
  EXPECT_EQ(aacBitrate_bps(platform::kCaptureSessionPresetHigh, 2), 256'000U);
  EXPECT_EQ(aacBitrate_bps(platform::kCaptureSessionPresetMedium, 2), 160'000U);
  EXPECT_EQ(aacBitrate_bps(platform::kCaptureSessionPresetLow, 2), 80'000U);
  EXPECT_EQ(aacBitrate_bps(platform::kCaptureSessionPresetHigh, 1), 128'000U);
  EXPECT_EQ(aacBitrate_bps(platform::kCaptureSessionPresetLow, 6), 240'000U);
  EXPECT_EQ(aacBitrate_bps(platform::kCaptureSessionPresetLow, 8), 320'000U);
  EXPECT_EQ(aacBitrate_bps(platform::kCaptureSessionPresetLow, 9), 80'000U);  // mixed down to two
}

}  // namespace
}  // namespace linux_host
