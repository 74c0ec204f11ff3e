// SPDX-License-Identifier: MIT
#include "bench/timed_program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

TimedProgram::TimedProgram(char** command, unsigned limit_s) {
  std::signal(SIGALRM, [](int) { _exit(1); });
  alarm(limit_s);
  begin_ = std::chrono::steady_clock::now();
  if (posix_spawnp(&pid_, command[0], nullptr, nullptr, command, environ) == 0) return;
  pid_ = -1;
  std::perror(command[0]);
}

TimedProgram::~TimedProgram() {
  end();
  alarm(0);
}

double TimedProgram::elapsed_ms() const {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin_)
      .count();
}

void TimedProgram::end() {
  // The second signal cuts the notification short.
  while (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0) {
    kill(pid_, SIGTERM);
    usleep(20000);
  }
  pid_ = -1;
}
