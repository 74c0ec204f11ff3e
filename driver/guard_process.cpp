// SPDX-License-Identifier: MIT
#include "driver/guard_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "driver/report.h"

namespace loopback {
namespace {

constexpr int kGuardSocket = 3;
constexpr char kGoodbye = 'q';
constexpr unsigned kMostTakeovers = 5;
constexpr std::chrono::seconds kQuickSuccession{10};
constexpr std::chrono::seconds kShortGuardLife{1};
constexpr int kFarewellLimit_ms = 1000;

// This program, even if its file has been replaced in the meantime.
constexpr char kThisProgram[] = "/proc/self/exe";

std::vector<char*> pointersTo(std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Runs between fork and exec: only calls that are safe even if another thread of the parent held a
// lock.
[[noreturn]] void becomeGuard(int socket, char* const* arguments) {
  if (socket != kGuardSocket) {
    dup2(socket, kGuardSocket);
  } else {
    fcntl(socket, F_SETFD, 0);
  }
  closeDescriptorsFrom(kGuardSocket + 1);
  // The guard lives exactly as long as the driver; the end of a session ends the driver first.
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) std::signal(number, SIG_IGN);
  execv(kThisProgram, arguments);
  _exit(127);
}

bool driverSaidGoodbye(int socket) {
  char word = 0;
  for (;;) {
    const ssize_t count = read(socket, &word, 1);
    if (count < 0 && errno == EINTR) continue;
    return count == 1 && word == kGoodbye;
  }
}

}  // namespace

void closeDescriptorsFrom(int first) {
  if (close_range(static_cast<unsigned>(first), ~0U, 0) == 0) return;
  const long limit = sysconf(_SC_OPEN_MAX);
  for (int fd = first; fd < limit; ++fd) close(fd);
}

GuardProcess::GuardProcess(std::vector<std::string> driverArguments, unsigned takeover)
    : driverArguments_(std::move(driverArguments)), takeover_(takeover) {}

GuardProcess::~GuardProcess() {
  if (!socket_.valid()) return;
  if (send(socket_.get(), &kGoodbye, 1, MSG_NOSIGNAL) == 1) {
    pollfd gone{.fd = socket_.get(), .events = POLLIN, .revents = 0};
    poll(&gone, 1, kFarewellLimit_ms);
  }
  waitpid(pid_, nullptr, WNOHANG);
}

bool GuardProcess::start() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    reportErrno("no guard: socketpair");
    return false;
  }
  UniqueFd ours(ends[0]);
  const UniqueFd theirs(ends[1]);
  std::vector<std::string> arguments = {"loopback-guard", kGuardOption, kTakeoverOption,
                                        std::to_string(takeover_)};
  arguments.insert(arguments.end(), driverArguments_.begin(), driverArguments_.end());
  const std::vector<char*> pointers = pointersTo(arguments);
  started_ = std::chrono::steady_clock::now();
  pid_ = fork();
  if (pid_ == 0) becomeGuard(theirs.get(), pointers.data());
  if (pid_ < 0) {
    reportErrno("no guard: fork");
    return false;
  }
  socket_ = std::move(ours);
  return true;
}

bool GuardProcess::bury() {
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
  socket_.reset();
  return std::chrono::steady_clock::now() - started_ > kShortGuardLife;
}

int guardMain(const std::vector<std::string>& driverArguments, unsigned takeover) {
  prctl(PR_SET_NAME, "loopback-guard");
  closeDescriptorsFrom(kGuardSocket + 1);
  UniqueFd driver(kGuardSocket);
  const auto started = std::chrono::steady_clock::now();
  if (driverSaidGoodbye(driver.get())) return EXIT_SUCCESS;

  const bool quick = std::chrono::steady_clock::now() - started < kQuickSuccession;
  const unsigned next = quick ? takeover + 1 : 1;
  if (next > kMostTakeovers) {
    report("died " + std::to_string(next) +
           " times in a row. System audio cannot be recorded until PipeWire is restarted.");
    return EXIT_FAILURE;
  }
  report("died unexpectedly; starting it again");
  driver.reset();
  std::vector<std::string> arguments = {"loopback-driver", kTakeoverOption, std::to_string(next)};
  arguments.insert(arguments.end(), driverArguments.begin(), driverArguments.end());
  execv(kThisProgram, pointersTo(arguments).data());
  reportErrno("cannot start it again");
  return EXIT_FAILURE;
}

}  // namespace loopback
