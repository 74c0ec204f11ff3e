// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "driver/loopback_protocol.h"
#include "tests/support/child_process.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"

namespace driver_test {

inline constexpr char kHeadphones[] = "headphones";  // the session manager's own preference
inline constexpr char kSpeaker[] = "speaker";

// A sound server with two outputs, whose daemon has started the driver as it does on the user's
// computer: from a drop-in.
class DriverTest : public testing::Test {
 protected:
  DriverTest();
  // Without: the daemon starts no driver.
  explicit DriverTest(bool daemonStartsDriver);
  ~DriverTest() override;

  test_support::PipeWireControl& control() { return *control_; }
  test_support::PrivatePipeWire& server() { return *server_; }

  static std::unique_ptr<test_support::ChildProcess> startDriver();
  // Whether that process announces itself.
  bool serves(const test_support::ChildProcess& driver);
  // Asks for the device and waits until it is there.
  std::unique_ptr<test_support::ChildProcess> startAsker();
  // For a lone asker: takes its request back, or makes it anew, and waits until that is known.
  void takeBack(test_support::ChildProcess& asker);
  void askAgain(test_support::ChildProcess& asker);
  // What the driver answers to those who ask; empty when there is no driver.
  std::string granted();
  // Whether the answer to that request of that asker is there.
  bool isGranted(const test_support::ChildProcess& asker, int number);
  // How many clients hold that request.
  std::ptrdiff_t requestsOf(const std::string& value);
  // What a recorder does once the device is there.
  void makeLoopbackTheDefault() { control().setDefaultSink(loopback::kLoopbackDeviceUID); }

  // The process that announces itself as the driver; null when there is none.
  std::optional<pid_t> driverPid();
  [[nodiscard]] bool deviceIsShown() { return control().hasNode(loopback::kLoopbackDeviceUID); }
  [[nodiscard]] bool deviceIsHidden() { return !deviceIsShown(); }
  // Until the session manager has made of the shown device what it will, and the driver of that.
  bool waitUntilDeviceIsTakenNoteOf();
  // The properties of the shown device, as the registry and the node itself give them.
  std::string dumpOfDevice();
  // The names of the devices that are used and that are configured; empty when there is none.
  std::string usedDefault();
  std::string configuredDefault();
  bool waitForUsedDefault(const std::string& name);
  bool waitForConfiguredDefault(const std::string& name);

  // Plays until the object is gone, wherever the default output leads, or to the sink named
  // whenever that is there.
  std::unique_ptr<test_support::ChildProcess> playSomething(const std::string& sink = "");
  // The sinks that it is heard on.
  std::vector<std::string> sinksHeardOn();
  bool waitUntilHeardOn(const std::string& sink);

 private:
  void connect();
  std::unique_ptr<test_support::PrivatePipeWire> server_;
  std::unique_ptr<test_support::PipeWireControl> control_;
};

// The same, with the driver left to the test.
class DriverlessTest : public DriverTest {
 protected:
  DriverlessTest() : DriverTest(false) {}
};

// The output of a program that must succeed.
std::string outputOf(const std::string& command);

// The guard of a driver; null when it has none, or not yet.
std::optional<pid_t> guardOf(pid_t driver);
// The same, waiting for one that begins; throws when none does.
pid_t awaitGuardOf(pid_t driver);
// Zombies count as dead.
bool isAlive(pid_t pid);

}  // namespace driver_test
