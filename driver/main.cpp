// SPDX-License-Identifier: MIT
// The loopback driver. The PipeWire daemon starts it through a configuration drop-in and does not
// supervise it. The driver ends with the daemon, and a guard process replaces it if it dies.

#include <fcntl.h>
#include <pipewire/pipewire.h>
#include <sys/prctl.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "driver/driver.h"
#include "driver/guard_process.h"
#include "driver/installed_paths.h"

namespace {

constexpr int kUsageError = 2;

struct CommandLine {
  bool guard = false;
  bool version = false;
  bool help = false;
  unsigned takeover = 0;
  std::string remote;
};

std::optional<CommandLine> parse(int argc, char** argv) {
  CommandLine line;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const bool hasValue = i + 1 < argc;
    if (argument == loopback::kGuardOption) {
      line.guard = true;
    } else if (argument == "--version") {
      line.version = true;
    } else if (argument == "--help") {
      line.help = true;
    } else if (argument == loopback::kTakeoverOption && hasValue) {
      line.takeover = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 10));
    } else if (argument == "--remote" && hasValue) {
      line.remote = argv[++i];
    } else {
      return std::nullopt;
    }
  }
  return line;
}

// The daemon leaks descriptors and blocked signals to the programs that it starts.
void leaveTheDaemonsHeritage() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) (void)!open("/dev/null", O_RDWR);
  }
  loopback::closeDescriptorsFrom(3);
  sigset_t signals;
  sigemptyset(&signals);
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) std::signal(number, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
}

// Call before any thread exists, so that signals reach only the event loop.
void blockHandledSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  const auto line = parse(argc, argv);
  if (!line || line->help) {
    std::fprintf(line ? stdout : stderr,
                 "Usage: loopback-driver [--remote NAME] | --version | --help\n"
                 "Serves the loopback device to the PipeWire daemon whose socket is NAME.\n");
    return line ? EXIT_SUCCESS : kUsageError;
  }
  if (line->version) {
    std::puts(loopback::kDriverVersion);
    return EXIT_SUCCESS;
  }
  if (line->guard) {
    std::vector<std::string> successor;
    if (!line->remote.empty()) successor = {"--remote", line->remote};
    return loopback::guardMain(successor, line->takeover);
  }
  prctl(PR_SET_NAME, "loopback-driver");
  leaveTheDaemonsHeritage();
  blockHandledSignals();
  pw_init(&argc, &argv);
  int exitCode = EXIT_FAILURE;
  {
    loopback::Driver driver(
        {.remote = line->remote, .version = loopback::kDriverVersion, .takeover = line->takeover});
    exitCode = driver.run();
  }
  pw_deinit();
  return exitCode;
}
