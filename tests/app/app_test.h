// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/app_delegate.h"
#include "routing/audio_waiter.h"
#include "settings/preferences_window_controller.h"
#include "tests/memory_host/memory_host.h"

// The application on a machine in memory. It has one microphone and, if a test asks for it, the
// loopback driver.

namespace record_audio {

inline constexpr const char* kBundlePath = "/Apps/Record Audio.app";
inline constexpr const char* kPreferencesPath =
    "/opt/suite/tools/a5f597ea-d3f3-4347-bbe6-344e240acc7e";
inline constexpr const char* kStartedText = "Starting a new audio recording.";
inline constexpr const char* kSavedText =
    "Audio recording is saved.\nClick here to show in Finder.";
inline constexpr const char* kUnsavedText = "Unable to save the record.";
inline constexpr const char* kErrorText = "An error has occurred. Audio file was not created.";
inline constexpr const char* kPrivacyText =
    "Allow access to the microphone in the macOS Privacy settings.";
inline constexpr const char* kHideFromDock = "setActivationPolicy 2";
inline constexpr const char* kShowInDock = "setActivationPolicy 0";

inline constexpr platform::AudioDeviceID kMicrophone = 10;
inline constexpr platform::AudioDeviceID kLoopback = 20;
inline constexpr platform::AudioObjectID kLoopbackControl = 21;
inline constexpr platform::AudioDeviceID kSpeakers = 30;

using Entries = std::vector<std::string>;

class AppTest : public ::testing::Test {
 protected:
  AppTest();
  // Ends the process. After that nothing may keep the delegate alive.
  ~AppTest() override;

  void useSource(std::int64_t type) { machine.userDefaults.values["AudioSourceType"] = type; }
  void plugLoopbackDriver(const std::string& version = "1.0.3");
  // Makes every call that a host makes at launch, with the requests that came with it.
  void launch(const Entries& requests = {});
  // Launches and lets the recorder confirm the start.
  void launchAndRecord();
  void launchIntoPreferences() { launch({kPreferencesPath}); }
  void confirmStart() { machine.capture.sessions.back()->reportStarted(); }
  void failRecording() { machine.capture.sessions.back()->reportError("unplugged"); }
  // Launches with system audio as the source and lets the loopback device appear.
  void launchAndRecordSystemAudio();
  void clickDock() { app->applicationShouldHandleReopen(false); }
  void clickDone() { app->preferences()->onDoneClicked(); }

  // What the machine was asked to do by `act`, in order.
  Entries during(const std::function<void()>& act);
  [[nodiscard]] Entries showingTexts() const;
  [[nodiscard]] const memory_host::MemoryClientProvider& provider() const {
    return *machine.suite.providers.back();
  }
  [[nodiscard]] const memory_host::MemorySuite::Event& lastEvent() const {
    return machine.suite.events.back();
  }
  // Of the last event; null when the event has no details.
  [[nodiscard]] platform::Value detail(const std::string& key) const;
  [[nodiscard]] std::size_t blinkTimerCount() const;
  [[nodiscard]] bool ended() const { return machine.application.ended; }
  [[nodiscard]] bool windowLoaded() const { return window != nullptr; }

  memory_host::MemoryHost machine;
  bool loopbackAppears = true;  // once it is shown
  bool hasScreen = true;
  std::shared_ptr<memory_host::MemoryWindow> window;
  std::shared_ptr<AppDelegate> app;
};

}  // namespace record_audio
