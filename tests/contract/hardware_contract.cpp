// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/audio_hardware.h promises.

namespace contract {
namespace {

using platform::AudioDeviceID;
using platform::AudioObjectID;
using platform::AudioObjectPropertyAddress;
using platform::kAudioObjectSystemObject;
using platform::noErr;
using platform::OSStatus;
using testing::Contains;
using testing::Not;

class HardwareContract : public ContractTest {
 protected:
  platform::AudioHardware& hardware() { return host().audioHardware; }

  static AudioObjectPropertyAddress global(std::uint32_t selector) {
    return {selector, platform::kAudioObjectPropertyScopeGlobal,
            platform::kAudioObjectPropertyElementMaster};
  }
  static AudioObjectPropertyAddress side(std::uint32_t selector, bool isInput) {
    return {selector,
            isInput ? platform::kAudioDevicePropertyScopeInput
                    : platform::kAudioDevicePropertyScopeOutput,
            platform::kAudioObjectPropertyElementMaster};
  }
  AudioDeviceID deviceWithUID(const std::string& uid) {
    const platform::OwnedString text(platform::StringObject::create(uid));
    const platform::StringRef qualifier = text.get();
    AudioDeviceID device = 12345;
    std::uint32_t size_bytes = sizeof device;
    EXPECT_EQ(
        hardware().AudioObjectGetPropertyData(
            kAudioObjectSystemObject, global(platform::kAudioHardwarePropertyTranslateUIDToDevice),
            sizeof qualifier, &qualifier, &size_bytes, &device),
        noErr);
    EXPECT_EQ(size_bytes, sizeof device);
    return device;
  }
  std::vector<AudioDeviceID> devices() {
    const auto address = global(platform::kAudioHardwarePropertyDevices);
    std::uint32_t size_bytes = 0;
    EXPECT_EQ(hardware().AudioObjectGetPropertyDataSize(kAudioObjectSystemObject, address, 0,
                                                        nullptr, &size_bytes),
              noErr);
    std::vector<AudioDeviceID> ids(size_bytes / sizeof(AudioDeviceID) + 1);
    size_bytes = static_cast<std::uint32_t>(ids.size() * sizeof(AudioDeviceID));
    EXPECT_EQ(hardware().AudioObjectGetPropertyData(kAudioObjectSystemObject, address, 0, nullptr,
                                                    &size_bytes, ids.data()),
              noErr);
    ids.resize(size_bytes / sizeof(AudioDeviceID));
    return ids;
  }
  std::uint32_t channels(AudioDeviceID device, bool isInput) {
    const auto address = side(platform::kAudioDevicePropertyStreamConfiguration, isInput);
    std::uint32_t size_bytes = 0;
    EXPECT_EQ(hardware().AudioObjectGetPropertyDataSize(device, address, 0, nullptr, &size_bytes),
              noErr);
    std::vector<std::byte> list(size_bytes);
    EXPECT_EQ(hardware().AudioObjectGetPropertyData(device, address, 0, nullptr, &size_bytes,
                                                    list.data()),
              noErr);
    std::uint32_t count = 0;
    platform::AudioBuffer buffer;
    for (std::size_t at = platform::audioBufferListSize_bytes(0); at + sizeof buffer <= size_bytes;
         at += sizeof buffer) {
      std::memcpy(&buffer, list.data() + at, sizeof buffer);
      EXPECT_EQ(buffer.mData, nullptr);
      count += buffer.mNumberChannels;
    }
    return count;
  }
};

TEST_F(HardwareContract, ADeviceIsListedAndFoundByItsUid) {
  const std::string uid = rig->plugInMicrophone("mic");
  const AudioDeviceID device = deviceWithUID(uid);
  ASSERT_NE(device, platform::kAudioObjectUnknown);
  ASSERT_NE(device, kAudioObjectSystemObject);
  EXPECT_THAT(devices(), Contains(device));
  platform::StringRef text = nullptr;
  std::uint32_t size_bytes = sizeof text;
  const auto address = global(platform::kAudioDevicePropertyDeviceUID);
  EXPECT_TRUE(hardware().AudioObjectHasProperty(device, address));
  ASSERT_EQ(hardware().AudioObjectGetPropertyData(device, address, 0, nullptr, &size_bytes, &text),
            noErr);
  const platform::OwnedString owned(text);
  EXPECT_EQ(size_bytes, sizeof text);
  EXPECT_EQ(owned->text(), uid);
}

TEST_F(HardwareContract, AnUnknownUidIsNoDeviceAndNoError) {
  EXPECT_EQ(deviceWithUID("no such device"), platform::kAudioObjectUnknown);
}

TEST_F(HardwareContract, AnInvalidUidIsRefused) {
  AudioDeviceID device = 12345;
  std::uint32_t size_bytes = sizeof device;
  EXPECT_EQ(
      hardware().AudioObjectGetPropertyData(
          kAudioObjectSystemObject, global(platform::kAudioHardwarePropertyTranslateUIDToDevice), 0,
          nullptr, &size_bytes, &device),
      platform::kAudioHardwareBadPropertySizeError);
  EXPECT_EQ(device, 12345U);
}

TEST_F(HardwareContract, ADeviceHasItsChannelsOnItsSide) {
  const AudioDeviceID microphone = deviceWithUID(rig->plugInMicrophone("mic"));
  const AudioDeviceID speakers = deviceWithUID(rig->plugInSpeakers("speakers"));
  EXPECT_NE(microphone, speakers);
  EXPECT_EQ(channels(microphone, true), 2U);
  EXPECT_EQ(channels(microphone, false), 0U);
  EXPECT_EQ(channels(speakers, true), 0U);
  EXPECT_EQ(channels(speakers, false), 2U);
}

TEST_F(HardwareContract, AListIsCutToTheRoomThereIs) {
  rig->plugInMicrophone("mic");
  rig->plugInSpeakers("speakers");
  ASSERT_GE(devices().size(), 2U);
  AudioDeviceID first[2] = {0, 12345};
  std::uint32_t size_bytes = sizeof(AudioDeviceID);
  EXPECT_EQ(hardware().AudioObjectGetPropertyData(kAudioObjectSystemObject,
                                                  global(platform::kAudioHardwarePropertyDevices),
                                                  0, nullptr, &size_bytes, first),
            noErr);
  EXPECT_EQ(size_bytes, sizeof(AudioDeviceID));
  EXPECT_EQ(first[0], devices().front());
  EXPECT_EQ(first[1], 12345U);
}

TEST_F(HardwareContract, AScalarOrStringThatDoesNotFitIsRefusedAndNothingIsWritten) {
  const AudioDeviceID device = deviceWithUID(rig->plugInMicrophone("mic"));
  for (const std::uint32_t selector :
       {platform::kAudioDevicePropertyNominalSampleRate, platform::kAudioDevicePropertyDeviceUID}) {
    std::uint64_t value = 0x5a5a5a5a5a5a5a5a;
    std::uint32_t size_bytes = sizeof value - 1;
    EXPECT_EQ(hardware().AudioObjectGetPropertyData(device, global(selector), 0, nullptr,
                                                    &size_bytes, &value),
              platform::kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(value, 0x5a5a5a5a5a5a5a5aU);
  }
}

TEST_F(HardwareContract, MoreRoomThanNeededIsNoError) {
  const AudioDeviceID device = deviceWithUID(rig->plugInMicrophone("mic"));
  double rates_hz[2] = {0, -1};
  std::uint32_t size_bytes = sizeof rates_hz;
  EXPECT_EQ(hardware().AudioObjectGetPropertyData(
                device, global(platform::kAudioDevicePropertyNominalSampleRate), 0, nullptr,
                &size_bytes, rates_hz),
            noErr);
  EXPECT_EQ(size_bytes, sizeof(double));
  EXPECT_EQ(rates_hz[0], 48000);
  EXPECT_EQ(rates_hz[1], -1);
}

TEST_F(HardwareContract, TheOlderCallReadsTheSame) {
  const std::string uid = rig->plugInMicrophone("mic");
  platform::StringRef text = nullptr;
  std::uint32_t size_bytes = sizeof text;
  ASSERT_EQ(hardware().AudioDeviceGetProperty(deviceWithUID(uid), 0, false,
                                              platform::kAudioDevicePropertyDeviceUID, &size_bytes,
                                              &text),
            noErr);
  const platform::OwnedString owned(text);
  EXPECT_EQ(owned->text(), uid);
}

TEST_F(HardwareContract, APropertyThatADeviceDoesNotHaveIsUnknown) {
  const AudioDeviceID device = deviceWithUID(rig->plugInMicrophone("mic"));
  const auto address = global(platform::fourCharCode("none"));
  EXPECT_FALSE(hardware().AudioObjectHasProperty(device, address));
  std::uint32_t size_bytes = 8;
  EXPECT_EQ(hardware().AudioObjectGetPropertyDataSize(device, address, 0, nullptr, &size_bytes),
            platform::kAudioHardwareUnknownPropertyError);
  double value = -1;
  EXPECT_EQ(hardware().AudioObjectGetPropertyData(device, address, 0, nullptr, &size_bytes, &value),
            platform::kAudioHardwareUnknownPropertyError);
  EXPECT_EQ(value, -1);
}

TEST_F(HardwareContract, ADeviceThatHasGoneIsABadObject) {
  const std::string uid = rig->plugInMicrophone("mic");
  const AudioDeviceID device = deviceWithUID(uid);
  rig->unplug(uid);
  ASSERT_TRUE(rig->runUntil([&] { return deviceWithUID(uid) == platform::kAudioObjectUnknown; }));
  EXPECT_THAT(devices(), Not(Contains(device)));
  const auto address = global(platform::kAudioDevicePropertyNominalSampleRate);
  EXPECT_FALSE(hardware().AudioObjectHasProperty(device, address));
  double rate_hz = -1;
  std::uint32_t size_bytes = sizeof rate_hz;
  EXPECT_EQ(
      hardware().AudioObjectGetPropertyData(device, address, 0, nullptr, &size_bytes, &rate_hz),
      platform::kAudioHardwareBadObjectError);
  EXPECT_EQ(rate_hz, -1);
}

TEST_F(HardwareContract, ARecordingDeviceHasARateAndItsChannelsInALayout) {
  const AudioDeviceID device = deviceWithUID(rig->plugInMicrophone("mic"));
  double rate_hz = 0;
  std::uint32_t size_bytes = sizeof rate_hz;
  EXPECT_EQ(hardware().AudioObjectGetPropertyData(
                device, side(platform::kAudioDevicePropertyActualSampleRate, true), 0, nullptr,
                &size_bytes, &rate_hz),
            noErr);
  EXPECT_NEAR(rate_hz, 48000, 480);
  const auto layoutAddress = side(platform::kAudioDevicePropertyPreferredChannelLayout, true);
  EXPECT_EQ(
      hardware().AudioObjectGetPropertyDataSize(device, layoutAddress, 0, nullptr, &size_bytes),
      noErr);
  EXPECT_EQ(size_bytes,
            sizeof(platform::AudioChannelLayout) + sizeof(platform::AudioChannelDescription));
  platform::AudioChannelLayout cut{};
  size_bytes = sizeof cut;
  EXPECT_EQ(
      hardware().AudioObjectGetPropertyData(device, layoutAddress, 0, nullptr, &size_bytes, &cut),
      noErr);
  EXPECT_EQ(cut.mNumberChannelDescriptions, 2U);
}

TEST_F(HardwareContract, VolumeAndMuteAreThoseOfTheMixer) {
  // Not the microphone of other tests: the system remembers that this one is turned down.
  const std::string uid = rig->plugInMicrophone("quiet-mic");
  const AudioDeviceID device = deviceWithUID(uid);
  float volume = -1;
  std::uint32_t mute = 2;
  const auto read = [&](std::uint32_t selector, auto& value) {
    std::uint32_t size_bytes = sizeof value;
    return hardware().AudioObjectHasProperty(device, side(selector, true)) &&
           hardware().AudioObjectGetPropertyData(device, side(selector, true), 0, nullptr,
                                                 &size_bytes, &value) == noErr &&
           size_bytes == sizeof value;
  };
  const auto readBoth = [&] {
    return read(platform::kAudioDevicePropertyVolumeScalar, volume) &&
           read(platform::kAudioDevicePropertyMute, mute);
  };
  rig->setLevel(uid, 1, false);
  EXPECT_TRUE(rig->runUntil([&] { return readBoth() && volume == 1 && mute == 0; })) << volume;
  rig->setLevel(uid, 0.5F, true);
  EXPECT_TRUE(rig->runUntil([&] { return readBoth() && volume < 1 && mute == 1; })) << volume;
  EXPECT_GT(volume, 0);
  rig->setLevel(uid, 0, false);
  EXPECT_TRUE(rig->runUntil([&] { return readBoth() && volume == 0 && mute == 0; })) << volume;
  EXPECT_FALSE(hardware().AudioObjectHasProperty(
      device, side(platform::kAudioDevicePropertyVolumeScalar, false)))
      << "it has no output";
}

TEST_F(HardwareContract, EachSideHasABufferAndAnOffset) {
  const AudioDeviceID microphone = deviceWithUID(rig->plugInMicrophone("mic"));
  const AudioDeviceID speakers = deviceWithUID(rig->plugInSpeakers("speakers"));
  for (const auto& [device, isInput] : {std::pair(microphone, true), std::pair(speakers, false)}) {
    std::uint32_t frames = 0;
    std::uint32_t size_bytes = sizeof frames;
    EXPECT_EQ(hardware().AudioDeviceGetProperty(device, 0, isInput,
                                                platform::kAudioDevicePropertyBufferFrameSize,
                                                &size_bytes, &frames),
              noErr);
    EXPECT_EQ(size_bytes, sizeof frames);
    EXPECT_GT(frames, 0U);
    std::uint32_t offset_frames = 0xffffffff;
    EXPECT_EQ(hardware().AudioDeviceGetProperty(device, 0, isInput,
                                                platform::kAudioDevicePropertySafetyOffset,
                                                &size_bytes, &offset_frames),
              noErr);
    EXPECT_LT(offset_frames, 48000U);
  }
}

TEST_F(HardwareContract, TheDefaultInputIsTheOnlyMicrophone) {
  const AudioDeviceID microphone = deviceWithUID(rig->plugInMicrophone("mic"));
  EXPECT_TRUE(rig->runUntil([&] {
    AudioDeviceID device = platform::kAudioObjectUnknown;
    std::uint32_t size_bytes = sizeof device;
    return hardware().AudioObjectGetPropertyData(
               kAudioObjectSystemObject, global(platform::kAudioHardwarePropertyDefaultInputDevice),
               0, nullptr, &size_bytes, &device) == noErr &&
           device == microphone;
  }));
}

TEST_F(HardwareContract, TheClockOfADeviceThatDoesNotRunIsNotRead) {
  const AudioDeviceID device = deviceWithUID(rig->plugInMicrophone("mic"));
  platform::AudioTimeStamp time;
  EXPECT_EQ(hardware().AudioDeviceGetCurrentTime(device, &time),
            platform::kAudioHardwareNotRunningError);
}

TEST_F(HardwareContract, TheDefaultOutputIsWhatItIsSetTo) {
  const auto address = global(platform::kAudioHardwarePropertyDefaultOutputDevice);
  const auto defaultOutput = [&] {
    AudioDeviceID device = 12345;
    std::uint32_t size_bytes = sizeof device;
    EXPECT_EQ(hardware().AudioObjectGetPropertyData(kAudioObjectSystemObject, address, 0, nullptr,
                                                    &size_bytes, &device),
              noErr);
    return device;
  };
  const AudioDeviceID one = deviceWithUID(rig->plugInSpeakers("one"));
  const AudioDeviceID two = deviceWithUID(rig->plugInSpeakers("two"));
  for (const AudioDeviceID device : {one, two, one}) {
    EXPECT_EQ(hardware().AudioHardwareSetProperty(
                  platform::kAudioHardwarePropertyDefaultOutputDevice, sizeof device, &device),
              noErr);
    EXPECT_TRUE(rig->runUntil([&] { return defaultOutput() == device; }));
  }
  EXPECT_EQ(hardware().AudioObjectSetPropertyData(kAudioObjectSystemObject, address, 0, nullptr,
                                                  sizeof two, &two),
            noErr);
  EXPECT_TRUE(rig->runUntil([&] { return defaultOutput() == two; }));
}

TEST_F(HardwareContract, TheDefaultOutputIsNoDeviceThatIsNotThere) {
  const AudioDeviceID none = 0x7ffffff0;
  EXPECT_EQ(hardware().AudioHardwareSetProperty(platform::kAudioHardwarePropertyDefaultOutputDevice,
                                                sizeof none, &none),
            platform::kAudioHardwareBadDeviceError);
  EXPECT_EQ(hardware().AudioHardwareSetProperty(platform::kAudioHardwarePropertyDefaultOutputDevice,
                                                3, &none),
            platform::kAudioHardwareBadPropertySizeError);
}

class DefaultsContract : public ContractTest {
 protected:
  platform::UserDefaults& defaults() { return host().userDefaults; }
};

TEST_F(DefaultsContract, WhatIsSetIsReadAtOnceAndConvertedAsItsTypeWants) {
  defaults().setInteger(7, "contract integer");
  defaults().setBool(true, "contract bool");
  defaults().setObject("text", "contract text");
  defaults().setObject(platform::Dictionary{{"key", 1}}, "contract dictionary");
  EXPECT_EQ(defaults().integerForKey("contract integer"), 7);
  EXPECT_EQ(defaults().stringForKey("contract integer"), "7");
  EXPECT_EQ(defaults().dictionaryForKey("contract integer"), std::nullopt);
  EXPECT_TRUE(defaults().boolForKey("contract bool"));
  EXPECT_EQ(defaults().objectForKey("contract bool"), platform::Value(true));
  EXPECT_EQ(defaults().integerForKey("contract text"), 0);
  EXPECT_EQ(defaults().stringForKey("contract text"), "text");
  EXPECT_EQ(defaults().dictionaryForKey("contract dictionary"), (platform::Dictionary{{"key", 1}}));
  EXPECT_EQ(defaults().stringForKey("contract dictionary"), std::nullopt);
  EXPECT_TRUE(defaults().synchronize());
  defaults().setInteger(8, "contract integer");
  EXPECT_EQ(defaults().integerForKey("contract integer"), 8);
}

TEST_F(DefaultsContract, WhatIsWrittenThroughIsThereForTheNextStart) {
  const platform::Dictionary nested{{"text", "ä"}, {"list", platform::Array{1, true, 0.5}}};
  defaults().setObject(nested, "contract stored");
  defaults().setBool(false, "contract switch");
  ASSERT_TRUE(defaults().synchronize());
  EXPECT_EQ(rig->storedSetting("contract stored"), platform::Value(nested));
  EXPECT_EQ(rig->storedSetting("contract switch"), platform::Value(false));
  EXPECT_EQ(rig->storedSetting("never set"), std::nullopt);
  defaults().setInteger(3, "contract stored");
  ASSERT_TRUE(defaults().synchronize());
  EXPECT_EQ(rig->storedSetting("contract stored"), platform::Value(3));
}

TEST_F(DefaultsContract, WhatCannotBeWrittenStaysPending) {
  defaults().setInteger(9, "contract integer");
  rig->limitFiles(0);
  EXPECT_FALSE(defaults().synchronize());
  EXPECT_EQ(defaults().integerForKey("contract integer"), 9);
  EXPECT_FALSE(defaults().synchronize()) << "it is still to be written";
  rig->limitFiles(std::nullopt);
  EXPECT_TRUE(defaults().synchronize());
}

}  // namespace
}  // namespace contract
