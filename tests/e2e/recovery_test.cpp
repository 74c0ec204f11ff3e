// SPDX-License-Identifier: MIT
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "tests/e2e/birth_time.h"
#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/notification_server.h"
#include "tests/e2e/tool_fixture.h"

// Recordings of killed programs are recovered at the next start, and with --recover.

namespace e2e {
namespace {

using test_support::ChildProcess;
using test_support::waitUntil;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kRecovered = "An interrupted recording was recovered.";

class RecoveryTest : public ToolFixture {
 protected:
  RecoveryTest() { plugInMicrophone(); }

  struct Interrupted {
    std::string file;
    double recorded_s;
    std::vector<std::string> possibleNames;  // one of two seconds
  };

  Interrupted recordAndKill(int soundFormat, double time_s) {
    writeSettings({{"SoundFormat", soundFormat}});
    const auto tool = startRecording(time_s);
    Interrupted interrupted;
    interrupted.file = status()["outputFile"];
    const auto birth = birthOf(interrupted.file).value_or(WallClock::now());
    const auto end = WallClock::now();
    tool->kill();
    interrupted.recorded_s = std::chrono::duration<double>(end - birth).count();
    for (const int earlier_s : {0, 1}) {
      const std::time_t second = WallClock::to_time_t(birth - std::chrono::seconds(earlier_s));
      char text[64];
      std::strftime(text, sizeof text, "Audio recording %Y-%m-%d at %I.%M.%S %p.",
                    std::localtime(&second));
      std::string name = text + extensionOf(soundFormat);
      const std::size_t zero = name.find(" at 0");
      if (zero != std::string::npos) name.erase(zero + 4, 1);
      interrupted.possibleNames.push_back(musicFolder() + "/" + name);
    }
    return interrupted;
  }

  void expectSaved(const Interrupted& interrupted, const std::string& path) {
    EXPECT_THAT(interrupted.possibleNames, Contains(path));
    EXPECT_FALSE(std::filesystem::exists(interrupted.file));
    const DecodedSound sound = decodeSound(path, server.directory());
    EXPECT_EQ(sound.error, "");
    EXPECT_NEAR(sound.duration_s(), interrupted.recorded_s, 1.0);
  }

