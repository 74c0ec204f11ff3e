// SPDX-License-Identifier: MIT
#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace test_support {
namespace {

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& string : strings) pointers.push_back(string.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The test's environment with `changes` replacing variables of the same name.
std::vector<std::string> mergedEnvironment(const std::vector<std::string>& changes) {
  auto nameOf = [](const std::string& entry) { return entry.substr(0, entry.find('=') + 1); };
  std::vector<std::string> merged = changes;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    bool replaced = false;
    for (const std::string& change : changes) replaced |= nameOf(*entry) == nameOf(change);
    if (!replaced) merged.emplace_back(*entry);
  }
  return merged;
}

}  // namespace

ChildProcess::ChildProcess(const Command& command) {
  // All memory is prepared before the fork: the child may only make raw system calls.
  std::vector<std::string> arguments = command.arguments;
  std::vector<std::string> environment = mergedEnvironment(command.environment);
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<char*> environmentPointers = pointersTo(environment);
  const char* outputFile = command.outputFile.empty() ? nullptr : command.outputFile.c_str();
  const pid_t parent = getpid();

  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("cannot start " + arguments.at(0));
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    if (outputFile != nullptr) {
      const int fd = open(outputFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
      dup2(fd, STDOUT_FILENO);
      dup2(fd, STDERR_FILENO);
    }
    execvpe(argumentPointers[0], argumentPointers.data(), environmentPointers.data());
    _exit(127);
  }
  processFd_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
}

ChildProcess::~ChildProcess() {
  kill();
  if (processFd_ >= 0) close(processFd_);
}

void ChildProcess::sendSignal(int number) const {
  if (!exitCode_) ::kill(pid_, number);
}

bool ChildProcess::isRunning() {
  return !waitForExit(std::chrono::milliseconds(0));
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds limit) {
  if (exitCode_) return exitCode_;
  pollfd ended{processFd_, POLLIN, 0};
  poll(&ended, 1, static_cast<int>(limit.count()));
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) == pid_) {
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return exitCode_;
}

void ChildProcess::terminate() {
  sendSignal(SIGTERM);
  if (!waitForExit(std::chrono::seconds(2))) kill();
}

void ChildProcess::kill() {
  sendSignal(SIGKILL);
  sendSignal(SIGCONT);
  while (!waitForExit(std::chrono::seconds(1))) {
  }
}

}  // namespace test_support
