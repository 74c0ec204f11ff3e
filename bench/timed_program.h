// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>

// A program that is timed from before its exec. It is ended when this object is; if the benchmark
// takes longer than `limit_s`, that ends the whole process with status 1.
class TimedProgram {
 public:
  // `command` ends with a null pointer, as argv does. isStarted() is false if it cannot be started.
  TimedProgram(char** command, unsigned limit_s);
  ~TimedProgram();
  TimedProgram(const TimedProgram&) = delete;
  TimedProgram& operator=(const TimedProgram&) = delete;

  [[nodiscard]] bool isStarted() const { return pid_ > 0; }
  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] double elapsed_ms() const;

  // Has it save, and not stay to show its notification. Returns when it has ended.
  void end();

 private:
  std::chrono::steady_clock::time_point begin_;
  pid_t pid_ = -1;
};
