// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "settings/preferences_window_controller.h"
#include "tests/memory_host/memory_controls.h"
#include "tests/memory_host/memory_host.h"

namespace record_audio {

// A machine without microphones or driver, and controllers for it.
class PreferencesTest : public testing::Test {
 protected:
  PreferencesTest() { interface_.installIn(machine_.interfaceLoader); }

  std::shared_ptr<PreferencesWindowController> makeController() {
    return PreferencesWindowController::initWithWindowNibName(
        machine_.environment, "AudioPreferencesWindow", {}, [this] { ++quits_; });
  }
  // A controller whose window the user sees.
  std::shared_ptr<PreferencesWindowController> showController() {
    auto controller = makeController();
    controller->showWindow();
    return controller;
  }
  memory_host::MemoryPreferencesWindow& shown() { return interface_.shown(); }

  // The outcomes of the driver's installation.
  void loadDriver() {
    constexpr platform::AudioDeviceID kDevice = 77;
    machine_.audioHardware.addDevice(kDevice, kLoopbackDeviceUID);
    machine_.audioHardware.setString(
        kDevice,
        memory_host::sideAddress(platform::kAudioDevicePropertyDeviceManufacturerCFString, false),
        "1.0.3");
  }
  void installDriverButDoNotLoadIt() {
    machine_.bundleLoader.infoByPath["/Library/Audio/Plug-Ins/HAL/VantrelKorvelAudio.driver"] =
        platform::Dictionary{{"CFBundleShortVersionString", "1.0.3"}};
  }
  void answerAlert(bool withFirstButton) {
    machine_.alerts.answers.push_back(platform::kAlertFirstButtonReturn +
                                      (withFirstButton ? 0 : 1));
  }

  platform::Dictionary& stored() { return machine_.userDefaults.values; }
  std::vector<std::string>& storeJournal() { return machine_.userDefaults.journal; }
  platform::Value mirrored(const std::string& key) {
    const auto* slots = stored()["QuickLook"].as<platform::Dictionary>();
    if (slots == nullptr) return {};
    const auto* slot = slots->at("Record Audio.app").as<platform::Dictionary>();
    return slot != nullptr && slot->contains(key) ? slot->at(key) : platform::Value();
  }

  memory_host::MemoryHost machine_;
  memory_host::MemoryPreferencesInterface interface_;
  int quits_ = 0;
};

}  // namespace record_audio
