// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spa/param/audio/raw.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "driver/loopback_protocol.h"
#include "hosts/linux/audio/pipewire_audio_hardware.h"
#include "platform/capture.h"
#include "tests/base/temporary_folder.h"
#include "tests/integration/hardware_reader.h"
#include "tests/support/child_process.h"
#include "tests/support/pipewire_control.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/signal_feed.h"

namespace linux_host {
namespace {

using namespace platform;
using namespace std::chrono_literals;
using test_support::PipeWireControl;
using test_support::PrivatePipeWire;
using test_support::SignalFeed;
using test_support::waitUntil;
using testing::ElementsAre;

class AudioHardwareTest : public testing::Test {
 protected:
  PrivatePipeWire server;
  PipeWireControl control;
  DeviceClockTable clocks;
};

class ConnectedHardwareTest : public AudioHardwareTest {
 protected:
  PipeWireConnection connection;
  PipeWireAudioHardware hardware{connection, clocks};
  HardwareReader read{hardware};
};

TEST_F(AudioHardwareTest, FirstReadSeesEveryDevice) {
  control.createMicrophone("mic.a");
  control.createSink("sink.b");
  const auto begin = std::chrono::steady_clock::now();
  PipeWireConnection connection;
  const auto constructed = std::chrono::steady_clock::now();
  PipeWireAudioHardware hardware(connection, clocks);
  HardwareReader read(hardware);
  const auto devices = read.ids(kAudioObjectSystemObject, global(kAudioHardwarePropertyDevices));
  const auto seen = std::chrono::steady_clock::now();
  EXPECT_THAT(devices, ElementsAre(read.deviceWithUID("mic.a"), read.deviceWithUID("sink.b")));
  using Milliseconds = std::chrono::duration<double, std::milli>;
  RecordProperty("construction_ms", std::to_string(Milliseconds(constructed - begin).count()));
  std::printf("construction %.2f ms, first read %.2f ms\n",
              Milliseconds(constructed - begin).count(), Milliseconds(seen - begin).count());
}

TEST_F(ConnectedHardwareTest, DevicesHaveNamesAndSides) {
  control.createMicrophone("mic.a");
  control.createSink("sink.b", {{"audio.position", "FL,FR,FC,LFE,RL,RR"}});
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("sink.b") != 0; }));
  const AudioDeviceID mic = read.deviceWithUID("mic.a");
  const AudioDeviceID sink = read.deviceWithUID("sink.b");
  EXPECT_GT(mic, kAudioObjectSystemObject);
  EXPECT_NE(mic, sink);
  EXPECT_EQ(read.text(mic, global(kAudioDevicePropertyDeviceUID)), "mic.a");
  EXPECT_EQ(read.text(sink, global(kAudioDevicePropertyDeviceUID)), "sink.b");
  EXPECT_EQ(read.channels(mic, kAudioDevicePropertyScopeInput), 2U);
  EXPECT_EQ(read.channels(mic, kAudioDevicePropertyScopeOutput), 0U);
  EXPECT_EQ(read.channels(sink, kAudioDevicePropertyScopeInput), 0U);
  EXPECT_EQ(read.channels(sink, kAudioDevicePropertyScopeOutput), 6U);
  EXPECT_EQ(read.deviceWithUID("no.such.device"), kAudioObjectUnknown);
}

// While such a node runs, its format has the positions in another form than a device's.
TEST_F(ConnectedHardwareTest, PositionsOfARunningLoopbackAreRead) {
  control.createMicrophone("mic.a");
  control.setDefaultSource("mic.a");
  const test_support::ChildProcess loopback(
      {{"pw-loopback", "--channels", "6", "-m", "[ FL FR RL RR FC LFE ]", "--capture-props",
        "{ target.object = mic.a }", "--playback-props",
        "{ media.class = Audio/Source node.name = loop.source }"},
       {},
       server.directory() + "/log"});
  std::vector<std::uint32_t> positions;
  ASSERT_TRUE(waitUntil([&] {
    bool isRunning = false;
    connection.withGraph([&](const AudioGraph& graph) {
      const AudioNode* node = graph.findNode("loop.source");
      isRunning = node != nullptr && node->format.has_value();
      if (isRunning) positions = graph.channelPositions(*node);
    });
    return isRunning;
  })) << server.log();
  EXPECT_THAT(positions,
              ElementsAre(SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_RL,
                          SPA_AUDIO_CHANNEL_RR, SPA_AUDIO_CHANNEL_FC, SPA_AUDIO_CHANNEL_LFE));
}

