// SPDX-License-Identifier: MIT
#include "tests/e2e/tool_fixture.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

namespace e2e {

using test_support::ChildProcess;
using test_support::PipeWireControl;
using test_support::PrivatePipeWire;
using test_support::SignalFeed;
using test_support::waitUntil;

namespace {

// A notification is shown for ten seconds, and the program stays as long.
constexpr std::chrono::seconds kOwnEndLimit{25};

void writeFile(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path) << content;
}

}  // namespace

std::string extensionOf(int soundFormat) {
  return soundFormat == kM4a ? "m4a" : "mp3";
}

double secondsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

void waitSeconds(double time_s) {
  const auto begin = Clock::now();
  waitUntil([&] { return secondsBetween(begin, Clock::now()) >= time_s; },
            std::chrono::seconds(static_cast<std::int64_t>(time_s) + 1));
}

ToolFixture::ToolFixture(PrivatePipeWire::Options servers) : server(std::move(servers)) {
  std::filesystem::create_directories(temporaryFolder());
  environment_ = {{"TMPDIR", temporaryFolder()}, {"LC_ALL", "C.UTF-8"}, {"SESSION_MANAGER", ""}};
}

ToolFixture::~ToolFixture() {
  if (HasFailure()) {
    std::fprintf(stderr, "The tool's log:\n%s\nThe servers' log:\n%s\n", log().c_str(),
                 server.log().c_str());
  }
}

void ToolFixture::plugInMicrophone(const PipeWireControl::Properties& properties) {
  control = std::make_unique<PipeWireControl>();
  control->createMicrophone("microphone", properties);
  feed = std::make_unique<SignalFeed>("feed", 2, test_support::tone1000Hz);
  control->link("feed", "microphone");
  control->setDefaultSource("microphone");
}

void ToolFixture::setEnvironment(const std::string& name, const std::string& value) {
  environment_[name] = value;
}

void ToolFixture::writeSettings(const Json& settings) const {
  writeFile(settingsFolder() + "/defaults.json", settings.dump());
}

void ToolFixture::useOutputFolder(const std::string& folder) const {
  writeFile(server.configHome() + "/com.vantrel.korvel/locations.json",
            Json{{kToolIdentifier, folder}}.dump());
}

ChildProcess::Command ToolFixture::toolCommand(const std::vector<std::string>& arguments) const {
  ChildProcess::Command command;
  command.arguments = {RECORD_AUDIO};
  command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
  for (const auto& [name, value] : environment_) {
    command.environment.push_back(name + "=" + value);
  }
  return command;
}

std::unique_ptr<ChildProcess> ToolFixture::start(const std::vector<std::string>& arguments) {
  ChildProcess::Command tool = toolCommand(arguments);
  tool.arguments.insert(tool.arguments.begin(), launcher_.begin(), launcher_.end());
  tool.outputFile = server.directory() + "/tool.log";
  return std::make_unique<ChildProcess>(tool);
}

std::unique_ptr<ChildProcess> ToolFixture::startRecording(double time_s) {
  auto tool = start();
  EXPECT_TRUE(waitForState("recording"));
  waitSeconds(time_s);
  return tool;
}

std::string ToolFixture::log() const {
  return contentsOf(server.directory() + "/tool.log");
}

FinishedCommand ToolFixture::run(const std::vector<std::string>& arguments) {
  const ChildProcess::Command tool = toolCommand(arguments);
  return runToEnd(tool.arguments, tool.environment, server.directory());
}

Json ToolFixture::status() {
  const FinishedCommand result = run({"--status"});
  if (result.exitStatus != 0) return nullptr;
  return Json::parse(result.output, nullptr, false);
}

bool ToolFixture::waitForState(const std::string& state) {
  return waitUntil(
      [&] {
        const Json now = status();
        return now.is_object() && now.value("state", "") == state;
      },
      kStepLimit);
}

testing::AssertionResult ToolFixture::endsByItself(ChildProcess& tool, int exitStatus) {
  const auto code = tool.waitForExit(kOwnEndLimit);
  if (!code) return testing::AssertionFailure() << "it still runs";
  if (*code != exitStatus) return testing::AssertionFailure() << "it ended with " << *code;
  return testing::AssertionSuccess();
}

testing::AssertionResult ToolFixture::endsAtOnce(ChildProcess& tool, int exitStatus) {
  // The first signal asks the program to end, the second does not wait for the notification. A
  // signal that follows too soon merges with the first.
  tool.sendSignal(SIGTERM);
  auto pause = std::chrono::milliseconds(100);
  const bool ended = waitUntil(
      [&] {
        if (tool.waitForExit(pause)) return true;
        tool.sendSignal(SIGTERM);
        pause = std::chrono::seconds(2);
        return false;
      },
      kStepLimit);
  if (!ended) return testing::AssertionFailure() << "it still runs";
  const int code = *tool.waitForExit(std::chrono::milliseconds(0));
  if (code != exitStatus) return testing::AssertionFailure() << "it ended with " << code;
  return testing::AssertionSuccess();
}

std::vector<Json> ToolFixture::events() const {
  std::vector<Json> all;
  std::ifstream lines(server.stateHome() + "/com.vantrel.korvel/events.jsonl");
  for (std::string line; std::getline(lines, line);) all.push_back(Json::parse(line));
  return all;
}

std::vector<std::string> ToolFixture::eventNames() const {
  std::vector<std::string> names;
  for (const Json& event : events()) names.push_back(event.at("event"));
  return names;
}

std::vector<std::string> ToolFixture::filesIn(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string ToolFixture::onlyFileIn(const std::string& folder) {
  const std::vector<std::string> files = filesIn(folder);
  EXPECT_THAT(files, testing::SizeIs(1));
  return files.size() == 1 ? files.front() : "";
}

}  // namespace e2e
