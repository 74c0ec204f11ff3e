// SPDX-License-Identifier: MIT
// A program made of the real loop, bus, router and application, with a delegate that only keeps a
// journal. Environment variables control it:
//   MINI_JOURNAL      the file that receives one line for each thing that happened
//   MINI_RECORD       set: it records from the launch on
//   MINI_LAUNCH_GATE  the launch lasts until this file exists
//   MINI_WRITER_GATE  the writer closes its file when this file exists
//   MINI_LINGER       set: it answers "not yet" when asked to terminate, as with notifications
//   shown
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <thread>

#include "app/command_line.h"
#include "hosts/linux/application/quit_signals.h"
#include "hosts/linux/application/request_router.h"
#include "hosts/linux/bus/client_commands.h"
#include "hosts/linux/bus/instance.h"
#include "hosts/linux/bus/service_start.h"
#include "platform/file_url.h"

namespace {

using record_audio::CommandLine;
using namespace linux_host;

std::string setting(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

void note(const std::string& what) {
  static const int fd =
      open(setting("MINI_JOURNAL").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const std::string line = what + "\n";
  if (write(fd, line.data(), line.size()) < 0) std::abort();
}

void waitForFile(const std::string& path) {
  while (!path.empty() && !std::filesystem::exists(path)) std::this_thread::yield();
}

class Delegate : public platform::ApplicationDelegate, public platform::RemoteControl {
 public:
  explicit Delegate(DispatchThreads& dispatch) : queue_(dispatch.createSerialQueue("writer")) {}

  void applicationWillFinishLaunching() override { note("will finish"); }
  bool application(const std::string& openFile) override {
    note("open " + openFile);
    return true;
  }
  void applicationDidFinishLaunching() override {
    note("finishing");
    waitForFile(setting("MINI_LAUNCH_GATE"));
    recording_ = !setting("MINI_RECORD").empty();
    note("did finish");
  }
  bool applicationShouldHandleReopen(bool) override {
    note("reopen");
    return true;
  }
  platform::TerminateReply applicationShouldTerminate() override {
    note("should terminate");
    stop();
    return setting("MINI_LINGER").empty() ? platform::TerminateReply::kNow
                                          : platform::TerminateReply::kCancel;
  }
  void applicationWillTerminate() override { note("will terminate"); }

  bool stop() override { return end("saved"); }
  bool cancel() override { return end("deleted"); }
  void setOnStateChange(std::function<void()>) override {}
  [[nodiscard]] platform::Dictionary status() const override {
    return {{"state", recording_ ? "recording" : "idle"},
            {"elapsedSeconds", 1},
            {"outputFile", setting("MINI_JOURNAL")}};
  }

 private:
  bool end(const std::string& how) {
    if (!recording_) return false;
    recording_ = false;
    note(how);
    queue_->async([] {
      waitForFile(setting("MINI_WRITER_GATE"));
      note("closed");
    });
    return true;
  }

  const std::shared_ptr<platform::DispatchQueue> queue_;
  bool recording_ = false;
};

// When `run` returns, everything that refers to the bus is destroyed before the bus.
int runInstance(const CommandLine& line, bool isStartedByBus) {
  MainLoop loop;
  DispatchThreads dispatch;
  SessionBus bus;
  LinuxApplication application(loop);
  RequestRouter router(application, loop, dispatch);
  ToolObject object(router);
  Instance instance(bus, [] { return setting("TMPDIR"); });

  std::vector<std::string> uris;
  for (const std::string& path : line.pathsToOpen) {
    uris.push_back(path.starts_with('/') ? platform::fileURLWithPath(path) : path);
  }
  const HandOver handOver = claimOrHandOver(instance, object, uris);
  if (handOver != HandOver::kBecameInstance) {
    return handOver == HandOver::kDelivered ? kExitDone : kExitNoAnswer;
  }

  const auto delegate = std::make_shared<Delegate>(dispatch);
  application.setDelegate(delegate);
  router.attach(delegate, delegate, "/preferences");
  const QuitSignals signals(application);
  if (isStartedByBus) {
    router.launchOnFirstRequest();
  } else {
    router.launch(line.pathsToOpen);
  }
  application.run();
  instance.release();
  dispatch.waitUntilIdle();
  router.finish();
  object.flushAll(1000);
  note("end");
  return 0;
}

int runClient(CommandLine::Command command) {
  SessionBus bus;
  Instance instance(bus, [] { return setting("TMPDIR"); });
  switch (command) {
    case CommandLine::Command::kStop:
      return stopCommand(instance, std::cout, std::cerr);
    case CommandLine::Command::kCancel:
      return cancelCommand(instance, std::cerr);
    default:
      return statusCommand(instance, std::cout, std::cerr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool isStartedByBus = takeServiceStart(&arguments);
  const auto parsed = record_audio::parseCommandLine(arguments);
  if (const auto* error = std::get_if<record_audio::CommandLineError>(&parsed)) {
    std::cerr << error->text << "\n";
    return record_audio::kExitUsage;
  }
  const auto& line = std::get<CommandLine>(parsed);
  return line.command == CommandLine::Command::kRun ? runInstance(line, isStartedByBus)
                                                    : runClient(line.command);
}
