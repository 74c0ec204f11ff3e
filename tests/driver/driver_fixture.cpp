// SPDX-License-Identifier: MIT
#include "tests/driver/driver_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace driver_test {

using test_support::ChildProcess;
using test_support::PipeWireControl;
using test_support::PrivatePipeWire;
using test_support::waitUntil;

namespace {

constexpr char kPlayer[] = "pw-cat";

PrivatePipeWire::Options options(bool daemonStartsDriver) {
  PrivatePipeWire::Options result;
  if (daemonStartsDriver) {
    result.pipewireDropIns = {{"90-loopback.conf", std::string("context.exec = [ { path = \"") +
                                                       LOOPBACK_DRIVER + "\" args = \"\" } ]\n"}};
  }
  return result;
}

std::string nameIn(const std::optional<std::string>& json) {
  if (!json) return {};
  const auto colon = json->find(':');
  const auto begin = json->find('"', colon);
  const auto end = json->find('"', begin + 1);
  if (begin == std::string::npos || end == std::string::npos) return {};
  return json->substr(begin + 1, end - begin - 1);
}

// A minute of silence.
std::string writeSilence(const std::string& directory) {
  std::string path = directory + "/silence.wav";
  outputOf("sox -n -r 48000 -c 2 -b 16 " + path + " trim 0 60");
  return path;
}

}  // namespace

DriverTest::DriverTest() : DriverTest(true) {}

DriverTest::DriverTest(bool daemonStartsDriver)
    : server_(std::make_unique<PrivatePipeWire>(options(daemonStartsDriver))),
      control_(std::make_unique<PipeWireControl>()) {
  control().createSink(kHeadphones, {{"priority.session", "900"}});
  control().createSink(kSpeaker, {{"priority.session", "500"}});
  if (!waitForUsedDefault(kHeadphones)) throw std::runtime_error("no default output");
  if (daemonStartsDriver && !waitUntil([this] { return driverPid().has_value(); })) {
    throw std::runtime_error("the driver does not announce itself:\n" + server().log());
  }
}

DriverTest::~DriverTest() {
  const auto driver = driverPid();
  const auto guard = driver ? guardOf(*driver) : std::nullopt;
  if (HasFailure()) std::fprintf(stderr, "The servers' log:\n%s\n", server().log().c_str());
  control_.reset();
  server_.reset();
  for (const auto& pid : {driver, guard}) {
    if (pid && !waitUntil([&] { return !isAlive(*pid); })) {
      ADD_FAILURE() << "process " << *pid << " outlived its daemon";
      kill(*pid, SIGKILL);
    }
  }
}

std::unique_ptr<ChildProcess> DriverTest::startDriver() {
  return std::make_unique<ChildProcess>(ChildProcess::Command{{LOOPBACK_DRIVER}, {}, {}});
}

bool DriverTest::serves(const ChildProcess& driver) {
  const auto clients = control().clientProperties();
  return std::any_of(clients.begin(), clients.end(), [&](const auto& client) {
    return client.contains(loopback::kLoopbackDriverKey) &&
           client.at("pipewire.sec.pid") == std::to_string(driver.pid());
  });
}

std::unique_ptr<ChildProcess> DriverTest::startAsker() {
  auto asker = std::make_unique<ChildProcess>(ChildProcess::Command{{LOOPBACK_ASKER}, {}, {}});
  EXPECT_TRUE(waitUntil([this] { return deviceIsShown(); }));
  return asker;
}

void DriverTest::takeBack(ChildProcess& asker) {
  asker.sendSignal(SIGUSR1);
  EXPECT_TRUE(waitUntil([this] { return requestsOf(loopback::kLoopbackRequestHideText) == 1; }));
}

void DriverTest::askAgain(ChildProcess& asker) {
  asker.sendSignal(SIGUSR2);
  EXPECT_TRUE(waitUntil([this] { return deviceIsShown(); }));
}

std::string DriverTest::granted() {
  for (const auto& client : control().clientProperties()) {
    const auto answer = client.find(loopback::kLoopbackGrantedKey);
    if (answer != client.end()) return answer->second;
  }
  return {};
}

bool DriverTest::isGranted(const ChildProcess& asker, int number) {
  for (const auto& client : control().clientProperties()) {
    if (client.at("pipewire.sec.pid") != std::to_string(asker.pid())) continue;
    const std::string answer = client.at("object.id") + ":" + std::to_string(number);
    return (" " + granted() + " ").find(" " + answer + " ") != std::string::npos;
  }
  return false;
}

