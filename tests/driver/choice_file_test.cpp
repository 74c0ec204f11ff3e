// SPDX-License-Identifier: MIT
#include "driver/choice_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "driver/unique_fd.h"
#include "tests/driver/odd_writes.h"

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
  ~ChoiceFileTest() override {
    driver_test::letWrites({});
    std::filesystem::remove_all(directory);
  }
  // What a store reports.
  static std::string reportOf(ChoiceFile file, const DefaultChoice& choice) {
    testing::internal::CaptureStderr();
    file.store(choice);
    return testing::internal::GetCapturedStderr();
  }
  void put(const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
  }
  std::string directory;
  std::string path;
};

const DefaultChoice kSpeaker = MetadataValue{"Spa:String:JSON", R"({ "name": "speaker" })"};

const DefaultChoice kHeadphones = MetadataValue{"Spa:String:JSON", R"({ "name": "headphones" })"};

TEST_F(ChoiceFileTest, ReturnsWhatWasStored) {
  EXPECT_EQ(reportOf(ChoiceFile(path), kSpeaker), "");
  EXPECT_EQ(ChoiceFile(path).load(), kSpeaker);
  ChoiceFile(path).store({});
  EXPECT_EQ(ChoiceFile(path).load(), std::nullopt);
}

TEST_F(ChoiceFileTest, WritesEverythingInPiecesAndAfterInterruptions) {
  driver_test::letWrites({-EINTR, 3, -EINTR, 1, 7});
  EXPECT_EQ(reportOf(ChoiceFile(path), kSpeaker), "");
  EXPECT_EQ(ChoiceFile(path).load(), kSpeaker);
  const auto written_bytes = std::filesystem::file_size(path);
  ChoiceFile(path).store(kSpeaker);
  EXPECT_EQ(written_bytes, std::filesystem::file_size(path));
}

TEST_F(ChoiceFileTest, AFailedWriteIsReportedAndLeavesTheOldChoice) {
  ChoiceFile(path).store(kSpeaker);
  for (const std::vector<ssize_t>& outcomes :
       {std::vector<ssize_t>{-ENOSPC}, {5, -EIO}, {0}, {-EINTR, 0}}) {
    driver_test::letWrites(outcomes);
    EXPECT_NE(reportOf(ChoiceFile(path), kHeadphones), "");
    EXPECT_EQ(ChoiceFile(path).load(), kSpeaker);
  }
}

TEST_F(ChoiceFileTest, ALeftoverOfACrashIsNeitherReadNorWrittenThrough) {
  ChoiceFile(path).store(kSpeaker);
  ASSERT_EQ(mkfifo((path + ".new").c_str(), 0600), 0);
  EXPECT_EQ(reportOf(ChoiceFile(path), kHeadphones), "");
  EXPECT_EQ(ChoiceFile(path).load(), kHeadphones);
}

TEST_F(ChoiceFileTest, WithoutAPathNothingIsWrittenOrReported) {
  EXPECT_EQ(reportOf(ChoiceFile(""), kSpeaker), "");
}

TEST_F(ChoiceFileTest, OnlyAnOrdinaryFileIsRead) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(ChoiceFile(path).load(), std::nullopt) << "and nobody waits for a writer";
  const loopback::UniqueFd pipe(open(path.c_str(), O_RDWR | O_CLOEXEC));
  const std::string choice = "configured\na\nb\n";
  ASSERT_EQ(write(pipe.get(), choice.data(), choice.size()), ssize_t(choice.size()));
  EXPECT_EQ(ChoiceFile(path).load(), std::nullopt);
}

TEST_F(ChoiceFileTest, AFileOfSixtyFourKilobytesIsNotOurs) {
  const std::string head = "configured\nSpa:String:JSON\n";
  for (const std::size_t size_bytes : {65535U, 65536U}) {
    put(head + std::string(size_bytes - head.size(), 'x'));
    EXPECT_EQ(ChoiceFile(path).load().has_value(), size_bytes < 65536U) << size_bytes;
  }
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
    put(text);
    EXPECT_EQ(ChoiceFile(path).load(), std::nullopt) << text;
  }
}

TEST_F(ChoiceFileTest, NeverReturnsTheLoopbackItself) {
  put("configured\nSpa:String:JSON\n{\"name\":\"com.vantrel.loopbackdevice\"}\n");
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
