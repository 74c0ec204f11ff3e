// SPDX-License-Identifier: MIT
#include "tests/app/app_test.h"

#include <algorithm>

#include "capture/capture_device.h"

namespace record_audio {

using memory_host::globalAddress;

AppTest::AppTest() {
  machine.audioHardware.addDevice(kMicrophone, "mic-1");
  machine.audioHardware.setStreamConfiguration(kMicrophone, true, {2});
  machine.capture.connect("mic-1", "Desk microphone");
  machine.interfaceLoader.recipe = [this](const std::string& name, platform::InterfaceOwner&) {
    machine.timeline.add("loadWindow " + name);
    if (hasScreen) window = std::make_shared<memory_host::MemoryWindow>();
    return window;
  };
  app = AppDelegate::create(machine.environment);
  machine.application.delegate = app.get();
}

AppTest::~AppTest() {
  if (!app) return;
  machine.runLoop.clear();
  if (app->running()) app->deleteAudioPlayThrough();
  app->applicationWillTerminate();
  machine.application.delegate = nullptr;
  const std::weak_ptr<AppDelegate> weak = app;
  app.reset();
  EXPECT_TRUE(weak.expired()) << "something still keeps the delegate";
}

void AppTest::plugLoopbackDriver(const std::string& version) {
  auto& hardware = machine.audioHardware;
  hardware.addDevice(kSpeakers, "speakers");
  hardware.setDeviceTiming(kSpeakers, false, 128, 512);
  hardware.setValue(kSpeakers, globalAddress(platform::kAudioDevicePropertyNominalSampleRate),
                    48000.0);
  hardware.setDefaultOutput(kSpeakers);

  hardware.addDevice(kLoopback, kLoopbackDeviceUID, true);
  hardware.setStreamConfiguration(kLoopback, true, {2});
  hardware.setDeviceTiming(kLoopback, true, 128, 512);
  hardware.setValue(kLoopback, globalAddress(platform::kAudioDevicePropertyNominalSampleRate),
                    48000.0);
  hardware.setString(
      kLoopback, globalAddress(platform::kAudioDevicePropertyDeviceManufacturerCFString), version);
  hardware.setList(kLoopback, globalAddress(platform::kAudioObjectPropertyControlList),
                   std::vector<platform::AudioObjectID>{kLoopbackControl});
  const auto control = globalAddress(platform::kAudioBooleanControlPropertyValue);
  hardware.setValue(kLoopbackControl, control, std::uint32_t{0});
  hardware.onWrite = [this, control](platform::AudioObjectID object,
                                     const platform::AudioObjectPropertyAddress& address) {
    if (address.mSelector == platform::kAudioHardwarePropertyDefaultOutputDevice) {
      machine.timeline.add("default output " +
                           std::to_string(machine.audioHardware.defaultOutput()));
    } else if (object == kLoopbackControl && address == control) {
      const bool show = machine.audioHardware.value<std::uint32_t>(object, control) == 0xFACE;
      machine.timeline.add(show ? "show loopback" : "hide loopback");
      if (show && loopbackAppears) {
        machine.audioHardware.addDevice(kLoopback, kLoopbackDeviceUID);
        machine.capture.connect(kLoopbackDeviceUID, "Loopback");
      } else if (!show) {
        machine.capture.disconnect(kLoopbackDeviceUID);
      }
    }
  };
}

void AppTest::launch(const Entries& requests) {
  app->applicationWillFinishLaunching();
  for (const std::string& request : requests) EXPECT_TRUE(app->application(request));
  app->applicationDidFinishLaunching();
}

void AppTest::launchAndRecord() {
  launch();
  confirmStart();
}

void AppTest::launchAndRecordSystemAudio() {
  useSource(3);
  plugLoopbackDriver();
  launch();
  machine.runLoop.advance(0.01);
  confirmStart();
}

Entries AppTest::during(const std::function<void()>& act) {
  machine.timeline.entries.clear();
  act();
  return machine.timeline.entries;
}

Entries AppTest::showingTexts() const {
  Entries texts;
  for (const auto& notification : machine.userNotificationCenter.showing) {
    texts.push_back(notification->informativeText);
  }
  return texts;
}

platform::Value AppTest::detail(const std::string& key) const {
  const auto& details = lastEvent().details;
  if (!details) return {};
  const auto entry = details->find(key);
  return entry == details->end() ? platform::Value() : entry->second;
}

std::size_t AppTest::blinkTimerCount() const {
  const auto intervals = machine.runLoop.scheduledIntervals_s();
  return static_cast<std::size_t>(std::ranges::count(intervals, 1.0));
}

}  // namespace record_audio