// PipeWire 1.4 reports them only once the node has run, to us and to mixers.
TEST_F(ConnectedHardwareTest, VolumeAndMuteFollowTheMixer) {
  control.createMicrophone("mic.a");
  const SignalFeed feed("feed", 2, test_support::tone1000Hz);
  control.link("feed", "mic.a");
  ASSERT_TRUE(waitUntil([&] { return feed.framesPlayed() > 0; }));
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.a") != 0; }));
  const AudioDeviceID mic = read.deviceWithUID("mic.a");
  EXPECT_TRUE(hardware.AudioObjectHasProperty(mic, input(kAudioDevicePropertyVolumeScalar)));
  EXPECT_FALSE(hardware.AudioObjectHasProperty(mic, output(kAudioDevicePropertyVolumeScalar)));
  EXPECT_TRUE(hardware.AudioObjectHasProperty(mic, input(kAudioDevicePropertyMute)));
  EXPECT_EQ(read.scalar<float>(mic, input(kAudioDevicePropertyVolumeScalar)), 1.0F);
  EXPECT_EQ(read.scalar<std::uint32_t>(mic, input(kAudioDevicePropertyMute)), 0U);

  control.setVolume("mic.a", 0.125F);
  EXPECT_TRUE(waitUntil(
      [&] { return read.scalar<float>(mic, input(kAudioDevicePropertyVolumeScalar)) == 0.125F; }));
  control.setVolume("mic.a", 0.0F);
  EXPECT_TRUE(waitUntil(
      [&] { return read.scalar<float>(mic, input(kAudioDevicePropertyVolumeScalar)) == 0.0F; }));
  control.setMute("mic.a", true);
  EXPECT_TRUE(waitUntil(
      [&] { return read.scalar<std::uint32_t>(mic, input(kAudioDevicePropertyMute)) == 1U; }));
  control.setMute("mic.a", false);
  EXPECT_TRUE(waitUntil(
      [&] { return read.scalar<std::uint32_t>(mic, input(kAudioDevicePropertyMute)) == 0U; }));
}

TEST_F(ConnectedHardwareTest, MuteOfAMicrophoneThatNeverRanIsSeenOnceItRuns) {
  control.createMicrophone("mic.a");
  control.setMute("mic.a", true);
  const SignalFeed feed("feed", 2, test_support::tone1000Hz);
  control.link("feed", "mic.a");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.a") != 0; }));
  const AudioDeviceID mic = read.deviceWithUID("mic.a");
  EXPECT_TRUE(waitUntil(
      [&] { return read.scalar<std::uint32_t>(mic, input(kAudioDevicePropertyMute)) == 1U; }));
}

TEST_F(ConnectedHardwareTest, SameNameIsTheSameObjectAfterReplugging) {
  control.createMicrophone("mic.a");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.a") != 0; }));
  const AudioDeviceID first = read.deviceWithUID("mic.a");
  control.destroyNode("mic.a");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.a") == 0; }));
  EXPECT_FALSE(hardware.AudioObjectHasProperty(first, global(kAudioDevicePropertyDeviceUID)));
  std::uint32_t size = 0;
  EXPECT_EQ(hardware.AudioObjectGetPropertyDataSize(first, global(kAudioDevicePropertyDeviceUID), 0,
                                                    nullptr, &size),
            kAudioHardwareBadObjectError);
  control.createMicrophone("other");
  control.createMicrophone("mic.a");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.a") != 0; }));
  EXPECT_EQ(read.deviceWithUID("mic.a"), first);
}

TEST_F(ConnectedHardwareTest, DefaultDevicesFollowTheUsersChoice) {
  control.createMicrophone("mic.a");
  control.createMicrophone("mic.b");
  control.createSink("sink.a");
  control.createSink("sink.b");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("sink.b") != 0; }));
  const auto defaultIs = [&](std::uint32_t selector, const char* uid) {
    return waitUntil([&, uid] {
      return read.scalar<AudioDeviceID>(kAudioObjectSystemObject, global(selector)) ==
             read.deviceWithUID(uid);
    });
  };
  for (const char* name : {"mic.a", "mic.b", "mic.a"}) {
    control.setDefaultSource(name);
    EXPECT_TRUE(defaultIs(kAudioHardwarePropertyDefaultInputDevice, name)) << name;
  }
  for (const char* name : {"sink.b", "sink.a"}) {
    control.setDefaultSink(name);
    EXPECT_TRUE(defaultIs(kAudioHardwarePropertyDefaultOutputDevice, name)) << name;
  }
}

