// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/child_process.h"

namespace test_support {

// Waits until `condition` holds; false when it did not within `limit`. Looks every millisecond.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(5));

// Whether somebody listens on the local socket. Throws std::runtime_error when the path is too
// long.
bool socketAnswers(const std::string& path);

// A whole sound server of the test's own: PipeWire, WirePlumber and a session bus as children, with
// their own run-time, configuration, state and home folders, all removed at the end. No hardware is
// looked for; make devices with PipeWireControl.
//
// While it lives, this process's environment points at it too (and at no system bus), so build it
// before the first thread and destroy it after the last. A test that takes longer than its watchdog
// allows is aborted, and the children with it.
class PrivatePipeWire {
 public:
  struct Options {
    bool sessionManager = true;
    bool sessionBus = true;
    // (file name, content), put into pipewire.conf.d and client-rt.conf.d.
    std::vector<std::pair<std::string, std::string>> pipewireDropIns;
    std::vector<std::pair<std::string, std::string>> clientDropIns;
    std::vector<std::string> environment;  // "KEY=value" for the servers
    bool startDaemon = true;               // false: only the folders, the bus and the environment
    std::chrono::seconds watchdog{90};

    // The folders, the environment and the bus, without a sound server.
    static Options busOnly() {
      Options options;
      options.startDaemon = false;
      return options;
    }
  };

  // Returns when all servers answer. Throws std::runtime_error, with the servers' log, when they do
  // not.
  PrivatePipeWire();
  explicit PrivatePipeWire(Options options);
  ~PrivatePipeWire();
  PrivatePipeWire(const PrivatePipeWire&) = delete;
  PrivatePipeWire& operator=(const PrivatePipeWire&) = delete;

  [[nodiscard]] const std::string& directory() const { return directory_; }
  [[nodiscard]] std::string configHome() const { return directory_ + "/config"; }
  [[nodiscard]] std::string stateHome() const { return directory_ + "/state"; }
  [[nodiscard]] std::string home() const { return directory_ + "/home"; }
  [[nodiscard]] std::string busAddress() const { return "unix:path=" + directory_ + "/bus"; }
  // Services that the bus may start: put .service files there before their first use.
  [[nodiscard]] std::string busServices() const { return directory_ + "/services"; }
  // For programs under test: all that makes them use these servers, as "KEY=value".
  [[nodiscard]] std::vector<std::string> environment() const;
  // What the servers said.
  [[nodiscard]] std::string log() const;

  ChildProcess& daemon() { return *daemon_; }
  ChildProcess& sessionManager() { return *sessionManager_; }
  // The daemon dies at once, as by SIGKILL; the session manager is ended too.
  void killDaemon();
  // Starts what killDaemon() ended (or what was not started) and waits until it answers.
  void startDaemon();

 private:
  void writeConfiguration();
  void startBus();
  void watch();

  Options options_;
  std::string directory_;
  std::vector<std::pair<std::string, std::string>> savedEnvironment_;
  std::vector<std::string> unsetEnvironment_;
  std::unique_ptr<ChildProcess> bus_;
  std::unique_ptr<ChildProcess> daemon_;
  std::unique_ptr<ChildProcess> sessionManager_;

  std::mutex mutex_;
  std::condition_variable finishedCondition_;
  bool finished_ = false;
  std::thread watchdog_;
};

}  // namespace test_support
