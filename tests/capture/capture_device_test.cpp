// SPDX-License-Identifier: MIT
#include "capture/capture_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/memory_host/memory_host.h"

namespace {

using memory_host::MemoryCaptureDevice;
using memory_host::MemoryHost;
using record_audio::CaptureDevice;
using testing::ElementsAre;

std::vector<std::string> namesOf(const std::vector<CaptureDevice>& devices) {
  std::vector<std::string> names;
  for (const auto& device : devices) names.push_back(device.name());
  return names;
}

std::vector<std::string> idsOf(const std::vector<CaptureDevice>& devices) {
  std::vector<std::string> ids;
  for (const auto& device : devices) ids.push_back(device.uniqueId());
  return ids;
}

void addCamera(MemoryHost& memory, const std::string& id, const std::string& name) {
  memory.capture.videoDevices.push_back(std::make_shared<MemoryCaptureDevice>(id, name));
}

TEST(CaptureDeviceTest, HoldsAndChangesItsIdAndName) {
  CaptureDevice device("id", "name");
  EXPECT_EQ(device.uniqueId(), "id");
  EXPECT_EQ(device.name(), "name");
  device.setUniqueId("other id");
  device.setName("other name");
  EXPECT_EQ(device.uniqueId(), "other id");
  EXPECT_EQ(device.name(), "other name");
}

TEST(CaptureDeviceTest, KnowsBuiltInCamerasByThreeWordsInLowerCase) {
  EXPECT_TRUE(CaptureDevice::isFaceTime("a facetime hd camera"));
  EXPECT_TRUE(CaptureDevice::isFaceTime("isight"));
  EXPECT_TRUE(CaptureDevice::isFaceTime("my built-in camera"));
  EXPECT_FALSE(CaptureDevice::isFaceTime("usb camera"));
  EXPECT_FALSE(CaptureDevice::isFaceTime("FaceTime"));
  EXPECT_FALSE(CaptureDevice::isFaceTime(""));
}

// A name proves nothing: other makers use the same names.
TEST(CaptureDeviceTest, KnowsBuiltInMicrophonesByTheirExactManufacturer) {
  EXPECT_TRUE(
      CaptureDevice::isBuiltInMic(MemoryCaptureDevice("a", "A", platform::kBuiltInManufacturer)));
  EXPECT_FALSE(CaptureDevice::isBuiltInMic(MemoryCaptureDevice("a", "A", "apple inc.")));
  EXPECT_FALSE(CaptureDevice::isBuiltInMic(MemoryCaptureDevice("a", "A", "")));
}

TEST(CaptureDeviceTest, ListsBuiltInMicrophonesFirstAndKeepsTheOrderWithinEachGroup) {
  MemoryHost memory;
  memory.capture.connect("u1", "USB one");
  memory.capture.connect("b1", "Built one", platform::kBuiltInManufacturer);
  memory.capture.connect("u2", "USB two");
  memory.capture.connect("b2", "Built two", platform::kBuiltInManufacturer);
  EXPECT_THAT(idsOf(CaptureDevice::enumerateMics(memory.host)),
              ElementsAre("b1", "b2", "u1", "u2"));
}

TEST(CaptureDeviceTest, NeverListsTheLoopbackDeviceWhateverItsManufacturer) {
  for (const char* const manufacturer : {platform::kBuiltInManufacturer, "Vantrel"}) {
    MemoryHost memory;
    memory.capture.connect("com.vantrel.loopbackdevice", "Loopback", manufacturer);
    memory.capture.connect("mic", "Microphone");
    EXPECT_THAT(idsOf(CaptureDevice::enumerateMics(memory.host)), ElementsAre("mic"));
  }
}

TEST(CaptureDeviceTest, ListsAnotherMakersMicrophoneNamedBuiltInInTheSecondGroup) {
  MemoryHost memory;
  memory.capture.connect("other", "Built-in Microphone", "Other Maker");
  memory.capture.connect("own", "Built-in Microphone", platform::kBuiltInManufacturer);
  EXPECT_THAT(idsOf(CaptureDevice::enumerateMics(memory.host)), ElementsAre("own", "other"));
}

// The id tells them apart; leaving one out would make it unreachable.
TEST(CaptureDeviceTest, ListsBothOfTwoDevicesWithTheSameName) {
  MemoryHost memory;
  memory.capture.connect("a", "Microphone");
  memory.capture.connect("b", "Microphone");
  EXPECT_THAT(namesOf(CaptureDevice::enumerateMics(memory.host)),
              ElementsAre("Microphone", "Microphone"));
}

TEST(CaptureDeviceTest, AppendsTheActiveSourceInParenthesesOrShowsThePlainName) {
  MemoryHost memory;
  memory.capture.connect("a", "Headset")->source = "Line In";
  memory.capture.connect("b", "Plain");
  EXPECT_THAT(namesOf(CaptureDevice::enumerateMics(memory.host)),
              ElementsAre("Headset (Line In)", "Plain"));
}

TEST(CaptureDeviceTest, ListsNothingWithoutAudioDevices) {
  MemoryHost memory;
  EXPECT_TRUE(CaptureDevice::enumerateMics(memory.host).empty());
}

TEST(CaptureDeviceTest, ListsBuiltInCamerasFirstWithUnchangedNames) {
  MemoryHost memory;
  addCamera(memory, "u", "USB Camera");
  addCamera(memory, "f", "FaceTime HD Camera");
  addCamera(memory, "v", "Virtual Camera");
  addCamera(memory, "i", "BUILT-IN iSight");
  addCamera(memory, "c", "FACETIME");
  const auto cameras = CaptureDevice::enumerateCameras(memory.host);
  EXPECT_THAT(namesOf(cameras), ElementsAre("FaceTime HD Camera", "BUILT-IN iSight", "FACETIME",
                                            "USB Camera", "Virtual Camera"));
  EXPECT_THAT(idsOf(cameras), ElementsAre("f", "i", "c", "u", "v"));
}

TEST(CaptureDeviceTest, ListsNoCamerasAndDoesNotAskForThemWhenTheyAreBlocked) {
  MemoryHost memory;
  addCamera(memory, "f", "FaceTime");
  memory.userAccount.existing.insert(
      "/home/user/Library/Application Support/com.vantrel.korvel.disablecamera");
  EXPECT_TRUE(CaptureDevice::enumerateCameras(memory.host).empty());
  EXPECT_EQ(memory.capture.videoRequests, 0);
}

}  // namespace
