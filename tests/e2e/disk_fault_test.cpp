// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/small_disk.h"
#include "tests/e2e/tool_fixture.h"

// The program and its file when a folder, a disk or a settings file is not as it should be.

namespace e2e {
namespace {

using test_support::ChildProcess;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// Root can write everywhere, so the tool runs without that privilege, as for an ordinary user.
std::vector<std::string> withoutRootsPrivilege() {
  if (geteuid() != 0) return {};
  return {"setpriv", "--bounding-set=-dac_override,-dac_read_search",
          "--inh-caps=-dac_override,-dac_read_search"};
}

class DiskTest : public ToolFixture, public testing::WithParamInterface<int> {
 protected:
  DiskTest() {
    writeSettings({{"SoundFormat", GetParam()}});
    plugInMicrophone();
  }
  void expectPlays(const std::string& path) {
    const DecodedSound sound = decodeSound(path, server.directory());
    EXPECT_EQ(sound.error, "");
    EXPECT_GT(sound.duration_s(), 1.7);
  }
  // The stop could not move the file.
  void expectUnsaved(ChildProcess& tool) {
    EXPECT_EQ(run({}).exitStatus, 0);
    EXPECT_TRUE(waitForState("idle"));
    EXPECT_TRUE(endsAtOnce(tool, 1));
    EXPECT_THAT(log(), HasSubstr("Can't move file from " + temporaryFolder()));
    expectPlays(onlyFileIn(temporaryFolder()));
    EXPECT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
  }
};

TEST_P(DiskTest, OutputFolderThatIsGoneAtTheStopLeavesTheFileWhereItWasWritten) {
  const auto tool = startRecording(2.0);
  std::filesystem::remove_all(musicFolder());
  expectUnsaved(*tool);
}

TEST_P(DiskTest, StopFromAScriptSaysWhyThereIsNoFileAndWhereTheRecordingIs) {
  const auto tool = startRecording(2.0);
  std::filesystem::remove_all(musicFolder());
  const FinishedCommand result = run({"--stop"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, HasSubstr("could not be saved"));
  EXPECT_THAT(result.errors, HasSubstr(musicFolder() + "/"));
  EXPECT_THAT(result.errors, HasSubstr("kept as " + onlyFileIn(temporaryFolder())));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  EXPECT_EQ(run({"--recover"}).exitStatus, 0);
  expectPlays(onlyFileIn(musicFolder()));
}

TEST_P(DiskTest, OutputFolderMadeReadOnlyLeavesTheFileWhereItWasWritten) {
  runThrough(withoutRootsPrivilege());
  const auto tool = startRecording(2.0);
  chmod(musicFolder().c_str(), 0555);
  expectUnsaved(*tool);
  EXPECT_THAT(log(), HasSubstr("Permission denied"));
  chmod(musicFolder().c_str(), 0755);
}

TEST_P(DiskTest, FullDiskEndsTheRecordingAndKeepsWhatIsThere) {
  const SmallDisk disk(temporaryFolder());
  // A write beyond the process's size limit kills it unless the signal is ignored.
  runThrough({"/bin/sh", "-c", "trap '' XFSZ; exec \"$0\" \"$@\""});
  const auto tool = startRecording(2.0);
  const std::string file = status()["outputFile"];
  disk.fillUp(tool->pid(), file, 20000);
  EXPECT_TRUE(waitForState("idle"));
  EXPECT_TRUE(endsAtOnce(*tool, 1));
  EXPECT_THAT(log(), HasSubstr(file));
  EXPECT_THAT(filesIn(musicFolder()), IsEmpty());
  const DecodedSound sound = decodeSound(file, server.directory());
  EXPECT_GT(sound.duration_s(), 1.7);
  // An MP3 may end with an incomplete frame until it is recovered.
  if (GetParam() == kM4a) {
    EXPECT_EQ(sound.error, "");
  }
  ASSERT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
  EXPECT_EQ(events()[2]["details"], (Json{{"Error", true}}));
  // Recovery needs no room on that disk.
  EXPECT_EQ(run({"--recover"}).exitStatus, 0);
  EXPECT_THAT(filesIn(temporaryFolder()), testing::Each(testing::Not(file)));
  expectPlays(onlyFileIn(musicFolder()));
}

TEST_P(DiskTest, RecordingMovesWholeFromAMemoryDiskToAnotherDisk) {
  const SmallDisk disk(temporaryFolder());
  struct stat temporary {};
  struct stat music {};
  const auto tool = startRecording(2.0);
  stat(temporaryFolder().c_str(), &temporary);
  stat(musicFolder().c_str(), &music);
  ASSERT_NE(temporary.st_dev, music.st_dev);
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitForState("idle"));
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
  expectPlays(onlyFileIn(musicFolder()));
}

INSTANTIATE_TEST_SUITE_P(Formats, DiskTest, testing::Values(kM4a, kMp3),
                         [](const auto& format) { return extensionOf(format.param); });

class FolderTest : public ToolFixture {
 protected:
  FolderTest() { plugInMicrophone(); }
  // The recording stays where it was written, and the status says why.
  void expectKept(const std::string& folder) {
    const auto tool = startRecording();
    EXPECT_THAT(log(), HasSubstr(folder));
    EXPECT_EQ(run({"--stop"}).exitStatus, 1);
    EXPECT_NE(onlyFileIn(temporaryFolder()), "");
    EXPECT_TRUE(endsAtOnce(*tool, 1));
  }
};

TEST_F(FolderTest, OutputFolderIsCreatedWhenMissing) {
  const std::string folder = server.home() + "/to be made/of two";
  useOutputFolder(folder);
  const auto tool = startRecording();
  const std::string printed = run({"--stop"}).output;
  EXPECT_EQ(printed, onlyFileIn(folder) + "\n");
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(FolderTest, FolderThatCannotBeWrittenCostsNoSound) {
  const std::string folder = server.home() + "/locked";
  std::filesystem::create_directory(folder);
  chmod(folder.c_str(), 0555);
  useOutputFolder(folder);
  runThrough(withoutRootsPrivilege());
  expectKept(folder);
  EXPECT_THAT(filesIn(folder), IsEmpty());
}

TEST_F(FolderTest, FolderThatCannotBeCreatedCostsNoSound) {
  const std::string file = server.home() + "/a file";
  std::ofstream(file) << "x";
  useOutputFolder(file + "/folder");
  expectKept(file);
}

TEST_F(FolderTest, DamagedSettingsAreSetAsideAndTheDefaultsUsed) {
  const std::string settings = settingsFolder() + "/defaults.json";
  std::filesystem::create_directories(settingsFolder());
  std::ofstream(settings) << "{\"SoundFormat\": 1, \"Qual";
  const auto tool = startRecording();
  EXPECT_EQ(status()["format"], "m4a");
  EXPECT_TRUE(endsAtOnce(*tool));
  EXPECT_THAT(log(), HasSubstr("defaults.json"));
  std::vector<std::string> setAside;
  for (const std::string& file : filesIn(settingsFolder())) {
    if (file != settings && contentsOf(file) == "{\"SoundFormat\": 1, \"Qual") {
      setAside.push_back(file);
    }
  }
  EXPECT_THAT(setAside, SizeIs(1));
}

TEST_F(FolderTest, ForeignKeysOfTheSettingsSurviveARecording) {
  writeSettings({{"SoundFormat", "1"}, {"Foreign", {{"deep", true}}}});
  const auto tool = startRecording();
  EXPECT_EQ(status()["format"], "mp3") << "a text is read as its number";
  EXPECT_TRUE(endsAtOnce(*tool));
  const Json after = Json::parse(contentsOf(settingsFolder() + "/defaults.json"));
  EXPECT_EQ(after["Foreign"], (Json{{"deep", true}}));
}

}  // namespace
}  // namespace e2e
