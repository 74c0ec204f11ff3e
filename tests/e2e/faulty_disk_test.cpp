// SPDX-License-Identifier: MIT
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/faulty_disks.h"
#include "tests/e2e/notification_server.h"
#include "tests/e2e/small_disk.h"
#include "tests/e2e/tool_fixture.h"

// Real disks that fail in the middle of a recording: nothing is lost silently, what was written
// plays, and the tool keeps answering.

namespace e2e {
namespace {

using test_support::ChildProcess;
using test_support::waitUntil;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr double kRecorded_s = 2.0;
// The time until a disk that does not answer is given up, on a busy machine.
constexpr std::chrono::seconds kGivesUp{20};
// The tool must always answer within this time.
constexpr double kAnswer_s = 2.0;

constexpr const char* kErrorShown = "An error has occurred. What was recorded until then is kept";

test_support::PrivatePipeWire::Options patientServers() {
  test_support::PrivatePipeWire::Options options;
  options.watchdog = std::chrono::seconds(150);
  return options;
}

class FaultyDiskTest : public ToolFixture {
 protected:
  explicit FaultyDiskTest(int soundFormat = kM4a)
      : ToolFixture(patientServers()), notifications_(server.busAddress()) {
    writeSettings({{"SoundFormat", soundFormat}});
    plugInMicrophone();
  }

  [[nodiscard]] std::string scratch() const { return server.directory() + "/disk"; }

  // The state, which tests poll; expects an answer in time.
  std::string promptState() {
    const auto asked = Clock::now();
    const Json now = status();
    EXPECT_LT(secondsBetween(asked, Clock::now()), kAnswer_s);
    return now.is_object() ? now.value("state", "") : "gone";
  }

  // A leak checker first stops every thread, and a thread that is stuck in a folder cannot be
  // stopped.
  void endWithoutLeakCheck() { setEnvironment("ASAN_OPTIONS", "detect_leaks=0"); }

  // Expects that the recording ends by itself, that the user is told, and that the status says so.
  void expectEndWithError() {
    EXPECT_TRUE(waitUntil([&] { return promptState() != "recording"; }, kGivesUp));
    EXPECT_TRUE(waitUntil([&] { return isErrorShown(); }, kStepLimit));
    ASSERT_THAT(eventNames(), Contains("Stop"));
    EXPECT_EQ(events()[2]["details"], (Json{{"Error", true}}));
    EXPECT_THAT(log(), testing::Not(HasSubstr(".. "))) << "sentences end once";
  }
  [[nodiscard]] bool isErrorShown() const {
    const auto shown = notifications_.shown();
    return std::any_of(shown.begin(), shown.end(), [](const std::string& line) {
      return line.find(kErrorShown) != std::string::npos;
    });
  }

  void expectPlays(const std::string& path, double least_s) {
    // The last packet may be torn.
    const DecodedSound sound = decodeSound(path, server.directory());
    std::printf("%.2f s of sound are left\n", sound.duration_s());
    EXPECT_GT(sound.duration_s(), least_s) << sound.error;
  }

