// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "app/app_delegate.h"
#include "app/command_line.h"
#include "app/recording_recovery.h"
#include "hosts/linux/bus/client_commands.h"
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
int runClientCommand(CommandLine::Command command) {
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

int runTool(const CommandLine& commandLine, std::vector<std::string> arguments) {
  linux_host::LinuxHost host(std::move(arguments));
  if (const auto status = host.becomeInstance(urisOf(commandLine.pathsToOpen))) return *status;
  auto delegate = record_audio::AppDelegate::create(host.environment());
  // The log has said where an unsaved recording is, and why it could not be saved.
  return host.run(delegate, delegate, {commandLine.pathsToOpen, commandLine.startedByBus, [&] {
                                         return delegate->hasUnsavedRecording();
                                       }});
}

int runRecovery(std::vector<std::string> arguments) {
  linux_host::LinuxHost host(std::move(arguments), linux_host::LinuxHost::Purpose::kFiles);
  suite::Environment environment = host.environment();
  const auto folder = environment.suite.locationManager.locationForCurrentTool();
  // The log has said what is wrong with the folder.
  if (!folder) return linux_host::kExitFailed;
  const auto recovery = record_audio::RecordingRecovery::create(environment, *folder);
  return record_audio::printRecovery(recovery->run(), std::cout, std::cerr);
}

}  // namespace

int main(int argc, char** argv) try {
  std::vector<std::string> arguments(argv, argv + argc);
  const auto parsed = record_audio::parseCommandLine({arguments.begin() + 1, arguments.end()});
  if (const auto* error = std::get_if<record_audio::CommandLineError>(&parsed)) {
    std::cerr << error->text << '\n';
    return record_audio::kExitUsage;
  }
  const auto& commandLine = std::get<CommandLine>(parsed);
  switch (commandLine.command) {
    case CommandLine::Command::kHelp:
      std::cout << record_audio::helpText();
      return 0;
    case CommandLine::Command::kVersion:
      std::cout << record_audio::versionText(RA_VERSION);
      return 0;
    case CommandLine::Command::kRecover:
      return runRecovery(std::move(arguments));
    case CommandLine::Command::kRun:
      return runTool(commandLine, std::move(arguments));
    case CommandLine::Command::kStop:
    case CommandLine::Command::kCancel:
    case CommandLine::Command::kStatus:
      return runClientCommand(commandLine.command);
  }
  return record_audio::kExitUsage;
} catch (const std::system_error& error) {
  // A limit of the system, reached before there was anything to lose.
  std::cerr << "Record Audio cannot start: " << error.what() << ". Close other programs.\n";
  return linux_host::kExitFailed;
}
