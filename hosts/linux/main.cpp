// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "app/app_delegate.h"
#include "app/entry_point.h"
#include "hosts/linux/base/toolkit_environment.h"
#include "hosts/linux/bus/client_commands.h"
#include "hosts/linux/bus/service_start.h"
#include "hosts/linux/host/linux_host.h"
#include "hosts/linux/notifications/lone_notice.h"
#include "platform/file_url.h"

// The entry point on the Linux desktop, and the one place that knows both the core and the host.

namespace {

using record_audio::CommandLine;

bool writesToTerminal() {
  return isatty(STDOUT_FILENO) != 0 || isatty(STDERR_FILENO) != 0;
}

// Returns the exit status. Who stops by a key or a launcher sees no stderr, but a notification.
int endRecording(CommandLine::Command command, linux_host::SessionBus& bus,
                 linux_host::Instance& instance) {
  const int status = command == CommandLine::Command::kStop
                         ? linux_host::stopCommand(instance, std::cout, std::cerr)
                         : linux_host::cancelCommand(instance, std::cerr);
  if (status == linux_host::kExitNothingThere && !writesToTerminal()) {
    const auto bundle = linux_host::LinuxBundle::mainBundle(
        linux_host::BundlePaths::ofExecutable(linux_host::executablePath()));
    linux_host::showLoneNotice(bus.connection(), *bundle,
                               bundle->localizedString("Nothing is being recorded."));
  }
  return status;
}

// Commands that only talk to a running instance.
int askInstance(CommandLine::Command command) {
  linux_host::SessionBus bus;
  linux_host::Instance instance(bus,
                                [] { return linux_host::LinuxFileManager().temporaryDirectory(); });
  if (command != CommandLine::Command::kStatus) return endRecording(command, bus, instance);
  return linux_host::statusCommand(instance, std::cout, std::cerr);
}

// What is sent to a running instance: paths as URLs, anything else unchanged.
std::vector<std::string> urisOf(const std::vector<std::string>& paths) {
  std::vector<std::string> uris;
  for (const std::string& path : paths) {
    const bool isPath =
        path.find('/') != std::string::npos && path.find("://") == std::string::npos;
    uris.push_back(isPath ? platform::fileURLWithPath(std::filesystem::absolute(path)) : path);
  }
  return uris;
}

// `arguments` with the program's path, as the core is told of them.
int runTool(const std::vector<std::string>& arguments, const CommandLine& commandLine,
            bool isStartedByBus) {
  linux_host::LinuxHost host(arguments);
  if (const auto status = host.becomeInstance(urisOf(commandLine.pathsToOpen))) return *status;
  auto delegate = record_audio::AppDelegate::create(host.environment());
  // The log has said what failed, and where an unsaved recording is.
  return host.run(delegate, delegate, {commandLine.pathsToOpen, isStartedByBus, [&] {
                                         return delegate->hasFailedRecording();
                                       }});
}

int recover(const std::vector<std::string>& arguments) {
  linux_host::LinuxHost host(arguments, linux_host::LinuxHost::Purpose::kFiles);
  return record_audio::recoverRecordings(host.environment(), std::cout, std::cerr);
}

}  // namespace

int main(int argc, char** argv) try {
  linux_host::prepareToolkitEnvironment();
  const std::vector<std::string> arguments(argv, argv + argc);
  std::vector<std::string> ownArguments(arguments.begin() + 1, arguments.end());
  const bool isStartedByBus = linux_host::takeServiceStart(&ownArguments);
  const record_audio::HostCommands commands{[&](const CommandLine& commandLine) {
                                              return runTool(arguments, commandLine,
                                                             isStartedByBus);
                                            },
                                            askInstance, [&] { return recover(arguments); }};
  return record_audio::runCommand(ownArguments, RA_VERSION, commands, std::cout, std::cerr);
} catch (const std::system_error& error) {
  // A limit of the system, reached before there was anything to lose.
  std::cerr << "Record Audio cannot start: " << error.what() << ". Close other programs.\n";
  return linux_host::kExitFailed;
}
