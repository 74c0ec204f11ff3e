// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/e2e/finished_command.h"
#include "tests/support/child_process.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/signal_feed.h"

namespace e2e {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;

// The values of the setting "SoundFormat".
inline constexpr int kM4a = 0;
inline constexpr int kMp3 = 1;
// The file name extension of the format.
std::string extensionOf(int soundFormat);

// The exit status of a run that had something to show but no screen.
inline constexpr int kNoScreen = 4;

inline constexpr const char* kToolIdentifier = "a5f597ea-d3f3-4347-bbe6-344e240acc7e";
// The built program on a private desktop: message bus, sound server, settings and folders. It is
// used from other processes, as a user or a script would.
class ToolFixture : public testing::Test {
 protected:
  explicit ToolFixture(test_support::PrivatePipeWire::Options servers = {});
  ~ToolFixture() override;

  // A default microphone that plays 1 kHz at half of full scale on all channels.
  void plugInMicrophone(const test_support::PipeWireControl::Properties& properties = {});

  void writeSettings(const Json& settings) const;
  void useOutputFolder(const std::string& folder) const;
  // For every program started from then on.
  void setEnvironment(const std::string& name, const std::string& value);
  // A command line prefix for start().
  void runThrough(std::vector<std::string> launcher) { launcher_ = std::move(launcher); }

  // Starts the tool; its output goes to log().
  std::unique_ptr<test_support::ChildProcess> start(const std::vector<std::string>& arguments = {});
  // Starts it, waits until it records, and lets it record that long.
  std::unique_ptr<test_support::ChildProcess> startRecording(double time_s = 0.0);
  // The output so far of the tool started by start().
  [[nodiscard]] std::string log() const;

  // Runs the program to its end, as from a script.
  FinishedCommand run(const std::vector<std::string>& arguments);
  // What --status prints; null when nothing runs.
  Json status();
  bool waitForState(const std::string& state);

  // The tool ends by itself, within the time of its notification and a little more.
  static testing::AssertionResult endsByItself(test_support::ChildProcess& tool,
                                               int exitStatus = 0);
  // Ends the tool without that time. Its status is 1 if it could not save a recording.
  static testing::AssertionResult endsAtOnce(test_support::ChildProcess& tool, int exitStatus = 0);

  // The usage events, oldest first.
  [[nodiscard]] std::vector<Json> events() const;
  [[nodiscard]] std::vector<std::string> eventNames() const;

  [[nodiscard]] std::string musicFolder() const { return server.home() + "/Music"; }
  [[nodiscard]] std::string temporaryFolder() const { return server.directory() + "/temporary"; }
  [[nodiscard]] std::string settingsFolder() const {
    return server.configHome() + "/com.vantrel.korvel.RecordAudio";
  }
  // The one recording in `folder`; empty, and a failure of the test, when there is not exactly one.
  static std::string onlyFileIn(const std::string& folder);
  static std::vector<std::string> filesIn(const std::string& folder);

  test_support::PrivatePipeWire server;
  std::unique_ptr<test_support::PipeWireControl> control;
  std::unique_ptr<test_support::SignalFeed> feed;

  // The program with the arguments, in the environment set here.
  [[nodiscard]] test_support::ChildProcess::Command toolCommand(
      const std::vector<std::string>& arguments) const;

 private:
  std::map<std::string, std::string> environment_;
  std::vector<std::string> launcher_;
};

double secondsBetween(Clock::time_point from, Clock::time_point to);
void waitSeconds(double time_s);

}  // namespace e2e
