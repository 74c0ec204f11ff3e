// SPDX-License-Identifier: MIT
#pragma once

#include <spa/utils/dict.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace loopback {

// Distinguishes clients of the daemon that run a certain program from those that only claim to.
//
// A client's own properties prove nothing: any client can set any property. But the daemon itself
// puts the process and the user at the other end of the socket into every client's properties
// (pipewire.sec.pid, pipewire.sec.uid) and lets no client change them. The kernel then tells which
// program the process runs.
class VouchedProgram {
 public:
  // `path`: the program's file. A client runs the program if it runs that file, or one that used to
  // be at that path: a program that is replaced while it runs is still the same.
  explicit VouchedProgram(std::string path);
  // The program of this process.
  [[nodiscard]] static VouchedProgram ownProgram();

  // Whether the client with these properties is a process of this user that runs the program. False
  // if the process cannot be examined.
  [[nodiscard]] bool isRunBy(const spa_dict& clientProperties) const;

 private:
  [[nodiscard]] bool isRunBy(pid_t process) const;

  std::string path_;
};

// A client's process as the daemon reports it; null if it does not, or if it belongs to another
// user.
[[nodiscard]] std::optional<pid_t> processOfClient(const spa_dict& clientProperties);

}  // namespace loopback