TEST_F(ConnectedHardwareTest, SettingTheDefaultOutputConfiguresIt) {
  control.createSink("sink.a");
  control.createSink("sink.b");
  control.createMicrophone("mic.a");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.a") != 0; }));
  control.setDefaultSink("sink.a");
  AudioDeviceID sink = read.deviceWithUID("sink.b");
  ASSERT_EQ(hardware.AudioHardwareSetProperty(kAudioHardwarePropertyDefaultOutputDevice,
                                              sizeof sink, &sink),
            noErr);
  EXPECT_TRUE(waitUntil([&] {
    return read.scalar<AudioDeviceID>(kAudioObjectSystemObject,
                                      global(kAudioHardwarePropertyDefaultOutputDevice)) == sink;
  }));
  EXPECT_TRUE(waitUntil(
      [&] { return control.metadata("default.configured.audio.sink") == R"({"name":"sink.b"})"; }));

  AudioDeviceID mic = read.deviceWithUID("mic.a");
  EXPECT_EQ(hardware.AudioHardwareSetProperty(kAudioHardwarePropertyDefaultOutputDevice, sizeof mic,
                                              &mic),
            kAudioHardwareBadDeviceError);
  EXPECT_EQ(hardware.AudioHardwareSetProperty(kAudioHardwarePropertyDefaultOutputDevice, 2, &mic),
            kAudioHardwareBadPropertySizeError);
  EXPECT_EQ(
      hardware.AudioHardwareSetProperty(kAudioHardwarePropertyDefaultInputDevice, sizeof mic, &mic),
      kAudioHardwareUnknownPropertyError);
}

TEST_F(ConnectedHardwareTest, ChannelLayoutIsCutToTheReadersBufferButKeepsItsCount) {
  control.createMicrophone("mic.4", {{"audio.position", "FL,FR,RL,RR"}});
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.4") != 0; }));
  const AudioDeviceID mic = read.deviceWithUID("mic.4");
  const auto address = input(kAudioDevicePropertyPreferredChannelLayout);
  std::uint32_t size = 0;
  ASSERT_EQ(hardware.AudioObjectGetPropertyDataSize(mic, address, 0, nullptr, &size), noErr);
  EXPECT_EQ(size, 12U + 4 * 20U);
  AudioChannelLayout layout{};
  size = sizeof layout;
  ASSERT_EQ(hardware.AudioObjectGetPropertyData(mic, address, 0, nullptr, &size, &layout), noErr);
  EXPECT_EQ(size, 32U);
  EXPECT_EQ(layout.mNumberChannelDescriptions, 4U);
  EXPECT_EQ(layout.mChannelDescriptions[0].mChannelLabel, 1U);
}

TEST_F(ConnectedHardwareTest, ActualRateOfARecordedDeviceIsThatOfItsStream) {
  control.createMicrophone("mic.a");
  control.createMicrophone("mic.b");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.b") != 0; }));
  // The graph has changed its rate since the stream was created.
  hardware.setRunningRate([](const std::string& uid) { return uid == "mic.a" ? 44100U : 0U; });
  const auto rateOf = [&](const char* name, std::uint32_t selector) {
    double rate = 0;
    std::uint32_t size = sizeof rate;
    EXPECT_EQ(hardware.AudioObjectGetPropertyData(read.deviceWithUID(name), input(selector), 0,
                                                  nullptr, &size, &rate),
              noErr);
    return rate;
  };
  EXPECT_EQ(rateOf("mic.a", kAudioDevicePropertyActualSampleRate), 44100);
  EXPECT_EQ(rateOf("mic.a", kAudioDevicePropertyNominalSampleRate), 48000);
  EXPECT_EQ(rateOf("mic.b", kAudioDevicePropertyActualSampleRate), 48000);
}

TEST_F(ConnectedHardwareTest, RatesAndSizesAreThoseOfTheGraph) {
  control.createMicrophone("mic.a");
  control.createMicrophone("mic.44", {{"audio.rate", "44100"}});
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.44") != 0; }));
  const AudioDeviceID mic = read.deviceWithUID("mic.a");
  for (std::uint32_t selector :
       {kAudioDevicePropertyActualSampleRate, kAudioDevicePropertyNominalSampleRate}) {
    EXPECT_EQ(read.scalar<double>(mic, input(selector)), 48000.0);
    EXPECT_EQ(read.scalar<double>(read.deviceWithUID("mic.44"), input(selector)), 44100.0);
  }
  EXPECT_EQ(read.scalar<std::uint32_t>(mic, input(kAudioDevicePropertyBufferFrameSize)), 1024U);
  EXPECT_EQ(read.scalar<std::uint32_t>(mic, input(kAudioDevicePropertySafetyOffset)), 0U);
}

