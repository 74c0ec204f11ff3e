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

// Waits until `condition` holds; false when it did not within `limit`. Checks every millisecond.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(5));

// Whether somebody listens on the local socket. Throws std::runtime_error when the path is too
// long.
bool socketAnswers(const std::string& path);

// A complete private sound server: PipeWire, WirePlumber and a session bus as child processes, with
// their own runtime, configuration, state and home folders, all removed at the end. It uses no
// hardware; create devices with PipeWireControl.
//
// While it lives, this process's environment points at it, too (and at no system bus). So create it
// before the first thread and destroy it after the last. A watchdog aborts a test that takes too
// long, together with the children.
class PrivatePipeWire {
 public:
  struct Options {
    bool sessionManager = true;
    bool sessionBus = true;
    // (file name, content), put into pipewire.conf.d and client-rt.conf.d.
    std::vector<std::pair<std::string, std::string>> pipewireDropIns;
    std::vector<std::pair<std::string, std::string>> clientDropIns;
    std::vector<std::string> environment;        // "KEY=value" for the servers
    std::vector<std::string> daemonEnvironment;  // and for PipeWire alone
    bool startDaemon = true;  // false: only the folders, the bus and the environment
    std::chrono::seconds watchdog{90};

    // The folders, the environment and the bus, without a sound server.
    static Options busOnly() {
      Options options;
      options.startDaemon = false;
      return options;
    }
  };

  // Returns when all servers answer. Otherwise throws std::runtime_error with the servers' log.
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
  // The folder of services that the bus may start: put .service files there before their first use.
  [[nodiscard]] std::string busServices() const { return directory_ + "/services"; }
  // For programs under test: the variables that make them use these servers, as "KEY=value".
  [[nodiscard]] std::vector<std::string> environment() const;
  // The servers' output.
  [[nodiscard]] std::string log() const;

  ChildProcess& daemon() { return *daemon_; }
  ChildProcess& sessionManager() { return *sessionManager_; }
  // Kills the daemon with SIGKILL and ends the session manager.
  void killDaemon();
  // Starts the servers again after killDaemon() (or for the first time) and waits until they
  // answer.
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
