// SPDX-License-Identifier: MIT
#pragma once

#include <spa/utils/dict.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace loopback {

// Tells the clients of the daemon that run a certain program from those that only say so.
//
// What a client says of itself proves nothing: any may carry any property. But the daemon itself
// puts the process and the user at the other end of the socket into every client's properties
// (pipewire.sec.pid, pipewire.sec.uid) and lets no client change them, and the kernel tells which
// program a process runs.
class VouchedProgram {
 public:
  // `path`: the program's file. A client runs it when it runs that very file, or one that lay
  // there: a program that was replaced while it runs is still the same.
  explicit VouchedProgram(std::string path);
  // The program that this process runs.
  [[nodiscard]] static VouchedProgram ownProgram();

  // Whether the client with these properties is a process of this user's that runs the program. A
  // process that cannot be looked at does not.
  [[nodiscard]] bool isRunBy(const spa_dict& clientProperties) const;

 private:
  std::string path_;
};

// The process of a client as the daemon names it; null where it does not, or where it is another
// user's.
[[nodiscard]] std::optional<pid_t> processOfClient(const spa_dict& clientProperties);

}  // namespace loopback