TEST_F(ConnectedHardwareTest, BuiltInDevicesAreTheOnesInsideTheComputer) {
  control.createMicrophone("mic.pci", {{"device.bus", "pci"}});
  control.createMicrophone("mic.form", {{"device.form-factor", "internal"}});
  control.createMicrophone(
      "mic.usb",
      {{"device.bus", "usb"}, {"device.form-factor", "internal"}, {"device.vendor.name", "Maker"}});
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("mic.usb") != 0; }));
  const auto address = global(kAudioDevicePropertyDeviceManufacturerCFString);
  EXPECT_EQ(read.text(read.deviceWithUID("mic.pci"), address), kBuiltInManufacturer);
  EXPECT_EQ(read.text(read.deviceWithUID("mic.form"), address), kBuiltInManufacturer);
  EXPECT_EQ(read.text(read.deviceWithUID("mic.usb"), address), "Maker");
}

TEST_F(ConnectedHardwareTest, VisibleLoopbackHasAnInputSideWithoutVolume) {
  control.createSink(loopback::kLoopbackDeviceUID,
                     {{loopback::kLoopbackDeviceManufacturerKey, "1.0.3"}});
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID(loopback::kLoopbackDeviceUID) != 0; }));
  const AudioDeviceID device = read.deviceWithUID(loopback::kLoopbackDeviceUID);
  const SignalFeed feed("feed", 2, test_support::tone1000Hz);
  control.link("feed", loopback::kLoopbackDeviceUID);
  control.setMute(loopback::kLoopbackDeviceUID, true);
  EXPECT_TRUE(waitUntil(
      [&] { return read.scalar<std::uint32_t>(device, output(kAudioDevicePropertyMute)) == 1U; }));
  EXPECT_EQ(read.channels(device, kAudioDevicePropertyScopeInput), 2U);
  EXPECT_EQ(read.channels(device, kAudioDevicePropertyScopeOutput), 2U);
  EXPECT_FALSE(hardware.AudioObjectHasProperty(device, input(kAudioDevicePropertyMute)));
  EXPECT_FALSE(hardware.AudioObjectHasProperty(device, input(kAudioDevicePropertyVolumeScalar)));
  EXPECT_EQ(read.text(device, global(kAudioDevicePropertyDeviceManufacturerCFString)), "1.0.3");
}

// Here the test's own program counts as the driver's.
class LoopbackHardwareTest : public AudioHardwareTest {
 protected:
  const base_test::Environment environment{{"KORVEL_LOOPBACK_DRIVER", "/proc/self/exe"}};
  PipeWireConnection connection;
  PipeWireAudioHardware hardware{connection, clocks};
  HardwareReader read{hardware};
};

TEST_F(LoopbackHardwareTest, WaitsForAnExpectedDriverButNotForever) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(read.deviceWithUID("mic.a"), kAudioObjectUnknown);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, PipeWireConnection::kStartLimit);
  EXPECT_EQ(read.deviceWithUID(loopback::kLoopbackDeviceUID), kAudioObjectUnknown);
  EXPECT_GE(std::chrono::steady_clock::now() - begin,
            PipeWireConnection::kDriverGrace - std::chrono::milliseconds(500));
  const auto second = std::chrono::steady_clock::now();
  EXPECT_EQ(read.deviceWithUID(loopback::kLoopbackDeviceUID), kAudioObjectUnknown);
  EXPECT_LT(std::chrono::steady_clock::now() - second, std::chrono::seconds(1));
}

TEST_F(LoopbackHardwareTest, ADriverThatComesLateIsFound) {
  std::thread late([this] {
    const auto begin = std::chrono::steady_clock::now();
    waitUntil([&] { return std::chrono::steady_clock::now() - begin > 500ms; });
    control.setClientProperty(loopback::kLoopbackDriverKey, "1.0.3");
  });
  EXPECT_NE(read.deviceWithUID(loopback::kLoopbackDeviceUID), kAudioObjectUnknown);
  late.join();
}

// Any client may carry the driver's key.
TEST_F(ConnectedHardwareTest, AClientThatClaimsToBeTheDriverIsNotBelieved) {
  control.setClientProperty(loopback::kLoopbackDriverKey, "9.9.9");
  control.createSink("a.sink");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID("a.sink") != 0; }));
  EXPECT_EQ(read.deviceWithUID(loopback::kLoopbackDeviceUID), kAudioObjectUnknown);
}

