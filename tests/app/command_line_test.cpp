// SPDX-License-Identifier: MIT
#include "app/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

namespace record_audio {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

CommandLine parsed(const std::vector<std::string>& arguments) {
  const auto result = parseCommandLine(arguments);
  const auto* error = std::get_if<CommandLineError>(&result);
  if (error != nullptr) {
    ADD_FAILURE() << error->text;
    return {};
  }
  return std::get<CommandLine>(result);
}

TEST(CommandLineTest, WithoutOptionsTheProgramRuns) {
  EXPECT_EQ(parsed({}).command, CommandLine::Command::kRun);
  EXPECT_THAT(parsed({"/a", "b"}).pathsToOpen, ElementsAre("/a", "b"));
  EXPECT_THAT(parsed({"--", "--stop"}).pathsToOpen, ElementsAre("--stop"));
}

TEST(CommandLineTest, EachOptionIsACommand) {
  EXPECT_EQ(parsed({"--stop"}).command, CommandLine::Command::kStop);
  EXPECT_EQ(parsed({"--cancel"}).command, CommandLine::Command::kCancel);
  EXPECT_EQ(parsed({"--status"}).command, CommandLine::Command::kStatus);
  EXPECT_EQ(parsed({"--recover"}).command, CommandLine::Command::kRecover);
  EXPECT_EQ(parsed({"--help"}).command, CommandLine::Command::kHelp);
  EXPECT_EQ(parsed({"--version", "--version"}).command, CommandLine::Command::kVersion);
}

TEST(CommandLineTest, ASingleDashIsAPath) {
  EXPECT_THAT(parsed({"-"}).pathsToOpen, ElementsAre("-"));
}

TEST(CommandLineTest, TheSuitesPreferencesArgumentIsTolerated) {
  EXPECT_EQ(parsed({"--preferences"}).command, CommandLine::Command::kRun);
  EXPECT_THAT(parsed({"--preferences"}).pathsToOpen, IsEmpty());
}

TEST(CommandLineTest, InvalidArgumentsGiveAnErrorThatNamesThem) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--dance"}, "--dance"},
      {{"-x"}, "-x"},
      {{"--", ""}, "empty"},
      {{"--preferences=1"}, "--preferences=1"},
      {{"--stop", "--cancel"}, "--cancel"},
      {{"--status", "/a"}, "/a"},
      {{""}, "empty"}};
  for (const auto& [arguments, named] : cases) {
    const auto result = parseCommandLine(arguments);
    const auto* error = std::get_if<CommandLineError>(&result);
    ASSERT_NE(error, nullptr) << arguments.front();
    EXPECT_THAT(error->text, HasSubstr(named));
  }
}

TEST(CommandLineTest, HelpNamesEveryOption) {
  for (const char* option :
       {"--stop", "--cancel", "--status", "--recover", "--help", "--version"}) {
    EXPECT_THAT(helpText(), HasSubstr(option));
  }
  EXPECT_EQ(versionText("1.2.3"), "record-audio 1.2.3\n");
}

// Scripts read them. From 3 on they are the Linux host's.
TEST(CommandLineTest, HelpNamesEveryExitStatus) {
  const std::string help = helpText();
  const std::string statuses = help.substr(help.find("Exit status:"));
  for (const char* status : {" 0 ", " 1 ", " 2 ", " 3 ", " 4 ", " 5 "}) {
    EXPECT_THAT(statuses, HasSubstr(status));
  }
}

}  // namespace
}  // namespace record_audio