  NotificationServer notifications_;
};

class FailingDiskTest : public FaultyDiskTest, public testing::WithParamInterface<int> {
 protected:
  FailingDiskTest() : FaultyDiskTest(GetParam()) {}
};

TEST_P(FailingDiskTest, QuotaEndsTheRecordingAndKeepsWhatIsThere) {
  QuotaDisk disk(temporaryFolder(), scratch());
  if (!disk.refusal().empty()) GTEST_SKIP() << "no disk with a quota: " << disk.refusal();
  const auto tool = startRecording(kRecorded_s);
  const std::string file = status()["outputFile"];
  disk.limitTo(std::filesystem::file_size(file) + 100'000);
  expectEndWithError();
  EXPECT_THAT(log(), HasSubstr("Disk quota exceeded"));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  EXPECT_THAT(filesIn(musicFolder()), IsEmpty());
  expectPlays(file, kRecorded_s - 0.3);
}

TEST_P(FailingDiskTest, DiskThatBecomesReadOnlyEndsTheRecordingAndKeepsWhatIsThere) {
  ExtDisk disk(temporaryFolder(), scratch());
  if (!disk.refusal().empty()) GTEST_SKIP() << "no disk on a loop device: " << disk.refusal();
  const auto tool = startRecording(kRecorded_s);
  const std::string file = status()["outputFile"];
  disk.becomeReadOnly();
  expectEndWithError();
  EXPECT_THAT(log(), HasSubstr("Read-only file system"));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  expectPlays(file, kRecorded_s - 0.7);
}

TEST_P(FailingDiskTest, PulledOutDiskEndsTheRecordingAndHoldsWhatHadReachedIt) {
  ExtDisk disk(temporaryFolder(), scratch());
  if (!disk.refusal().empty()) GTEST_SKIP() << "no disk on a loop device: " << disk.refusal();
  const auto tool = startRecording(2 * kRecorded_s);
  const std::string file = status()["outputFile"];
  disk.pullOut();
  expectEndWithError();
  EXPECT_THAT(log(), HasSubstr("Input/output error"));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  disk.putBack();
  // The last second and the samples in the encoder may be missing.
  expectPlays(file, 2 * kRecorded_s - 1.7);
}

TEST_P(FailingDiskTest, DeviceThatFailsAfterTheWritesEndsTheRecordingAndHoldsWhatHadReachedIt) {
  std::filesystem::create_directories(scratch());
  SmallDisk device(scratch());
  if (!device.isMounted()) GTEST_SKIP() << "this user may not mount a disk in memory";
  ExtDisk disk(temporaryFolder(), scratch());
  if (!disk.refusal().empty()) GTEST_SKIP() << "no disk on a loop device: " << disk.refusal();
  const auto tool = startRecording(2 * kRecorded_s);
  const std::string file = status()["outputFile"];
  // The image cannot grow any more; the file system only finds out when it flushes data that it
  // accepted earlier.
  device.fill(0);
  expectEndWithError();
  EXPECT_THAT(log(), HasSubstr("Input/output error. Check the disk."));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  std::filesystem::remove(device.folder() + "/filler");
  disk.putBack();
  expectPlays(file, 2 * kRecorded_s - 1.7);
}

TEST_P(FailingDiskTest, DetachedDiskIsStillWrittenAndTheRecordingIsSaved) {
  SmallDisk disk(temporaryFolder());
  if (!disk.isMounted()) GTEST_SKIP() << "this user may not mount a disk in memory";
  const auto tool = startRecording(1.0);
  disk.detach();
  waitSeconds(1.0);
  const std::string saved = run({"--stop"}).output;
  EXPECT_EQ(saved, onlyFileIn(musicFolder()) + "\n");
  EXPECT_THAT(log(), HasSubstr("or its disk was taken away. It was still saved"));
  EXPECT_TRUE(endsAtOnce(*tool));
  expectPlays(onlyFileIn(musicFolder()), 1.7);
}

TEST_P(FailingDiskTest, NetworkFolderThatHangsEndsTheRecordingAndGetsTheRestWhenItAnswers) {
  NetworkFolder folder(temporaryFolder(), server.directory() + "/served", scratch());
  if (!folder.refusal().empty()) GTEST_SKIP() << "no network folder: " << folder.refusal();
  const auto tool = startRecording(kRecorded_s);
  const std::string file = status()["outputFile"];
  folder.hang();
  const auto hung = Clock::now();
  expectEndWithError();
  EXPECT_LT(secondsBetween(hung, Clock::now()), 10.0) << "before the ring is full";
  EXPECT_THAT(log(), HasSubstr("Cannot write " + file));
  EXPECT_THAT(log(), testing::Not(HasSubstr("Lost")));
  folder.answer();
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  // With the sound until the end was reported.
  expectPlays(file, kRecorded_s + 4.0);
}

INSTANTIATE_TEST_SUITE_P(Formats, FailingDiskTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

TEST_F(FaultyDiskTest, ToolCanQuitWhileANetworkFolderHangs) {
  NetworkFolder folder(temporaryFolder(), server.directory() + "/served", scratch());
  if (!folder.refusal().empty()) GTEST_SKIP() << "no network folder: " << folder.refusal();
  const auto tool = startRecording(kRecorded_s);
  folder.hang();
  expectEndWithError();
  const auto asked = Clock::now();
  tool->sendSignal(SIGTERM);
  waitSeconds(0.3);
  tool->sendSignal(SIGTERM);
  const auto hasGivenUp = [this] {
    return log().find("does not answer, so the last part") != std::string::npos;
  };
  EXPECT_TRUE(waitUntil(hasGivenUp, kGivesUp));
  EXPECT_LT(secondsBetween(asked, Clock::now()), 13.0);
  // The kernel does not release a call whose request the server has already read.
  folder.answer();
  EXPECT_EQ(tool->waitForExit(kStepLimit), 1) << "the file is not complete";
  expectPlays(onlyFileIn(temporaryFolder()), kRecorded_s - 0.7);
}

TEST_F(FaultyDiskTest, OutputFolderThatHangsAtTheStopLeavesTheFileWhereItWasWritten) {
  std::filesystem::create_directories(musicFolder());
  NetworkFolder folder(musicFolder(), server.directory() + "/served", scratch());
  if (!folder.refusal().empty()) GTEST_SKIP() << "no network folder: " << folder.refusal();
  endWithoutLeakCheck();
  const auto tool = startRecording(kRecorded_s);
  folder.hang();
  const auto stopped = Clock::now();
  EXPECT_EQ(run({"--stop"}).output, "");
  // The tool waits for the folder, and --stop waits for the tool.
  EXPECT_LT(secondsBetween(stopped, Clock::now()), 13.0);
  EXPECT_THAT(log(), HasSubstr("does not answer"));
  EXPECT_EQ(promptState(), "idle");
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  expectPlays(onlyFileIn(temporaryFolder()), kRecorded_s - 0.2);
}

TEST_F(FaultyDiskTest, OutputFolderThatHangsAtTheStartIsReportedAndCostsNoSound) {
  std::filesystem::create_directories(musicFolder());
  NetworkFolder folder(musicFolder(), server.directory() + "/served", scratch());
  if (!folder.refusal().empty()) GTEST_SKIP() << "no network folder: " << folder.refusal();
  folder.hang();
  endWithoutLeakCheck();
  const auto tool = startRecording(kRecorded_s);
  EXPECT_THAT(log(), AllOf(HasSubstr("cannot be used just now"), HasSubstr(musicFolder())));
  EXPECT_EQ(run({"--stop"}).output, "");
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  expectPlays(onlyFileIn(temporaryFolder()), kRecorded_s - 0.2);
}

TEST_F(FaultyDiskTest, OutputDiskThatIsFullLeavesTheFileWhereItWasWritten) {
  std::filesystem::create_directories(musicFolder());
  const auto disk = std::make_unique<SmallDisk>(musicFolder());
  if (!disk->isMounted()) GTEST_SKIP() << "this user may not mount a disk in memory";
  const auto tool = startRecording(kRecorded_s);
  disk->fill(4096);
  EXPECT_EQ(run({"--stop"}).output, "");
  EXPECT_THAT(log(), HasSubstr("No space left on device"));
  expectPlays(onlyFileIn(temporaryFolder()), kRecorded_s - 0.2);
  EXPECT_THAT(filesIn(musicFolder()), ElementsAre(musicFolder() + "/filler"));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
}

TEST_F(FaultyDiskTest, OutputDiskPulledOutLeavesTheFileWhereItWasWritten) {
  std::filesystem::create_directories(musicFolder());
  ExtDisk disk(musicFolder(), scratch());
  if (!disk.refusal().empty()) GTEST_SKIP() << "no disk on a loop device: " << disk.refusal();
  const auto tool = startRecording(kRecorded_s);
  disk.pullOut();
  EXPECT_EQ(run({"--stop"}).output, "");
  EXPECT_THAT(log(), HasSubstr("Can't move file from " + temporaryFolder()));
  EXPECT_EQ(promptState(), "idle");
  expectPlays(onlyFileIn(temporaryFolder()), kRecorded_s - 0.2);
  EXPECT_TRUE(endsAtOnce(*tool, 1));
}

TEST_F(FaultyDiskTest, DiskWithLittleSpaceIsReportedUntilThereIsMore) {
  SmallDisk disk(temporaryFolder());
  if (!disk.isMounted()) GTEST_SKIP() << "this user may not mount a disk in memory";
  disk.resize("300m");
  const auto saysLow = [this] {
    const Json now = status();
    return now.is_object() && now.value("lowSpace", false);
  };
  const auto tool = startRecording(4.5);
  EXPECT_FALSE(saysLow());
  disk.fill(90'000'000);
  EXPECT_TRUE(waitUntil(saysLow, kStepLimit));
  EXPECT_EQ(promptState(), "recording") << "it changes nothing else";
  std::filesystem::remove(temporaryFolder() + "/filler");
  EXPECT_TRUE(waitUntil([&] { return !saysLow(); }, kStepLimit));
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_EQ(promptState(), "idle");
  EXPECT_TRUE(endsAtOnce(*tool));
  const std::string said = log();
  const std::size_t first = said.find("Less than 100 MB");
  EXPECT_NE(first, std::string::npos);
  EXPECT_EQ(said.find("Less than 100 MB", first + 1), std::string::npos) << "once";
}

}  // namespace
}  // namespace e2e