TEST_F(LoopbackHardwareTest, HiddenLoopbackResolvesAndTakesRequestsWhileItsDriverRuns) {
  auto driver = std::make_unique<PipeWireControl>();
  driver->setClientProperty(loopback::kLoopbackDriverKey, "1.0.3");
  ASSERT_TRUE(waitUntil([&] { return read.deviceWithUID(loopback::kLoopbackDeviceUID) != 0; }));
  const AudioDeviceID device = read.deviceWithUID(loopback::kLoopbackDeviceUID);
  EXPECT_THAT(read.ids(kAudioObjectSystemObject, global(kAudioHardwarePropertyDevices)),
              ElementsAre());
  EXPECT_EQ(read.text(device, global(kAudioDevicePropertyDeviceManufacturerCFString)), "1.0.3");

  const OwnedString uid(StringObject::create(loopback::kLoopbackDeviceUID));
  const StringRef qualifier = uid.get();
  AudioObjectID controlObject = 0;
  std::uint32_t size = sizeof controlObject;
  ASSERT_EQ(
      hardware.AudioObjectGetPropertyData(device, global(kAudioObjectPropertyControlList),
                                          sizeof qualifier, &qualifier, &size, &controlObject),
      noErr);
  EXPECT_NE(controlObject, 0U);
  const auto value = global(kAudioBooleanControlPropertyValue);
  const auto request = [&](std::uint32_t number) {
    return hardware.AudioObjectSetPropertyData(controlObject, value, 0, nullptr, sizeof number,
                                               &number);
  };
  const auto requestSeen = [&](const char* text) {
    return waitUntil([&, text] {
      PipeWireControl fresh;
      for (const auto& client : fresh.clientProperties()) {
        const auto found = client.find(loopback::kLoopbackRequestKey);
        if (found != client.end() && found->second == text) return true;
      }
      return false;
    });
  };
  EXPECT_EQ(request(loopback::kLoopbackRequestShow), noErr);
  EXPECT_TRUE(requestSeen("64206"));
  EXPECT_EQ(request(loopback::kLoopbackRequestHide), noErr);
  EXPECT_TRUE(requestSeen("45067"));
  EXPECT_EQ(request(1), kAudioHardwareIllegalOperationError);
  EXPECT_EQ(hardware.AudioObjectSetPropertyData(0, value, 0, nullptr, sizeof size, &size),
            kAudioHardwareBadObjectError);

  driver.reset();
  EXPECT_TRUE(waitUntil([&] { return read.deviceWithUID(loopback::kLoopbackDeviceUID) == 0; }));
  EXPECT_EQ(request(loopback::kLoopbackRequestShow), kAudioHardwareBadObjectError);
}

TEST_F(ConnectedHardwareTest, ClockReadsAsStoppedUntilAStreamPublishes) {
  const AudioDeviceID device = hardware.deviceId("mic.a");
  AudioTimeStamp time;
  EXPECT_EQ(hardware.AudioDeviceGetCurrentTime(device, &time), kAudioHardwareNotRunningError);
  {
    DeviceClockTable::Publisher publisher = clocks.claim(device);
    EXPECT_EQ(hardware.AudioDeviceGetCurrentTime(device, &time), kAudioHardwareNotRunningError);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto now_ns = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
                        static_cast<std::uint64_t>(now.tv_nsec);
    publisher.publish({now_ns, 4800, 48000, 1.0003});
    ASSERT_EQ(hardware.AudioDeviceGetCurrentTime(device, &time), noErr);
    EXPECT_EQ(time.mRateScalar, 1.0003);
    EXPECT_GE(time.mHostTime, now_ns);
    EXPECT_GE(time.mSampleTime, 4800);
    EXPECT_NEAR(time.mSampleTime,
                4800 + static_cast<double>(time.mHostTime - now_ns) * 48000 * 1.0003 / 1e9, 0.01);
    // A clock that has not been updated for long belongs to a stopped device.
    publisher.publish({now_ns - 2'000'000'000, 4800, 48000, 1.0});
    EXPECT_EQ(hardware.AudioDeviceGetCurrentTime(device, &time), kAudioHardwareNotRunningError);
  }
  EXPECT_EQ(hardware.AudioDeviceGetCurrentTime(device, &time), kAudioHardwareNotRunningError);
}

}  // namespace
}  // namespace linux_host
