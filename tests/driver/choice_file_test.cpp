// SPDX-License-Identifier: MIT
#include "driver/choice_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

using loopback::ChoiceFile;
using loopback::DefaultChoice;
using loopback::MetadataValue;

class ChoiceFileTest : public testing::Test {
 protected:
  ChoiceFileTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "choice-XXXXXX").string();
    directory = mkdtemp(pattern.data());
    path = directory + "/some/where/choice";
  }
  ~ChoiceFileTest() override { std::filesystem::remove_all(directory); }
  void write(const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
  }
  std::string directory;
  std::string path;
};

const DefaultChoice kSpeaker = MetadataValue{"Spa:String:JSON", R"({ "name": "speaker" })"};

TEST_F(ChoiceFileTest, ReturnsWhatWasStored) {
  ChoiceFile(path).store(kSpeaker);
  EXPECT_EQ(ChoiceFile(path).load(), kSpeaker);
  ChoiceFile(path).store({});
  EXPECT_EQ(ChoiceFile(path).load(), std::nullopt);
}

TEST_F(ChoiceFileTest, LeavesNoTemporaryFileAndIsReadableByTheUserOnly) {
  ChoiceFile(path).store(kSpeaker);
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
}

TEST_F(ChoiceFileTest, ADamagedFileCountsAsAbsent) {
  EXPECT_EQ(ChoiceFile(path).load(), std::nullopt);
  for (const char* text : {"", "\n", "configured\n", "configured\nSpa:String:JSON",
                           "rubbish\na\nb\n", "none\n", "configured\nSpa:String:JSON\n"}) {
    write(text);
    EXPECT_EQ(ChoiceFile(path).load(), std::nullopt) << text;
  }
}

TEST_F(ChoiceFileTest, NeverReturnsTheLoopbackItself) {
  write("configured\nSpa:String:JSON\n{\"name\":\"com.vantrel.loopbackdevice\"}\n");
  EXPECT_EQ(ChoiceFile(path).load(), std::nullopt);
}

TEST_F(ChoiceFileTest, AnUnwritablePlaceIsReportedAndDoesNoHarm) {
  std::ofstream(directory + "/some") << "a file where a folder is needed";
  testing::internal::CaptureStderr();
  ChoiceFile(path).store(kSpeaker);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("cannot write " + path), std::string::npos);
}

TEST_F(ChoiceFileTest, IsInTheStateFolderOrTheHomeFolderOrTheRuntimeFolder) {
  const std::string name = "/com.vantrel.loopbackdevice/configured-default";
  setenv("XDG_RUNTIME_DIR", "/run/x", 1);
  setenv("HOME", "/home/x", 1);
  setenv("XDG_STATE_HOME", "/state/x", 1);
  EXPECT_EQ(ChoiceFile::defaultPath(), "/state/x" + name);
  setenv("XDG_STATE_HOME", "relative", 1);
  EXPECT_EQ(ChoiceFile::defaultPath(), "/home/x/.local/state" + name);
  unsetenv("HOME");
  EXPECT_EQ(ChoiceFile::defaultPath(), "/run/x" + name);
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(ChoiceFile::defaultPath(), "");
}

}  // namespace
