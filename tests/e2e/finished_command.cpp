// SPDX-License-Identifier: MIT
#include "tests/e2e/finished_command.h"

#include <fstream>
#include <sstream>

#include "tests/support/child_process.h"

namespace e2e {

FinishedCommand runToEnd(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment, const std::string& scratch) {
  static int runs = 0;
  const std::string name = scratch + "/run-" + std::to_string(++runs);
  test_support::ChildProcess::Command command;
  // The shell separates the two outputs before it becomes the program.
  command.arguments = {"/bin/sh", "-c", "exec \"$@\" >\"$0\"", name + ".out"};
  command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
  command.environment = environment;
  command.outputFile = name + ".err";
  test_support::ChildProcess process(command);
  return {process.waitForExit(kStepLimit).value_or(-1), contentsOf(name + ".out"),
          contentsOf(name + ".err")};
}

std::string contentsOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

}  // namespace e2e
