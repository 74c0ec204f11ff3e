// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

// A child process that never outlives the test: it is killed with the object, and by the kernel
// when the test process dies. One thread at a time; start it on a thread that lives as long as the
// child.
class ChildProcess {
 public:
  struct Command {
    std::vector<std::string> arguments;    // starts with the program, looked up in PATH
    std::vector<std::string> environment;  // "KEY=value", added to the test's own environment
    std::string outputFile;                // receives stdout and stderr; empty: the test's own
  };

  // Throws std::runtime_error when the child cannot be forked; a missing program ends with exit
  // code 127.
  explicit ChildProcess(const Command& command);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  void sendSignal(int number) const;
  [[nodiscard]] bool isRunning();
  // The exit code, or 128 + the signal that ended it; null when it still runs after `limit`.
  std::optional<int> waitForExit(std::chrono::milliseconds limit);
  // Sends SIGTERM, and SIGKILL if it still runs after two seconds. Idempotent.
  void terminate();
  void kill();

 private:
  pid_t pid_ = -1;
  int processFd_ = -1;  // becomes readable when the child ends
  std::optional<int> exitCode_;
};

}  // namespace test_support
