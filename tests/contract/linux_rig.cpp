// SPDX-License-Identifier: MIT
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "hosts/linux/host/linux_host.h"
#include "tests/contract/contract_rig.h"
#include "tests/contract/linux_surroundings.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"

// The Linux host under the contract suite: a whole LinuxHost for each test, in one session of the
// program's own (PipeWire, WirePlumber, a message bus).

namespace contract {
namespace {

// One for the program, as the environment of the process points at it.
class Session : public testing::Environment {
 public:
  void SetUp() override {
    std::signal(SIGXFSZ, SIG_IGN);
    test_support::PrivatePipeWire::Options options;
    options.watchdog = std::chrono::seconds(280);
    // Not on the bus: PipeWire takes every client of the portal's process for the portal, and in
    // these tests that is ours.
    options.daemonEnvironment = {"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent"};
    server = std::make_unique<test_support::PrivatePipeWire>(options);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", server->busAddress().c_str(), 1);
    // The tool takes the interrupted recordings that it finds there.
    const std::string temporary = server->directory() + "/temporary";
    std::filesystem::create_directory(temporary);
    setenv("TMPDIR", temporary.c_str(), 1);
    setenv("XDG_MUSIC_DIR", (server->home() + "/Music").c_str(), 1);
    // What is installed on this machine is not started.
    std::filesystem::create_directory(programs());
    setenv("PATH", programs().c_str(), 1);
    setenv("XDG_DATA_DIRS", (server->directory() + "/no-data").c_str(), 1);
    setenv("XDG_CONFIG_DIRS", (server->directory() + "/no-config").c_str(), 1);
    unsetenv("XDG_CURRENT_DESKTOP");
  }
  void TearDown() override { server.reset(); }

  [[nodiscard]] std::string programs() const { return server->directory() + "/programs"; }

  std::unique_ptr<test_support::PrivatePipeWire> server;
};

Session& session() {
  static auto* const only =
      static_cast<Session*>(testing::AddGlobalTestEnvironment(new Session));  // gtest owns it
  return *only;
}
// Before the tests run.
[[maybe_unused]] const Session& kSession = session();

class LinuxRig : public ContractRig {
 public:
  LinuxRig() : host_({"/usr/bin/record-audio"}) {
    static int count = 0;
    folder_ = session().server->directory() + "/contract-" + std::to_string(++count);
    elsewhere_ = "/dev/shm/record-audio-contract-" + std::to_string(getpid());
    for (const std::string& folder : {folder_, elsewhere_}) {
      if (mkdir(folder.c_str(), 0700) != 0) throw std::runtime_error("no folder " + folder);
    }
  }
  ~LinuxRig() override {
    limitFiles(std::nullopt);
    surroundings_.reset();
    std::filesystem::remove_all(folder_);
    std::filesystem::remove_all(elsewhere_);
    std::filesystem::remove_all(surroundingsFolder());
  }
  LinuxRig(const LinuxRig&) = delete;
  LinuxRig& operator=(const LinuxRig&) = delete;

  suite::Environment environment() override {
    const suite::Environment own = host_.environment();
    return surroundings_ ? suite::Environment{surroundings_->ports(), own.suite} : own;
  }
  Surroundings& surroundings() override {
    if (!surroundings_) {
      std::filesystem::create_directories(surroundingsFolder());
      surroundings_.emplace(host_, session().server->busAddress(), surroundingsFolder(),
                            session().programs());
    }
    return *surroundings_;
  }

  bool runUntil(const std::function<bool()>& condition) override {
    return iterateUntil(condition, 10);
  }
  void pass(double seconds) override {
    const gint64 end_us = afterNow_us(seconds);
    iterateUntil([end_us] { return g_get_monotonic_time() >= end_us; }, seconds + 1);
  }
  void keepBusy(double seconds) override {
    const gint64 end_us = afterNow_us(seconds);
    while (g_get_monotonic_time() < end_us) std::this_thread::yield();
  }

  std::string folder() override { return folder_; }
  std::string folderElsewhere() override { return elsewhere_; }
  std::optional<std::string> contents(const std::string& path) override {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
  }
  void limitFiles(std::optional<std::size_t> bytes) override {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes ? *bytes : limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
  }

  std::optional<platform::Value> storedSetting(const std::string& key) override {
    return linux_host::LinuxUserDefaults(session().server->configHome() + "/" +
                                         linux_host::kApplicationId + "/defaults.json")
        .objectForKey(key);
  }

  std::string plugInMicrophone(const std::string& name) override {
    control_.createMicrophone(name, {{"node.description", name}});
    awaitDevice(name);
    return name;
  }
  std::string plugInSpeakers(const std::string& name) override {
    control_.createSink(name, {{"node.description", name}});
    awaitDevice(name);
    return name;
  }
  void setLevel(const std::string& uniqueID, float volume, bool isMuted) override {
    control_.setVolume(uniqueID, volume * volume * volume);
    control_.setMute(uniqueID, isMuted);
  }
  void unplug(const std::string& uniqueID) override { control_.destroyNode(uniqueID); }

 private:
  [[nodiscard]] std::string surroundingsFolder() const { return folder_ + "-surroundings"; }
  void awaitDevice(const std::string& uniqueID) {
    if (!runUntil([&] { return isListed(uniqueID); })) {
      throw std::runtime_error("the host does not see " + uniqueID);
    }
  }
  bool isListed(const std::string& uniqueID) {
    const platform::OwnedString uid(platform::StringObject::create(uniqueID));
    const platform::StringRef qualifier = uid.get();
    platform::AudioDeviceID device = platform::kAudioObjectUnknown;
    std::uint32_t size_bytes = sizeof device;
    const platform::AudioObjectPropertyAddress address{
        platform::kAudioHardwarePropertyTranslateUIDToDevice,
        platform::kAudioObjectPropertyScopeGlobal, platform::kAudioObjectPropertyElementMaster};
    return environment().host.audioHardware.AudioObjectGetPropertyData(
               platform::kAudioObjectSystemObject, address, sizeof qualifier, &qualifier,
               &size_bytes, &device) == platform::noErr &&
           device != platform::kAudioObjectUnknown;
  }
  static gint64 afterNow_us(double seconds) {
    return g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
  }
  static bool iterateUntil(const std::function<bool()>& condition, double limit_s) {
    const gint64 end_us = afterNow_us(limit_s);
    const guint wake = g_timeout_add(
        1, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    while (!condition() && g_get_monotonic_time() < end_us) {
      g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(wake);
    return condition();
  }

  test_support::PipeWireControl control_;
  linux_host::LinuxHost host_;
  std::string folder_;
  std::string elsewhere_;
  std::optional<LinuxSurroundings> surroundings_;
};

}  // namespace

std::unique_ptr<ContractRig> makeRig() {
  return std::make_unique<LinuxRig>();
}

}  // namespace contract
