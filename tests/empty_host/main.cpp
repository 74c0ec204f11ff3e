// SPDX-License-Identifier: MIT
#include <iostream>
#include <string>
#include <vector>

#include "app/app_delegate.h"
#include "app/entry_point.h"
#include "tests/empty_host/empty_host.h"

// The entry point of a host on which nothing exists. It says the version, and ends where it finds
// no folder for recordings.

namespace {

int runTool() {
  empty_host::EmptyHost host;
  const auto delegate = record_audio::AppDelegate::create(host.environment());
  delegate->applicationWillFinishLaunching();
  delegate->applicationDidFinishLaunching();
  delegate->applicationWillTerminate();
  return host.hasEnded() ? record_audio::kExitFailed : record_audio::kExitDone;
}

}  // namespace

int main(int argc, char** argv) {
  const record_audio::HostCommands commands{
      [](const record_audio::CommandLine&) { return runTool(); },
      [](record_audio::CommandLine::Command) { return record_audio::kExitFailed; },
      [] {
        empty_host::EmptyHost host;
        return record_audio::recoverRecordings(host.environment(), std::cout, std::cerr);
      }};
  return record_audio::runCommand({argv + 1, argv + argc}, RA_VERSION, commands, std::cout,
                                  std::cerr);
}
