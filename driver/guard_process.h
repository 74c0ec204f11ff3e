// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "driver/unique_fd.h"

namespace loopback {

// A second process that watches the driver and becomes the driver when that dies without having
// said goodbye, so that the user's default output is put back even then. Until that moment it only
// waits on a socket. The driver in turn notices the guard's death on the same socket.
class GuardProcess {
 public:
  // `driverArguments`: what the successor is started with (without the program name).
  // `takeover`: how often the driver was succeeded in quick order; the guard gives up after a few.
  GuardProcess(std::vector<std::string> driverArguments, unsigned takeover);
  // Says goodbye and waits, at most a second, until the guard is gone.
  ~GuardProcess();
  GuardProcess(const GuardProcess&) = delete;
  GuardProcess& operator=(const GuardProcess&) = delete;

  // False, with a message on stderr, when no process could be started.
  bool start();
  // Readable when the guard has died; -1 when there is none.
  [[nodiscard]] int fd() const { return socket_.get(); }
  // Clears away the guard that died. False when it died so soon that a new one is not worth it.
  bool bury();

 private:
  std::vector<std::string> driverArguments_;
  unsigned takeover_;
  UniqueFd socket_;
  pid_t pid_ = -1;
  std::chrono::steady_clock::time_point started_;
};

inline constexpr char kGuardOption[] = "--guard";
inline constexpr char kTakeoverOption[] = "--takeover";

// The guard's whole life, on the socket that start() left it. Returns the exit code, or does not
// return but becomes the driver.
int guardMain(const std::vector<std::string>& driverArguments, unsigned takeover);

// Closes every descriptor from `first` up.
void closeDescriptorsFrom(int first);

}  // namespace loopback
