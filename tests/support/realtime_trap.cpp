// SPDX-License-Identifier: MIT
#include "tests/support/realtime_trap.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tests/support/realtime_trap_counts.h"

namespace realtime_trap {
namespace detail {

namespace {
Counts globalCounts;
thread_local int watchDepth = 0;
}  // namespace

Counts& counts() {
  return globalCounts;
}
bool watching() {
  return watchDepth > 0;
}
void watch(int change) {
  watchDepth += change;
}

}  // namespace detail

namespace {

using detail::Counts;
using detail::counts;

// The child's message to its parent.
struct Message {
  Counts::Snapshot counts;
  std::uint32_t bodyResult;
};

void onTrappedSystemCall(int /*signal*/, siginfo_t* info, void* context) {
  counts().addSystemCall(info->si_syscall);
#if defined(__x86_64__)
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RAX] = -ENOSYS;
#elif defined(__aarch64__)
  static_cast<ucontext_t*>(context)->uc_mcontext.regs[0] = static_cast<std::uint64_t>(-ENOSYS);
#else
#error "no way known to answer a trapped system call on this processor"
#endif
}

constexpr std::uint32_t kDataNr = offsetof(seccomp_data, nr);
constexpr std::uint32_t kDataFirstArgument = offsetof(seccomp_data, args[0]);

// From now on every system call of the process raises SIGSYS, except the three that the child needs
// to return from that signal, report and exit.
bool trapSystemCalls(int reportFd) {
  struct sigaction action {};
  action.sa_sigaction = onTrappedSystemCall;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  if (sigaction(SIGSYS, &action, nullptr) != 0) return false;

  const auto load = [](std::uint32_t at) {
    return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, at);
  };
  const auto answer = [](std::uint32_t what) {
    return sock_filter BPF_STMT(BPF_RET | BPF_K, what);
  };
  const auto unlessEqual = [](std::uint32_t value, std::uint8_t skip) {
    return sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, skip);
  };
  std::array<sock_filter, 11> program{{
      load(kDataNr),
      unlessEqual(SYS_rt_sigreturn, 1),
      answer(SECCOMP_RET_ALLOW),
      unlessEqual(SYS_exit_group, 1),
      answer(SECCOMP_RET_ALLOW),
      unlessEqual(SYS_write, 3),
      load(kDataFirstArgument),
      unlessEqual(static_cast<std::uint32_t>(reportFd), 1),
      answer(SECCOMP_RET_ALLOW),
      answer(SECCOMP_RET_TRAP),
      answer(SECCOMP_RET_TRAP),
  }};
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

[[noreturn]] void runChild(const std::function<bool()>& body, int reportFd) {
  constexpr int kNoFilter = 97;
  counts().reset();
  if (watchesLocksAndSystemCalls() && !trapSystemCalls(reportFd)) _exit(kNoFilter);
  Message message{};
  detail::watch(1);
  message.bodyResult = body() ? 1 : 0;
  detail::watch(-1);
  message.counts = counts().snapshot();
  const ssize_t written = write(reportFd, &message, sizeof message);
  _exit(written == static_cast<ssize_t>(sizeof message) ? 0 : 1);
}

Report reportOf(const Counts::Snapshot& snapshot) {
  Report report;
  for (std::size_t i = 0; i < snapshot.calls.size(); ++i) {
    if (snapshot.calls[i] == 0) continue;
    report.violations.push_back(std::string(detail::kCallNames[i]) + " " +
                                std::to_string(snapshot.calls[i]) + " times");
  }
  for (std::size_t i = 0; i < snapshot.systemCallCount; ++i) {
    report.violations.push_back("system call " + std::to_string(snapshot.systemCalls[i]));
  }
  return report;
}

std::string endOf(int status) {
  if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
  return "exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::string describe(const Report& report) {
  std::string text;
  for (const std::string& violation : report.violations) text += violation + "; ";
  if (!report.abnormalEnd.empty()) text += "ended early: " + report.abnormalEnd;
  return text.empty() ? "clean" : text;
}

Report runTrapped(const std::function<bool()>& body) {
  std::array<int, 2> ends{};
  Report failed;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    failed.abnormalEnd = "no pipe: " + std::string(std::strerror(errno));
    return failed;
  }
  const pid_t child = fork();
  if (child == 0) runChild(body, ends[1]);
  close(ends[1]);
  Message message{};
  const ssize_t got = child > 0 ? read(ends[0], &message, sizeof message) : -1;
  close(ends[0]);
  int status = 0;
  if (child > 0) waitpid(child, &status, 0);
  if (got != static_cast<ssize_t>(sizeof message)) {
    failed.abnormalEnd = child > 0 ? endOf(status) : "no child process";
    return failed;
  }
  Report report = reportOf(message.counts);
  if (message.bodyResult == 0) report.abnormalEnd = "the body returned false";
  return report;
}

Scope::Scope() {
  detail::watch(1);
}
Scope::~Scope() {
  detail::watch(-1);
}

Report takeScopeReport() {
  Report report = reportOf(counts().snapshot());
  counts().reset();
  return report;
}

}  // namespace realtime_trap
