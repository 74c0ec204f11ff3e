// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "driver/unique_fd.h"

namespace loopback {

// A second process that watches the driver. If the driver dies without a goodbye, the guard becomes
// the driver, so that the user's default output is put back even then. Until that moment it only
// waits on a socket. The driver notices the guard's death on the same socket.
class GuardProcess {
 public:
  // `driverArguments`: the arguments of the successor, without the program name. `takeover`: how
  // often the driver has died in quick succession; the guard gives up after a few times.
  GuardProcess(std::vector<std::string> driverArguments, unsigned takeover);
  // Says goodbye and waits, at most a second, until the guard is gone.
  ~GuardProcess();
  GuardProcess(const GuardProcess&) = delete;
  GuardProcess& operator=(const GuardProcess&) = delete;

  // False, with a message on stderr, when no process could be started.
  bool start();
  // Readable when the guard has died; -1 when there is none.
  [[nodiscard]] int fd() const { return socket_.get(); }
  // Cleans up after a guard that died. False when it died so soon that a new one is not worth it.
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

// The guard's main function, on the socket that start() passed on. Returns the exit code, or
// becomes the driver and does not return.
int guardMain(const std::vector<std::string>& driverArguments, unsigned takeover);

// Closes every descriptor from `first` up.
void closeDescriptorsFrom(int first);

}  // namespace loopback
