// SPDX-License-Identifier: MIT
#include "tests/support/data_threads.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace test_support {
namespace {

std::string fileOf(pid_t thread, const char* name) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/" + name);
  std::string line;
  std::getline(file, line);
  return line;
}

std::uint64_t pageFaultsOf(pid_t thread) {
  // After the name, which may contain spaces: state, five numbers, flags, minor faults, those of
  // children, major faults.
  const std::string line = fileOf(thread, "stat");
  std::istringstream fields(line.substr(std::min(line.size(), line.rfind(')') + 1)));
  std::string skipped;
  for (int i = 0; i < 7; ++i) fields >> skipped;
  std::uint64_t minor = 0;
  std::uint64_t major = 0;
  fields >> minor >> skipped >> major;
  if (!fields) throw std::runtime_error("thread " + std::to_string(thread) + " is gone");
  return minor + major;
}

}  // namespace

std::set<pid_t> threads() {
  std::set<pid_t> found;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    found.insert(std::stoi(task.path().filename()));
  }
  return found;
}

std::vector<pid_t> dataThreads(const std::set<pid_t>& threadsBefore) {
  // A stream's loop thread starts its data thread: in PipeWire 0.3 that has its starter's name, in
  // 1.4 its own. The later thread has the higher id.
  std::vector<pid_t> found;
  std::set<std::string> loops;
  for (const pid_t thread : threads()) {
    if (threadsBefore.contains(thread)) continue;
    const std::string name = fileOf(thread, "comm");
    if (name.starts_with("data-loop") ||
        (name.starts_with("audio-") && !loops.insert(name).second)) {
      found.push_back(thread);
    }
  }
  return found;
}

std::uint64_t pageFaults(const std::vector<pid_t>& threads) {
  std::uint64_t sum = 0;
  for (const pid_t thread : threads) sum += pageFaultsOf(thread);
  return sum;
}

}  // namespace test_support
