// SPDX-License-Identifier: MIT
#include "tests/e2e/desktop_client.h"
#include "tests/e2e/tool_fixture.h"

// The program as the desktop and the suite see it on the session bus.

namespace e2e {
namespace {

using test_support::waitUntil;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class DesktopBusTest : public ToolFixture {
 protected:
  DesktopBusTest() { plugInMicrophone(); }

  bool waitFor(const std::string& state) {
    return waitUntil([&] { return desktop.status().value("state", "") == state; }, kStepLimit);
  }
  std::unique_ptr<test_support::ChildProcess> startRecording() {
    auto tool = start();
    EXPECT_TRUE(waitUntil(
        [&] {
          const Json status = desktop.status();
          return status.is_object() && status["state"] == "recording";
        },
        kStepLimit));
    return tool;
  }

  DesktopClient desktop{server.busAddress()};
};

TEST_F(DesktopBusTest, ActivateIsTheClick) {
  const auto tool = startRecording();
  EXPECT_EQ(desktop.activate(), "");
  ASSERT_TRUE(waitFor("idle"));
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  EXPECT_EQ(desktop.activate(), "");
  ASSERT_TRUE(waitFor("recording"));
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(DesktopBusTest, InABurstTheNumberOfClicksDecides) {
  const auto tool = startRecording();
  for (const int clicks : {2, 3, 4, 5, 500, 501}) {
    for (int i = 0; i < clicks; ++i) ASSERT_EQ(desktop.activate(), "");
    const bool records = clicks % 2 == 0;
    ASSERT_TRUE(waitFor(records ? "recording" : "idle")) << clicks << " clicks";
    if (records) continue;
    EXPECT_EQ(desktop.activate(), "");
    ASSERT_TRUE(waitFor("recording"));
  }
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(DesktopBusTest, OpenWithTheIdentifierSavesAndOtherUrisAreIgnored) {
  const auto tool = startRecording();
  EXPECT_EQ(desktop.open({"file:///some/song.mp3", "https://example.com/x"}), "");
  EXPECT_EQ(desktop.status()["state"], "recording");
  EXPECT_EQ(desktop.open({std::string("file:///suite/") + kToolIdentifier}), "");
  ASSERT_TRUE(waitFor("idle"));
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  EXPECT_TRUE(endsAtOnce(*tool, kNoScreen)) << "the preferences have none";
}

TEST_F(DesktopBusTest, StopActionAnswersWhenTheFileIsComplete) {
  const auto tool = startRecording();
  EXPECT_EQ(desktop.action("stop"), "");
  EXPECT_EQ(desktop.status()["state"], "idle");
  EXPECT_EQ(desktop.status()["outputFile"], onlyFileIn(musicFolder()));
  EXPECT_NE(desktop.action("stop"), "") << "there is nothing more to stop";
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(DesktopBusTest, CancelActionDeletesTheFile) {
  const auto tool = startRecording();
  EXPECT_EQ(desktop.action("cancel"), "");
  EXPECT_THAT(filesIn(musicFolder()), IsEmpty());
  EXPECT_THAT(filesIn(temporaryFolder()), IsEmpty());
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(DesktopBusTest, PreferencesActionSavesTheRecording) {
  const auto tool = startRecording();
  EXPECT_EQ(desktop.action("preferences"), "");
  ASSERT_TRUE(waitFor("idle"));
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  EXPECT_TRUE(endsAtOnce(*tool, kNoScreen)) << "the preferences have none";
}

TEST_F(DesktopBusTest, QuitActionSavesTheRecordingAndEndsTheProgram) {
  const auto tool = startRecording();
  EXPECT_EQ(desktop.action("quit"), "");
  EXPECT_TRUE(endsByItself(*tool));
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  EXPECT_FALSE(desktop.isToolOnBus());
  EXPECT_THAT(eventNames(), ElementsAre("Launch", "Start", "Stop", "Quit"));
}

TEST_F(DesktopBusTest, UnknownActionIsAnError) {
  const auto tool = startRecording();
  EXPECT_THAT(desktop.action("explode"), HasSubstr("explode"));
  EXPECT_EQ(desktop.status()["state"], "recording");
  EXPECT_TRUE(endsAtOnce(*tool));
}

TEST_F(DesktopBusTest, ToolDataFollowsTheRecordingAndAnnouncesEveryChange) {
  const auto tool = startRecording();
  EXPECT_EQ(desktop.toolData("ToolStatus"), "1");
  EXPECT_EQ(desktop.toolData("MenuIcon"), "'MenuIconOn'");
  ASSERT_TRUE(waitUntil([&] { return desktop.toolData("MenuText") == "'00:02'"; }, kStepLimit));
  EXPECT_EQ(desktop.action("stop"), "");
  EXPECT_EQ(desktop.toolData("ToolStatus"), "0");
  EXPECT_EQ(desktop.toolData("MenuIcon"), "'MenuIcon'");
  EXPECT_EQ(desktop.toolData("MenuText"), "''");
  EXPECT_EQ(desktop.toolData("ToolIcon"), "''");
  EXPECT_NE(desktop.setToolData("MenuText", "mine"), "") << "it is read-only";

  // The icon blinks once per counted second.
  EXPECT_THAT(desktop.announced("MenuText"), testing::IsSupersetOf({"'00:01'", "'00:02'", "''"}));
  EXPECT_THAT(desktop.announced("ToolIcon"), testing::IsSupersetOf({"'KorvelIconOn'", "''"}));
  EXPECT_THAT(desktop.announced("MenuIcon"), Contains("'MenuIcon'"));
  EXPECT_THAT(desktop.announced("ToolStatus"), Contains("0"));
  EXPECT_TRUE(endsAtOnce(*tool));
}

// As typed by hand.
TEST_F(DesktopBusTest, CommandLineToolsOfTheBusReachIt) {
  const auto tool = startRecording();
  const auto gdbus = [&](const std::vector<std::string>& rest) {
    std::vector<std::string> command{"gdbus",
                                     "call",
                                     "--session",
                                     "--dest",
                                     "com.vantrel.korvel.RecordAudio",
                                     "--object-path",
                                     "/com/vantrel/korvel/RecordAudio",
                                     "--method"};
    command.insert(command.end(), rest.begin(), rest.end());
    return runToEnd(command, {}, server.directory());
  };
  EXPECT_THAT(gdbus({"org.freedesktop.DBus.Introspectable.Introspect"}).output,
              testing::AllOf(HasSubstr("org.freedesktop.Application"),
                             HasSubstr("com.vantrel.korvel.ToolData1")));
  EXPECT_EQ(gdbus({"org.freedesktop.Application.Activate", "{}"}).exitStatus, 0);
  ASSERT_TRUE(waitFor("idle"));
  EXPECT_NE(onlyFileIn(musicFolder()), "");
  EXPECT_TRUE(endsAtOnce(*tool));
}

}  // namespace
}  // namespace e2e
