// SPDX-License-Identifier: MIT
#include "app/entry_point.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/memory_host/memory_host.h"

namespace record_audio {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class EntryPointTest : public testing::Test {
 protected:
  int start(const std::vector<std::string>& arguments) {
    const HostCommands host{[this](const CommandLine& line) {
                              asked_.push_back("run");
                              paths_ = line.pathsToOpen;
                              return 10;
                            },
                            [this](CommandLine::Command command) {
                              asked_.push_back("ask " + std::to_string(static_cast<int>(command)));
                              return 11;
                            },
                            [this] {
                              asked_.push_back("recover");
                              return 12;
                            }};
    return runCommand(arguments, "1.2.3", host, out_, err_);
  }
  static std::string ask(CommandLine::Command command) {
    return "ask " + std::to_string(static_cast<int>(command));
  }

  std::vector<std::string> asked_;
  std::vector<std::string> paths_;
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(EntryPointTest, TheHostRunsTheCommandsThatNeedAMachineAndReturnsTheirStatus) {
  EXPECT_EQ(start({"/a"}), 10);
  EXPECT_EQ(start({"--stop"}), 11);
  EXPECT_EQ(start({"--cancel"}), 11);
  EXPECT_EQ(start({"--status"}), 11);
  EXPECT_EQ(start({"--recover"}), 12);
  EXPECT_THAT(asked_, ElementsAre("run", ask(CommandLine::Command::kStop),
                                  ask(CommandLine::Command::kCancel),
                                  ask(CommandLine::Command::kStatus), "recover"));
  EXPECT_THAT(paths_, ElementsAre("/a"));
  EXPECT_EQ(out_.str() + err_.str(), "");
}

TEST_F(EntryPointTest, HelpAndVersionNeedNoMachine) {
  EXPECT_EQ(start({"--help"}), 0);
  EXPECT_EQ(out_.str(), helpText());
  out_.str("");
  EXPECT_EQ(start({"--version"}), 0);
  EXPECT_EQ(out_.str(), "record-audio 1.2.3\n");
  EXPECT_THAT(asked_, IsEmpty());
  EXPECT_EQ(err_.str(), "");
}

TEST_F(EntryPointTest, InvalidArgumentsDoNotReachTheHost) {
  EXPECT_EQ(start({"--dance"}), kExitUsage);
  EXPECT_THAT(err_.str(), HasSubstr("--dance"));
  EXPECT_EQ(out_.str(), "");
  EXPECT_THAT(asked_, IsEmpty());
}

TEST(RecoverRecordingsTest, WithoutAnOutputFolderItFailsAndTouchesNothing) {
  memory_host::MemoryHost memory;
  memory.suite.location.reset();
  memory.interruptedRecordings.add("Audio_recording_old");
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(recoverRecordings(memory.environment, out, err), kExitFailed);
  EXPECT_EQ(out.str(), "");
  EXPECT_THAT(memory.interruptedRecordings.journal, IsEmpty());
}

TEST(RecoverRecordingsTest, PrintsWhereItSavedARecording) {
  memory_host::MemoryHost memory;
  platform::RecordingFindings findings;
  findings.contents = platform::RecordingFindings::Contents::kM4a;
  findings.duration_s = 600;
  findings.created = platform::Date(std::chrono::seconds(1'715'947'200));
  findings.lastWritten = *findings.created + std::chrono::seconds(600);
  memory.interruptedRecordings.add("Audio_recording_old", findings);
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(recoverRecordings(memory.environment, out, err), kExitDone);
  EXPECT_EQ(out.str(), "/out/Audio recording 2024-05-17 at 12.00.00.m4a\n");
  EXPECT_EQ(err.str(), "");
}

}  // namespace
}  // namespace record_audio
