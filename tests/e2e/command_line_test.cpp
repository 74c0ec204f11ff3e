// SPDX-License-Identifier: MIT
#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tests/base/temporary_folder.h"
#include "tests/e2e/decoded_sound.h"
#include "tests/e2e/notification_server.h"
#include "tests/e2e/tool_fixture.h"

// The program as scripts use it, with a session bus and without one.

namespace e2e {
namespace {

using test_support::ChildProcess;
using test_support::waitUntil;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

TEST(CommandLine, WrongArgumentsAreReportedAndExitWithTwo) {
  const base_test::TemporaryFolder folder;
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"--record"}, {"-x"}, {"--stop", "--cancel"}, {"--status", "/some/path"}, {""}}) {
    std::vector<std::string> command{RECORD_AUDIO};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const FinishedCommand result = runToEnd(command, {}, folder.path());
    EXPECT_EQ(result.exitStatus, 2) << arguments.front();
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, HasSubstr("--help"));
    EXPECT_THAT(result.errors, HasSubstr(arguments.front()));
  }
}

TEST(CommandLine, HelpAndVersionNeedNoServer) {
  const base_test::TemporaryFolder folder;
  const FinishedCommand help = runToEnd({RECORD_AUDIO, "--help"}, {}, folder.path());
  EXPECT_EQ(help.exitStatus, 0);
  for (const char* option :
       {"--stop", "--cancel", "--status", "--recover", "--help", "--version"}) {
    EXPECT_THAT(help.output, HasSubstr(option));
  }
  const FinishedCommand version = runToEnd({RECORD_AUDIO, "--version"}, {}, folder.path());
  EXPECT_EQ(version.exitStatus, 0);
  EXPECT_THAT(version.output, testing::MatchesRegex("record-audio [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  EXPECT_EQ(help.errors + version.errors, "");
}

enum class Bus { kSession, kNone };

class ScriptTest : public ToolFixture, public testing::WithParamInterface<Bus> {
 protected:
  ScriptTest() {
    if (GetParam() == Bus::kNone) {
      setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    }
    plugInMicrophone();
  }
};

TEST_P(ScriptTest, CommandsFindNoInstanceAndExitWithThree) {
  for (const char* option : {"--stop", "--cancel", "--status"}) {
    const FinishedCommand result = run({option});
    EXPECT_EQ(result.exitStatus, 3) << option;
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, HasSubstr("not running"));
  }
  EXPECT_THAT(eventNames(), IsEmpty());
}

class LauncherTest : public ToolFixture {
 protected:
  FinishedCommand runInTerminal(const std::string& option) {
    const ChildProcess::Command tool = toolCommand({option});
    return runToEnd({"script", "-qec", "'" + tool.arguments.front() + "' " + option, "/dev/null"},
                    tool.environment, server.directory());
  }
};

// Nobody sees stderr when a launcher or a key runs the command; the exit status stays the same.
TEST_F(LauncherTest, WithoutATerminalANotificationSaysThatThereIsNothingToEnd) {
  const NotificationServer notifications(server.busAddress());
  EXPECT_EQ(run({"--status"}).exitStatus, 3);
  EXPECT_THAT(notifications.shown(), IsEmpty());
  EXPECT_EQ(run({"--stop"}).exitStatus, 3);
  EXPECT_THAT(notifications.shown(), ElementsAre(HasSubstr("Nothing is being recorded.")));
  EXPECT_EQ(run({"--cancel"}).exitStatus, 3);
  EXPECT_THAT(notifications.shown(), SizeIs(2));

  setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
  EXPECT_EQ(run({"--stop"}).exitStatus, 3);
}

// A script that keeps one output on a terminal must not cause a notification.
TEST_F(LauncherTest, WithATerminalTheMessageIsPrintedThere) {
  const NotificationServer notifications(server.busAddress());
  const FinishedCommand result = runInTerminal("--stop");
  EXPECT_EQ(result.exitStatus, 3);
  EXPECT_THAT(result.output, HasSubstr("not running"));
  EXPECT_THAT(notifications.shown(), IsEmpty());
}

TEST_P(ScriptTest, StatusIsOneLineOfJson) {
  const auto tool = startRecording();
  const FinishedCommand result = run({"--status"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output.find('\n'), result.output.size() - 1);
  const Json status = Json::parse(result.output);
  EXPECT_EQ(status["state"], "recording");
  EXPECT_TRUE(status["elapsedSeconds"].is_number_integer());
  EXPECT_EQ(status["source"], "default");
  EXPECT_EQ(status["format"], "m4a");
  EXPECT_TRUE(std::filesystem::exists(status["outputFile"].get<std::string>()));
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_P(ScriptTest, StopPrintsThePathOfAFileThatIsComplete) {
  const auto tool = startRecording();
  const FinishedCommand result = run({"--stop"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output, onlyFileIn(musicFolder()) + "\n");
  // The ordinary index is written last.
  const DecodedSound sound = decodeSound(onlyFileIn(musicFolder()), server.directory());
  EXPECT_EQ(sound.error, "");
  EXPECT_GT(sound.containerDuration_s, 0);

  const FinishedCommand again = run({"--stop"});
  EXPECT_EQ(again.exitStatus, 3);
  EXPECT_THAT(again.errors, HasSubstr("Nothing is being recorded"));
  EXPECT_EQ(status()["state"], "idle");
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_P(ScriptTest, CancelDeletesTheFileAndTheProgramEnds) {
  const auto tool = startRecording();
  const FinishedCommand result = run({"--cancel"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_THAT(filesIn(musicFolder()), IsEmpty());
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
  // The start notification is still shown.
  EXPECT_TRUE(endsByItself(*tool));
  EXPECT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
}

TEST_P(ScriptTest, SecondStartIsAClickAndExitsWithZero) {
  const auto tool = startRecording();
  EXPECT_EQ(run({}).exitStatus, 0);
  ASSERT_TRUE(waitForState("idle"));
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_P(ScriptTest, SignalsSaveTheRecording) {
  int recordings = 0;
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    const auto tool = startRecording(1.0);
    tool->sendSignal(signal);
    ASSERT_TRUE(waitForState("idle")) << signal;
    EXPECT_TRUE(endsAtOnce(*tool)) << signal;
    EXPECT_THAT(filesIn(musicFolder()), testing::SizeIs(++recordings)) << signal;
  }
  for (const std::string& file : filesIn(musicFolder())) {
    const DecodedSound sound = decodeSound(file, server.directory());
    EXPECT_EQ(sound.error, "");
    EXPECT_GT(sound.duration_s(), 0.9);
  }
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
}

TEST_P(ScriptTest, StartsAtTheSameTimeGiveOneInstance) {
  constexpr int kRounds = 12;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::unique_ptr<ChildProcess>> tools;
    for (int i = 0; i < 3; ++i) tools.push_back(start());
    ASSERT_TRUE(waitUntil([&] { return status().is_object(); }, kStepLimit)) << round;
    const auto running = [&] {
      return std::count_if(tools.begin(), tools.end(),
                           [](const auto& tool) { return tool->isRunning(); });
    };
    ASSERT_TRUE(waitUntil([&] { return running() == 1; }, kStepLimit)) << round;
    for (const auto& tool : tools) {
      EXPECT_TRUE(tool->isRunning() ? endsAtOnce(*tool) : testing::AssertionSuccess());
      EXPECT_EQ(tool->waitForExit(kStepLimit), 0);
    }
    const auto names = eventNames();
    EXPECT_EQ(std::count(names.begin(), names.end(), "Launch"), round + 1);
  }
}

TEST_P(ScriptTest, IdentifierAtTheFirstStartRequestsThePreferencesBeforeTheLaunchIsComplete) {
  const auto tool = start({std::string("/suite/") + kToolIdentifier});
  ASSERT_TRUE(waitUntil([&] { return !events().empty(); }, kStepLimit));
  const Json launch = events().front();
  EXPECT_EQ(launch["event"], "Launch");
  EXPECT_EQ(launch["details"], (Json{{"Preferences", true}}));
  // Without a screen there is nothing to wait for, and the exit status says so.
  EXPECT_EQ(tool->waitForExit(kStepLimit), kNoScreen);
  EXPECT_THAT(eventNames(), ElementsAre("Launch", "Quit"));
  EXPECT_THAT(log(), HasSubstr("no screen"));
}

TEST_P(ScriptTest, IdentifierAtASecondStartSavesTheRecording) {
  const auto tool = startRecording();
  EXPECT_EQ(run({kToolIdentifier}).exitStatus, 0);
  ASSERT_TRUE(waitForState("idle"));
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  // The preferences had no screen.
  EXPECT_TRUE(endsAtOnce(*tool, kNoScreen));
}

TEST_P(ScriptTest, OtherPathsAreIgnored) {
  const auto tool = start({"/some/song.mp3"});
  ASSERT_TRUE(waitForState("recording"));
  EXPECT_EQ(run({"relative file"}).exitStatus, 0);
  EXPECT_EQ(status()["state"], "recording");
  EXPECT_TRUE(endsAtOnce(*tool));
}

INSTANTIATE_TEST_SUITE_P(Buses, ScriptTest, testing::Values(Bus::kSession, Bus::kNone),
                         [](const auto& bus) {
                           return bus.param == Bus::kSession ? "SessionBus" : "NoBus";
                         });

}  // namespace
}  // namespace e2e
