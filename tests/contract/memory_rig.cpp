// SPDX-License-Identifier: MIT
#include <cmath>

#include "tests/contract/contract_rig.h"
#include "tests/memory_host/memory_host.h"

// The in-memory host under the contract suite: its clock moves only here.

namespace contract {
namespace {

constexpr double kPatience_s = 10;
constexpr double kStep_s = 0.001;
constexpr const char* kFolder = "/contract";

class MemoryRig : public ContractRig {
 public:
  MemoryRig() {
    memory_.fileManager.folders.insert(kFolder);
    memory_.capture.goLive(memory_.runLoop, memory_.dispatch);
    memory_.audioHardware.setList<platform::AudioDeviceID>(
        platform::kAudioObjectSystemObject, global(platform::kAudioHardwarePropertyDevices), {});
    memory_.audioHardware.setDefaultOutput(platform::kAudioObjectUnknown);
    memory_.application.missingImages.insert("no such image");
  }
  ~MemoryRig() override { memory_.runLoop.clear(); }

  platform::Host& host() override { return memory_.host; }

  bool runUntil(const std::function<bool()>& condition) override {
    for (double passed_s = 0; passed_s < kPatience_s; passed_s += kStep_s) {
      memory_.runLoop.settle();
      if (condition()) return true;
      memory_.runLoop.advance(kStep_s);
    }
    return condition();
  }
  void pass(double seconds) override { memory_.runLoop.advance(seconds); }
  void keepBusy(double seconds) override {
    memory_.clock.now_ns += static_cast<std::uint64_t>(std::llround(seconds * 1e9));
  }

  std::string folder() override { return kFolder; }
  std::optional<std::string> contents(const std::string& path) override {
    const auto found = memory_.fileManager.files.find(path);
    if (found == memory_.fileManager.files.end()) return std::nullopt;
    return found->second->contents;
  }
  void limitFiles(std::optional<std::size_t> bytes) override {
    std::size_t used_bytes = 0;
    for (const auto& [path, file] : memory_.fileManager.files) used_bytes += file->contents.size();
    auto& room = memory_.fileManager.freeSpace_bytes;
    room = bytes ? std::optional(*bytes - std::min(*bytes, used_bytes)) : std::nullopt;
  }

  std::string plugInMicrophone(const std::string& name) override {
    memory_.capture.connect(plugIn(name, true), name);
    return name;
  }
  std::string plugInSpeakers(const std::string& name) override { return plugIn(name, false); }
  void unplug(const std::string& uniqueID) override {
    memory_.audioHardware.removeObject(devices_.at(uniqueID));
    memory_.capture.disconnect(uniqueID);
  }

 private:
  static platform::AudioObjectPropertyAddress global(std::uint32_t selector) {
    return {selector, platform::kAudioObjectPropertyScopeGlobal,
            platform::kAudioObjectPropertyElementMaster};
  }
  // A stereo device, whose unique id is its name.
  std::string plugIn(const std::string& name, bool isInput) {
    auto& hardware = memory_.audioHardware;
    const platform::AudioDeviceID device = 100 + static_cast<unsigned>(devices_.size());
    devices_[name] = device;
    hardware.addDevice(device, name);
    hardware.setStreamConfiguration(device, isInput, {2});
    hardware.setStreamConfiguration(device, !isInput, {});
    hardware.setDeviceTiming(device, isInput, 0, 1024);
    const platform::AudioObjectPropertyAddress rate{platform::kAudioDevicePropertyNominalSampleRate,
                                                    platform::kAudioObjectPropertyScopeGlobal,
                                                    platform::kAudioObjectPropertyElementMaster};
    hardware.setValue(device, rate, 48000.0);
    return name;
  }

  memory_host::MemoryHost memory_;
  std::map<std::string, platform::AudioDeviceID> devices_;
};

}  // namespace

std::unique_ptr<ContractRig> makeRig() {
  return std::make_unique<MemoryRig>();
}

}  // namespace contract
