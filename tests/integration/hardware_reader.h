// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "platform/audio_hardware.h"

namespace linux_host {

constexpr platform::AudioObjectPropertyAddress global(std::uint32_t selector) {
  return {selector, platform::kAudioObjectPropertyScopeGlobal,
          platform::kAudioObjectPropertyElementMaster};
}
constexpr platform::AudioObjectPropertyAddress input(std::uint32_t selector) {
  return {selector, platform::kAudioDevicePropertyScopeInput,
          platform::kAudioObjectPropertyElementMaster};
}
constexpr platform::AudioObjectPropertyAddress output(std::uint32_t selector) {
  return {selector, platform::kAudioDevicePropertyScopeOutput,
          platform::kAudioObjectPropertyElementMaster};
}

// Reads properties as callers of the port do.
class HardwareReader {
 public:
  explicit HardwareReader(platform::AudioHardware& hardware) : hardware_(hardware) {}

  template <typename T>
  std::optional<T> scalar(platform::AudioObjectID object,
                          const platform::AudioObjectPropertyAddress& address) {
    T value{};
    std::uint32_t size = sizeof value;
    if (hardware_.AudioObjectGetPropertyData(object, address, 0, nullptr, &size, &value) !=
        platform::noErr) {
      return std::nullopt;
    }
    EXPECT_EQ(size, sizeof value);
    return value;
  }
  std::optional<std::string> text(platform::AudioObjectID object,
                                  const platform::AudioObjectPropertyAddress& address) {
    const std::optional<platform::StringRef> reference =
        scalar<platform::StringRef>(object, address);
    if (!reference) return std::nullopt;
    return platform::OwnedString(*reference)->text();
  }
  std::vector<platform::AudioObjectID> ids(platform::AudioObjectID object,
                                           const platform::AudioObjectPropertyAddress& address) {
    std::uint32_t size = 0;
    if (hardware_.AudioObjectGetPropertyDataSize(object, address, 0, nullptr, &size) !=
        platform::noErr) {
      return {};
    }
    std::vector<platform::AudioObjectID> list(size / sizeof(platform::AudioObjectID));
    EXPECT_EQ(hardware_.AudioObjectGetPropertyData(object, address, 0, nullptr, &size, list.data()),
              platform::noErr);
    return list;
  }
  platform::AudioDeviceID deviceWithUID(const std::string& uid) {
    const platform::OwnedString text(platform::StringObject::create(uid));
    const platform::StringRef reference = text.get();
    platform::AudioDeviceID device = 0;
    std::uint32_t size = sizeof device;
    EXPECT_EQ(hardware_.AudioObjectGetPropertyData(
                  platform::kAudioObjectSystemObject,
                  global(platform::kAudioHardwarePropertyTranslateUIDToDevice), sizeof reference,
                  &reference, &size, &device),
              platform::noErr);
    return device;
  }
  std::uint32_t channels(platform::AudioDeviceID device, std::uint32_t scope) {
    const platform::AudioObjectPropertyAddress address{
        platform::kAudioDevicePropertyStreamConfiguration, scope, 0};
    std::uint32_t size = 0;
    EXPECT_EQ(hardware_.AudioObjectGetPropertyDataSize(device, address, 0, nullptr, &size),
              platform::noErr);
    std::vector<std::byte> bytes(std::max<std::size_t>(size, sizeof(platform::AudioBufferList)));
    EXPECT_EQ(
        hardware_.AudioObjectGetPropertyData(device, address, 0, nullptr, &size, bytes.data()),
        platform::noErr);
    platform::AudioBufferList list{};
    std::memcpy(&list, bytes.data(), sizeof list);
    return list.mNumberBuffers == 0 ? 0 : list.mBuffers[0].mNumberChannels;
  }

 private:
  platform::AudioHardware& hardware_;
};

}  // namespace linux_host
