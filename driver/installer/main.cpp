// SPDX-License-Identifier: MIT
// Installs the loopback driver from the suite application that contains this program, or removes
// it. Runs as root through pkexec. Everything that it reads and every folder that it writes to must
// belong to root alone. Nothing that an ordinary user could have written is copied, and the command
// line takes no path.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "driver/installed_paths.h"
#include "driver/installer/installer.h"
#include "driver/installer/trusted_path.h"

namespace {

enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2, kRefused = 3, kNotRoot = 4 };

void say(const std::string& what) {
  std::fprintf(stderr, "DriverInstaller: %s\n", what.c_str());
}

// The path of this program; the kernel reports it without symbolic links.
std::string ownPath() {
  std::string path(PATH_MAX, '\0');
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return path;
}

// The suite application that contains this program.
std::string suiteDirectory() {
  const std::string path = ownPath();
  const std::string suffix = std::string("/") + loopback::kSuiteInstaller;
  if (!path.ends_with(suffix)) {
    throw loopback::Refusal(path + " is not the installer of a suite application");
  }
  const loopback::TrustedFile program = loopback::openTrustedBySystem(path);
  if (!program.fd.valid()) throw loopback::Refusal(program.refusal);
  struct stat onDisk {};
  struct stat running {};
  if (fstat(program.fd.get(), &onDisk) != 0 || stat("/proc/self/exe", &running) != 0 ||
      onDisk.st_ino != running.st_ino || onDisk.st_dev != running.st_dev) {
    throw loopback::Refusal(path + " has been replaced while it was running");
  }
  return path.substr(0, path.size() - suffix.size());
}

int run(bool uninstall) {
  const loopback::UniqueFd root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  loopback::Installer installer({
      .root = root.get(),
      .sourceBundle = suiteDirectory() + '/' + loopback::kSuiteDriverBundle,
      .plugInDirectory = loopback::kPlugInDirectory,
      .dropInDirectory = loopback::kDropInDirectory,
      .owner = 0,
  });
  const auto result = uninstall ? installer.uninstall() : installer.install();
  const bool changed = result == loopback::Installer::Result::kChanged;
  const std::string driver = std::string("driver ") + loopback::kDriverVersion;
  if (uninstall) {
    say(changed ? "the driver has been removed" : "there was no driver to remove");
  } else {
    say(changed ? driver + " is installed; it starts with the next session"
                : driver + " was already installed");
  }
  return kDone;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view argument = argc > 1 ? argv[1] : "";
  const bool uninstall = argument == "--uninstall";
  if (argc > 2 || (argc == 2 && !uninstall)) {
    say("usage: DriverInstaller [--uninstall]");
    return kUsage;
  }
  if (getuid() != 0 || geteuid() != 0) {
    say("only root can install the sound driver; start it with pkexec");
    return kNotRoot;
  }
  clearenv();
  umask(022);
  if (chdir("/") != 0) return kFailed;
  try {
    return run(uninstall);
  } catch (const loopback::Refusal& refusal) {
    say(std::string("refused: ") + refusal.what());
    return kRefused;
  } catch (const std::exception& error) {
    say(std::string("failed: ") + error.what());
    return kFailed;
  }
}
