// SPDX-License-Identifier: MIT
// The names of temporary and finished recordings.

#include "tests/capture/recorder_fixture.h"

namespace {

using namespace capture_test;

class RecorderNamingTest : public RecorderFixture {
 protected:
  void SetUp() override { recorder->outputURL(); }
  void take(int number) {
    const std::string suffix = number > 0 ? " (" + std::to_string(number) + ")" : "";
    memory.fileManager.addFile("/out/Audio recording 2024-05-17 at 14.03.27" + suffix + ".m4a");
  }
};

TEST_F(RecorderNamingTest, NamesTheTemporaryFileAfterTheProcessAloneWithoutExtension) {
  EXPECT_EQ(recorder->outputFilePath(), "/tmp-of-memory/Audio_recording_unique-1");
  EXPECT_EQ(recorder->outputURL(), "file:///tmp-of-memory/Audio_recording_unique-2");
}

TEST_F(RecorderNamingTest, NamesTheFileAfterTitleAndTheTimeAtWhichTheTemporaryFileWasNamed) {
  memory.runLoop.advance(3600);
  EXPECT_EQ(recorder->generatePath(), "/out/Audio recording 2024-05-17 at 14.03.27.m4a");
  recorder->outputURL();
  EXPECT_EQ(recorder->generatePath(), "/out/Audio recording 2024-05-17 at 15.03.27.m4a");
}

// Every format but m4a records through the data output.
TEST_F(RecorderNamingTest, UsesTheExtensionMp3ForEveryFormatButZero) {
  for (const std::uint64_t format : {kMp3, std::uint64_t{2}}) {
    ASSERT_TRUE(recorder->startRecord(mic, 0, format));
    EXPECT_EQ(recorder->generatePath(), "/out/Audio recording 2024-05-17 at 14.03.27.mp3");
  }
}

TEST_F(RecorderNamingTest, TakesTheTitleFromTheStringTable) {
  memory.mainBundle.strings["Audio recording"] = "Tonaufnahme";
  memory.mainBundle.strings["at"] = "um";
  EXPECT_EQ(recorder->generatePath(), "/out/Tonaufnahme 2024-05-17 um 14.03.27.m4a");
}

TEST_F(RecorderNamingTest, AnM4aIsTitledLikeItsFileWithoutANumberAndDatedAtItsStart) {
  take(0);
  ASSERT_TRUE(recorder->startRecord(mic, 0, kM4a));
  memory.capture.sessions.back()->reportStarted();
  const auto& metadata = memory.capture.fileOutputs.back()->metadata;
  EXPECT_EQ(metadata.title, "Audio recording 2024-05-17 at 14.03.27");
  EXPECT_EQ(metadata.creationDate, memory.host.wallClock.now());
}

TEST_F(RecorderNamingTest, NumbersTheSecondFileOfAName1) {
  take(0);
  EXPECT_EQ(recorder->generatePath(), "/out/Audio recording 2024-05-17 at 14.03.27 (1).m4a");
}

TEST_F(RecorderNamingTest, TakesTheFirstFreeNumberAfterThoseInUse) {
  for (int number = 0; number <= 3; ++number) take(number);
  take(5);
  EXPECT_EQ(recorder->generatePath(), "/out/Audio recording 2024-05-17 at 14.03.27 (4).m4a");
}

TEST_F(RecorderNamingTest, UsesNumber99WhenItIsTheLastFreeOne) {
  for (int number = 0; number <= 98; ++number) take(number);
  EXPECT_EQ(recorder->generatePath(), "/out/Audio recording 2024-05-17 at 14.03.27 (99).m4a");
}

// The move to it fails, so nothing is replaced and the file stays where it was recorded.
TEST_F(RecorderNamingTest, AnswersNumber99WhenAllAreTaken) {
  for (int number = 0; number <= 99; ++number) take(number);
  EXPECT_EQ(recorder->generatePath(), "/out/Audio recording 2024-05-17 at 14.03.27 (99).m4a");
}

TEST_F(RecorderNamingTest, NeverLetsATranslationOrLocaleBreakThePath) {
  memory.mainBundle.strings["Audio recording"] = "Sound/../../etc: \"new\"";
  memory.mainBundle.strings["at"] = "<at>";
  memory.dateFormatter.timePattern = "HH:mm\u202FPM";
  const std::string path = recorder->generatePath();
  EXPECT_TRUE(path.starts_with("/out/")) << path;
  EXPECT_EQ(path.find_first_of("/\\:*?\"<>|", 5), std::string::npos) << path;
  EXPECT_EQ(path.find("\u202F"), std::string::npos) << path;
}

}  // namespace
