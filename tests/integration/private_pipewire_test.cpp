// SPDX-License-Identifier: MIT
#include "tests/support/private_pipewire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/signal_feed.h"

namespace test_support {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(ChildProcess, ReportsExitCodesAndSignals) {
  ChildProcess exits({{"sh", "-c", "exit 3"}, {}, {}});
  EXPECT_EQ(exits.waitForExit(std::chrono::seconds(5)), 3);
  ChildProcess runs({{"cat", "/dev/zero"}, {}, "/dev/null"});
  EXPECT_TRUE(runs.isRunning());
  runs.terminate();
  EXPECT_EQ(runs.waitForExit(std::chrono::seconds(5)), 128 + SIGTERM);
  ChildProcess missing({{"no-such-program"}, {}, {}});
  EXPECT_EQ(missing.waitForExit(std::chrono::seconds(5)), 127);
}

TEST(PrivatePipeWire, HasNoDevicesOfTheMachine) {
  PrivatePipeWire server;
  PipeWireControl control;
  const auto nodes = control.objects("Node");
  EXPECT_FALSE(nodes.empty()) << "it has drivers of its own";
  for (const auto& node : nodes) {
    EXPECT_FALSE(node.contains("media.class")) << node.at("node.name");
  }
}

// A machine without devices would not reveal a search for them; the modules loaded for the search
// do.
TEST(PrivatePipeWire, SearchesNoDevicesAndNoLoginManager) {
  PrivatePipeWire server;
  PipeWireControl control;
  control.createMicrophone("mic");
  control.setDefaultSource("mic");  // by now the session manager has loaded its modules
  const std::string maps = "/proc/" + std::to_string(server.sessionManager().pid()) + "/maps";
  std::stringstream loaded;
  loaded << std::ifstream(maps).rdbuf();
  EXPECT_THAT(loaded.str(), HasSubstr("libwireplumber-module-default-nodes"));
  for (const char* unwanted : {"libspa-alsa", "libspa-bluez5", "libspa-v4l2", "libspa-libcamera",
                               "libwireplumber-module-logind", "module-reserve-device"}) {
    EXPECT_THAT(loaded.str(), Not(HasSubstr(unwanted)));
  }
}

TEST(PrivatePipeWire, ChoosesTheMicrophoneThatAMixerChooses) {
  PrivatePipeWire server;
  PipeWireControl control;
  control.createMicrophone("mic.one");
  control.createMicrophone("mic.two");
  control.setDefaultSource("mic.two");
  EXPECT_NE(control.metadata("default.audio.source").value_or("").find("mic.two"),
            std::string::npos);
  control.setDefaultSource("mic.one");
  EXPECT_NE(control.metadata("default.audio.source").value_or("").find("mic.one"),
            std::string::npos);
}

// The daemon reports no change while it sends all keys to another client.
TEST(PrivatePipeWire, HearsOfItsChoiceWhileOthersAreNotified) {
  PrivatePipeWire server;
  PipeWireControl control;
  control.createSink("sink.one");
  control.createSink("sink.two");
  std::atomic<bool> isOver = false;
  std::thread others([&] {
    while (!isOver) PipeWireControl().synchronize();
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_NO_THROW(control.setDefaultSink(i % 2 == 0 ? "sink.one" : "sink.two")) << i;
  }
  isOver = true;
  others.join();
}

TEST(PrivatePipeWire, PlaysASignalIntoAMicrophone) {
  PrivatePipeWire server;
  PipeWireControl control;
  control.createMicrophone("mic");
  SignalFeed feed("feed", 2, frameNumber);
  control.link(feed.nodeName(), "mic");
  EXPECT_TRUE(waitUntil([&] { return feed.framesPlayed() > 4800; })) << server.log();
  control.destroyNode("mic");
  EXPECT_FALSE(control.hasNode("mic"));
}

TEST(PrivatePipeWire, SurvivesTheDeathOfItsDaemonAndStartsAnother) {
  PrivatePipeWire server;
  server.killDaemon();
  EXPECT_FALSE(server.daemon().isRunning());
  EXPECT_THROW(PipeWireControl(), std::runtime_error);
  server.startDaemon();
  PipeWireControl control;
  control.createSink("sink");
  EXPECT_TRUE(control.hasNode("sink"));
}

TEST(PrivatePipeWire, LeavesNothingBehind) {
  std::string directory;
  pid_t daemon = 0;
  const auto runtimeDirectory = [] {
    const char* value = std::getenv("XDG_RUNTIME_DIR");
    return std::string(value == nullptr ? "" : value);
  };
  const std::string before = runtimeDirectory();
  {
    PrivatePipeWire server;
    directory = server.directory();
    daemon = server.daemon().pid();
    EXPECT_EQ(runtimeDirectory(), directory);
  }
  EXPECT_FALSE(std::filesystem::exists(directory));
  EXPECT_EQ(kill(daemon, 0), -1);
  EXPECT_EQ(runtimeDirectory(), before);
}

}  // namespace
}  // namespace test_support