  std::string leaveStrange(const std::string& contents) const {
    const std::string path = temporaryFolder() + "/Audio_recording_strange";
    std::ofstream(path) << contents;
    return path;
  }
};

class RecoveryAtLaunchTest : public RecoveryTest, public testing::WithParamInterface<int> {};

TEST_P(RecoveryAtLaunchTest, AKilledRecordingComesBackWhileTheNextOneRuns) {
  const NotificationServer notifications(server.busAddress());
  const Interrupted interrupted = recordAndKill(GetParam(), 2.0);
  // The killed recording's format need not be the current one.
  writeSettings({{"SoundFormat", GetParam() == kM4a ? kMp3 : kM4a}});
  const auto tool = startRecording();
  ASSERT_TRUE(waitUntil([&] { return filesIn(musicFolder()).size() == 1; }, kStepLimit));
  expectSaved(interrupted, onlyFileIn(musicFolder()));
  const auto tellings = [&] {
    const auto shown = notifications.shown();
    return std::ranges::count_if(
        shown, [](const std::string& text) { return text.find(kRecovered) != std::string::npos; });
  };
  ASSERT_TRUE(waitUntil([&] { return tellings() > 0; }, kStepLimit));
  EXPECT_EQ(status()["state"], "recording");
  const std::string own = run({"--stop"}).output;
  EXPECT_EQ(decodeSound(own.substr(0, own.size() - 1), server.directory()).error, "");
  EXPECT_THAT(filesIn(musicFolder()), SizeIs(2));
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_EQ(tellings(), 1);
}

INSTANTIATE_TEST_SUITE_P(Formats, RecoveryAtLaunchTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

TEST_F(RecoveryTest, RecoveryInMp3ModeLoadsNoCodecLibraries) {
  recordAndKill(kM4a, 1.0);
  writeSettings({{"SoundFormat", kMp3}});
  const auto tool = startRecording();
  ASSERT_TRUE(waitUntil([&] { return filesIn(musicFolder()).size() == 1; }, kStepLimit));
  const std::string maps = contentsOf("/proc/" + std::to_string(tool->pid()) + "/maps");
  EXPECT_THAT(maps, HasSubstr("libpipewire"));
  EXPECT_THAT(maps, testing::Not(HasSubstr("libav")));
  EXPECT_THAT(maps, testing::Not(HasSubstr("record-audio-m4a")));
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(RecoveryTest, TheCommandWorksAloneWithoutABusAndRecordsNothing) {
  const Interrupted first = recordAndKill(kM4a, 1.5);
  // An empty folder for temporary files keeps the next start from recovering the first one.
  std::filesystem::rename(first.file, server.directory() + "/aside");
  const Interrupted second = recordAndKill(kMp3, 1.5);
  std::filesystem::rename(server.directory() + "/aside", first.file);
  const std::size_t eventsBefore = events().size();

  setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
  setEnvironment("PIPEWIRE_REMOTE", "nothing-there");
  const FinishedCommand recovery = run({"--recover"});
  EXPECT_EQ(recovery.exitStatus, 0);
  EXPECT_EQ(recovery.errors, "");
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
  const auto files = filesIn(musicFolder());
  ASSERT_THAT(files, SizeIs(2));
  const bool m4aFirst = files[0].ends_with("m4a");
  expectSaved(first, files[m4aFirst ? 0 : 1]);
  expectSaved(second, files[m4aFirst ? 1 : 0]);
  for (const std::string& file : files) EXPECT_THAT(recovery.output, HasSubstr(file + "\n"));
  EXPECT_EQ(events().size(), eventsBefore);

  const FinishedCommand again = run({"--recover"});
  EXPECT_EQ(again.exitStatus, 0);
  EXPECT_EQ(again.output + again.errors, "");
}

TEST_F(RecoveryTest, TheRecordingOfALivingProgramIsLeftAlone) {
  const auto tool = startRecording(1.0);
  const std::string file = status()["outputFile"];
  const FinishedCommand recovery = run({"--recover"});
  EXPECT_EQ(recovery.exitStatus, 0);
  EXPECT_EQ(recovery.output + recovery.errors, "");
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(status()["state"], "recording");
  EXPECT_EQ(run({"--stop"}).exitStatus, 0);
  EXPECT_EQ(decodeSound(onlyFileIn(musicFolder()), server.directory()).error, "");
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(RecoveryTest, OfTwoProgramsAtOnceOnlyOneTakesTheFile) {
  recordAndKill(kMp3, 1.0);
  const auto one = start({"--recover"});
  const auto other = start({"--recover"});
  EXPECT_EQ(one->waitForExit(kStepLimit), 0);
  EXPECT_EQ(other->waitForExit(kStepLimit), 0);
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
}

TEST_F(RecoveryTest, AFileThatCannotBeRecoveredStaysAndIsReported) {
  const Interrupted interrupted = recordAndKill(kM4a, 1.0);
  const std::string strange = leaveStrange("no recording at all");
  const std::string empty = temporaryFolder() + "/Audio_recording_empty";
  std::ofstream{empty};
  const FinishedCommand recovery = run({"--recover"});
  EXPECT_EQ(recovery.exitStatus, 1);
  EXPECT_EQ(recovery.output, onlyFileIn(musicFolder()) + "\n");
  EXPECT_THAT(recovery.errors, HasSubstr(strange));
  EXPECT_THAT(recovery.errors, HasSubstr(empty));
  EXPECT_EQ(contentsOf(strange), "no recording at all");
  EXPECT_THAT(filesIn(temporaryFolder()), ElementsAre(empty, strange));
}

TEST_F(RecoveryTest, WithoutAnOutputFolderEverythingStays) {
  const Interrupted interrupted = recordAndKill(kM4a, 1.0);
  const std::string file = server.home() + "/a file";
  std::ofstream(file) << "x";
  useOutputFolder(file + "/folder");
  const FinishedCommand recovery = run({"--recover"});
  EXPECT_EQ(recovery.exitStatus, 1);
  EXPECT_EQ(recovery.output, "");
  EXPECT_THAT(recovery.errors, HasSubstr(file));
  EXPECT_THAT(filesIn(temporaryFolder()), ElementsAre(interrupted.file));
}

}  // namespace
}  // namespace e2e
