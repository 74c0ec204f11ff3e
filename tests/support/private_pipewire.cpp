// SPDX-License-Identifier: MIT
#include "tests/support/private_pipewire.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace test_support {
namespace {

constexpr std::chrono::seconds kServerStartLimit{15};

constexpr const char* kBusConfiguration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=@DIRECTORY@/bus</listen>
  <auth>EXTERNAL</auth>
  <servicedir>@DIRECTORY@/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

void writeFile(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path) << content;
}

std::string makeDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "private-pipewire-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("cannot make " + path);
  return path;
}

}  // namespace

bool socketAnswers(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) throw std::runtime_error(path + " is too long");
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool answers =
      connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  close(fd);
  return answers;
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    poll(nullptr, 0, 1);
  }
  return true;
}

PrivatePipeWire::PrivatePipeWire() : PrivatePipeWire(Options{}) {}

PrivatePipeWire::PrivatePipeWire(Options options)
    : options_(std::move(options)), directory_(makeDirectory()) {
  writeConfiguration();
  for (const std::string& entry : environment()) {
    const std::string name = entry.substr(0, entry.find('='));
    const char* before = std::getenv(name.c_str());
    if (before == nullptr) {
      unsetEnvironment_.push_back(name);
    } else {
      savedEnvironment_.emplace_back(name, before);
    }
    setenv(name.c_str(), entry.substr(name.size() + 1).c_str(), 1);
  }
  watchdog_ = std::thread([this] { watch(); });
  if (options_.sessionBus) startBus();
  if (options_.startDaemon) startDaemon();
}

PrivatePipeWire::~PrivatePipeWire() {
  if (sessionManager_) sessionManager_->terminate();
  if (daemon_) daemon_->terminate();
  if (bus_) bus_->terminate();
  {
    const std::lock_guard lock(mutex_);
    finished_ = true;
  }
  finishedCondition_.notify_all();
  watchdog_.join();
  for (const auto& [name, value] : savedEnvironment_) setenv(name.c_str(), value.c_str(), 1);
  for (const std::string& name : unsetEnvironment_) unsetenv(name.c_str());
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void PrivatePipeWire::watch() {
  std::unique_lock lock(mutex_);
  if (finishedCondition_.wait_for(lock, options_.watchdog, [this] { return finished_; })) return;
  std::fprintf(stderr, "The test took longer than %lld s. The servers' log:\n%s\n",
               static_cast<long long>(options_.watchdog.count()), log().c_str());
  std::abort();
}

std::vector<std::string> PrivatePipeWire::environment() const {
  return {"XDG_RUNTIME_DIR=" + directory_, "PIPEWIRE_RUNTIME_DIR=" + directory_,
          "PIPEWIRE_REMOTE=pipewire-0", "DBUS_SESSION_BUS_ADDRESS=" + busAddress(),
          "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent", "HOME=" + home(),
          "XDG_CONFIG_HOME=" + configHome(), "XDG_STATE_HOME=" + stateHome(),
          "XDG_DATA_HOME=" + directory_ + "/data", "XDG_CACHE_HOME=" + directory_ + "/cache",
          // Settings in files of this folder, not through a service on the bus.
          "GSETTINGS_BACKEND=keyfile"};
}

void PrivatePipeWire::writeConfiguration() {
  for (const char* folder : {"/home", "/services", "/state", "/data", "/cache", "/config"}) {
    std::filesystem::create_directories(directory_ + folder);
  }
  std::string bus = kBusConfiguration;
  for (std::size_t at = 0; (at = bus.find("@DIRECTORY@")) != std::string::npos;) {
    bus.replace(at, std::strlen("@DIRECTORY@"), directory_);
  }
  writeFile(directory_ + "/bus.conf", bus);

  // No hardware, no reservation of it.
  std::filesystem::copy(RA_PRIVATE_WIREPLUMBER, configHome() + "/wireplumber",
                        std::filesystem::copy_options::recursive);
  for (const auto& [name, content] : options_.pipewireDropIns) {
    writeFile(configHome() + "/pipewire/pipewire.conf.d/" + name, content);
  }
  for (const auto& [name, content] : options_.clientDropIns) {
    writeFile(configHome() + "/pipewire/client-rt.conf.d/" + name, content);
  }
}

void PrivatePipeWire::startBus() {
  bus_ = std::make_unique<ChildProcess>(ChildProcess::Command{
      {"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + directory_ + "/bus.conf"},
      options_.environment,
      directory_ + "/log"});
  if (!waitUntil([this] { return socketAnswers(directory_ + "/bus"); }, kServerStartLimit)) {
    throw std::runtime_error("dbus-daemon does not answer:\n" + log());
  }
}

void PrivatePipeWire::startDaemon() {
  auto environment = options_.environment;
  environment.insert(environment.end(), options_.daemonEnvironment.begin(),
                     options_.daemonEnvironment.end());
  daemon_ = std::make_unique<ChildProcess>(
      ChildProcess::Command{{"pipewire"}, environment, directory_ + "/log"});
  if (!waitUntil([this] { return socketAnswers(directory_ + "/pipewire-0"); }, kServerStartLimit)) {
    throw std::runtime_error("pipewire does not answer:\n" + log());
  }
  if (!options_.sessionManager) return;
  sessionManager_ = std::make_unique<ChildProcess>(
      ChildProcess::Command{{"wireplumber"}, options_.environment, directory_ + "/log"});
}

void PrivatePipeWire::killDaemon() {
  daemon_->kill();
  if (sessionManager_) sessionManager_->kill();
}

std::string PrivatePipeWire::log() const {
  std::ostringstream text;
  text << std::ifstream(directory_ + "/log").rdbuf();
  return text.str();
}

}  // namespace test_support