std::ptrdiff_t DriverTest::requestsOf(const std::string& value) {
  const auto clients = control().clientProperties();
  return std::count_if(clients.begin(), clients.end(), [&](const auto& client) {
    const auto request = client.find(loopback::kLoopbackRequestKey);
    return request != client.end() && request->second == value;
  });
}

std::optional<pid_t> DriverTest::driverPid() {
  for (const auto& client : control().clientProperties()) {
    const auto version = client.find(loopback::kLoopbackDriverKey);
    if (version == client.end() || version->second.empty()) continue;
    const pid_t process = std::stoi(client.at("pipewire.sec.pid"));
    if (process != getpid()) return process;  // a test may claim to be the driver
  }
  return std::nullopt;
}

bool DriverTest::waitUntilDeviceIsTakenNoteOf() {
  const bool hasPorts = waitUntil([this] {
    const std::string device = std::to_string(control().nodeId(loopback::kLoopbackDeviceUID));
    const auto ports = control().objects("Port");
    return std::any_of(ports.begin(), ports.end(), [&](const auto& port) {
      const auto node = port.find("node.id");
      return node != port.end() && node->second == device;
    });
  });
  outputOf("wpctl status && wpctl status");
  return hasPorts;
}

std::string DriverTest::dumpOfDevice() {
  return outputOf("pw-dump " + std::to_string(control().nodeId(loopback::kLoopbackDeviceUID)));
}

std::string DriverTest::usedDefault() {
  return nameIn(control().metadata(loopback::kDefaultSinkKey));
}

std::string DriverTest::configuredDefault() {
  return nameIn(control().metadata(loopback::kConfiguredDefaultSinkKey));
}

bool DriverTest::waitForUsedDefault(const std::string& name) {
  return waitUntil([&] { return usedDefault() == name; });
}

bool DriverTest::waitForConfiguredDefault(const std::string& name) {
  return waitUntil([&] { return configuredDefault() == name; });
}

std::unique_ptr<ChildProcess> DriverTest::playSomething(const std::string& sink) {
  std::vector<std::string> command = {kPlayer, "-p"};
  if (!sink.empty()) command.insert(command.end(), {"--target", sink});
  command.push_back(writeSilence(server().directory()));
  return std::make_unique<ChildProcess>(ChildProcess::Command{command, {}, {}});
}

std::vector<std::string> DriverTest::sinksHeardOn() {
  std::map<std::string, std::string> names;
  for (auto& node : control().objects("Node")) {
    names[node["object.id"]] = node["node.name"];
  }
  std::vector<std::string> sinks;
  for (auto& link : control().objects("Link")) {
    if (names[link["link.output.node"]] != kPlayer) continue;
    const std::string sink = names[link["link.input.node"]];
    if (std::find(sinks.begin(), sinks.end(), sink) == sinks.end()) sinks.push_back(sink);
  }
  return sinks;
}

bool DriverTest::waitUntilHeardOn(const std::string& sink) {
  return waitUntil([&] { return sinksHeardOn() == std::vector<std::string>{sink}; });
}

std::string outputOf(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string output;
  std::array<char, 4096> block{};
  for (std::size_t count; (count = fread(block.data(), 1, block.size(), pipe)) > 0;) {
    output.append(block.data(), count);
  }
  if (pclose(pipe) != 0) throw std::runtime_error(command + " failed:\n" + output);
  return output;
}

std::optional<pid_t> guardOf(pid_t driver) {
  const std::string task = "/proc/" + std::to_string(driver) + "/task/" + std::to_string(driver);
  std::ifstream children(task + "/children");
  for (pid_t child; children >> child;) {
    std::string name;
    std::ifstream("/proc/" + std::to_string(child) + "/comm") >> name;
    if (name == "loopback-guard") return child;
  }
  return std::nullopt;
}

pid_t awaitGuardOf(pid_t driver) {
  std::optional<pid_t> guard;
  if (!waitUntil([&] { return (guard = guardOf(driver)).has_value(); })) {
    throw std::runtime_error("the driver has no guard");
  }
  return *guard;
}

bool isAlive(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return false;
  return line[line.rfind(')') + 2] != 'Z';
}

}  // namespace driver_test
