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

// A sound server with two outputs, whose daemon has started the driver as on the user's computer:
// from a drop-in.
class DriverTest : public testing::Test {
 protected:
  DriverTest();
  // If false, the daemon starts no driver.
  explicit DriverTest(bool daemonStartsDriver);
  ~DriverTest() override;

  test_support::PipeWireControl& control() { return *control_; }
  test_support::PrivatePipeWire& server() { return *server_; }

  static std::unique_ptr<test_support::ChildProcess> startDriver();
  // Whether that process announces itself as the driver.
  bool serves(const test_support::ChildProcess& driver);
  // Asks for the device and waits until it is there.
  std::unique_ptr<test_support::ChildProcess> startAsker();
  // For a single asker: withdraws its request, or makes it again, and waits until the daemon has
  // it.
  void takeBack(test_support::ChildProcess& asker);
  void askAgain(test_support::ChildProcess& asker);
  // The driver's answers; empty when there is no driver.
  std::string granted();
  // Whether that request of that asker has been answered.
  bool isGranted(const test_support::ChildProcess& asker, int number);
  // The number of clients with that request.
  std::ptrdiff_t requestsOf(const std::string& value);
  // As a recorder does once the device is there.
  void makeLoopbackTheDefault() { control().setDefaultSink(loopback::kLoopbackDeviceUID); }

  // The process that announces itself as the driver; null when there is none.
  std::optional<pid_t> driverPid();
  [[nodiscard]] bool deviceIsShown() { return control().hasNode(loopback::kLoopbackDeviceUID); }
  [[nodiscard]] bool deviceIsHidden() { return !deviceIsShown(); }
  // Waits until the session manager has handled the shown device, and the driver the result.
  bool waitUntilDeviceIsTakenNoteOf();
  // The properties of the shown device, from the registry and from the node itself.
  std::string dumpOfDevice();
  // The names of the used and of the configured default device; empty when there is none.
  std::string usedDefault();
  std::string configuredDefault();
  bool waitForUsedDefault(const std::string& name);
  bool waitForConfiguredDefault(const std::string& name);

  // Plays until the object is destroyed, to the default output, or to the named sink whenever that
  // is there.
  std::unique_ptr<test_support::ChildProcess> playSomething(const std::string& sink = "");
  // The sinks on which it is heard.
  std::vector<std::string> sinksHeardOn();
  bool waitUntilHeardOn(const std::string& sink);

 private:
  void connect();
  std::unique_ptr<test_support::PrivatePipeWire> server_;
  std::unique_ptr<test_support::PipeWireControl> control_;
};

// The same, but the test starts the driver.
class DriverlessTest : public DriverTest {
 protected:
  DriverlessTest() : DriverTest(false) {}
};

// The output of a command that must succeed.
std::string outputOf(const std::string& command);

// The guard of a driver; null when it has none, or not yet.
std::optional<pid_t> guardOf(pid_t driver);
// The same, but waits for a guard to start; throws when none does.
pid_t awaitGuardOf(pid_t driver);
// Zombies count as dead.
bool isAlive(pid_t pid);

}  // namespace driver_test
