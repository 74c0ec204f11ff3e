// SPDX-License-Identifier: MIT
#include <cstring>
#include <set>

#include "tests/contract/contract_test.h"

// How every host refuses: what is asked for does not exist, or makes no sense, and the port says so
// in the way its header describes. A host that can do nothing at all passes this
// (tests/empty_host).

namespace contract {
namespace {

using platform::noErr;
using platform::OSStatus;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;

constexpr platform::AudioObjectID kNoObject = 0x7ffffff0;

class RefusalContract : public ContractTest {
 protected:
  static platform::AudioObjectPropertyAddress global(std::uint32_t selector) {
    return {selector, platform::kAudioObjectPropertyScopeGlobal,
            platform::kAudioObjectPropertyElementMaster};
  }
  [[nodiscard]] std::string missing(const std::string& name) {
    return rig->folder() + "/no folder/" + name;
  }
};

TEST_F(RefusalContract, FilesThatAreNotThere) {
  auto& files = host().fileManager;
  EXPECT_FALSE(files.fileExists(missing("a")));
  EXPECT_FALSE(files.createFile(missing("a")));
  EXPECT_EQ(files.fileHandleForUpdating(missing("a")), nullptr);
  EXPECT_THAT(files.moveItem(missing("a"), missing("b")), Not(StrEq("")));
  EXPECT_THAT(files.removeItem(missing("a")), Not(StrEq("")));
}

TEST_F(RefusalContract, SettingsThatWereNeverMade) {
  auto& defaults = host().userDefaults;
  EXPECT_EQ(defaults.objectForKey("never made"), std::nullopt);
  EXPECT_EQ(defaults.integerForKey("never made"), 0);
  EXPECT_FALSE(defaults.boolForKey("never made"));
  EXPECT_EQ(defaults.stringForKey("never made"), std::nullopt);
  EXPECT_EQ(defaults.dictionaryForKey("never made"), std::nullopt);
}

TEST_F(RefusalContract, TextsAndBundlesThatAreNotThere) {
  EXPECT_EQ(host().mainBundle.localizedString("no such text"), "no such text");
  EXPECT_EQ(host().bundleLoader.bundleWithPath(missing("bundle")), nullptr);
  EXPECT_THAT(
      host().launchServices.copyApplicationPathsForBundleIdentifier("com.vantrel.no.such.program"),
      IsEmpty());
  EXPECT_EQ(host().application.imageNamed("no such image"), nullptr);
  EXPECT_FALSE(host().userAccount.accessExists(missing("a")));
}

TEST_F(RefusalContract, TheProcessHasAPathAndNamesOfItsOwn) {
  EXPECT_THAT(host().processInfo.arguments(), Not(IsEmpty()));
  std::set<std::string> names;
  for (int i = 0; i < 100; ++i) names.insert(host().processInfo.globallyUniqueString());
  EXPECT_EQ(names.size(), 100U);
  for (const std::string& name : names) {
    EXPECT_EQ(name.find('/'), std::string::npos) << name;
    EXPECT_FALSE(name.empty());
  }
}

TEST_F(RefusalContract, TheClockNeverGoesBack) {
  EXPECT_GT(host().hostClock.timebaseInfo().numerator, 0U);
  EXPECT_GT(host().hostClock.timebaseInfo().denominator, 0U);
  const std::uint64_t before = host().hostClock.absoluteTime();
  EXPECT_GE(host().hostClock.absoluteTime(), before);
}

TEST_F(RefusalContract, TimersAndQueuesAreHandedOut) {
  const auto timer = host().runLoop.scheduledTimer(1000, 7, true, [](const auto&) { FAIL(); });
  ASSERT_NE(timer, nullptr);
  EXPECT_EQ(std::any_cast<int>(timer->userInfo()), 7);
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
  ASSERT_NE(host().dispatch.mainQueue(), nullptr);
  EXPECT_EQ(host().dispatch.mainQueue(), host().dispatch.mainQueue());
}

TEST_F(RefusalContract, DevicesThatAreNotThere) {
  auto& capture = host().capture;
  EXPECT_THAT(capture.devicesWithMediaType(platform::MediaType::kAudio), IsEmpty());
  EXPECT_THAT(capture.devicesWithMediaType(platform::MediaType::kVideo), IsEmpty());
  EXPECT_EQ(capture.defaultDeviceWithMediaType(platform::MediaType::kAudio), nullptr);
  EXPECT_EQ(capture.deviceWithUniqueID("no such device"), nullptr);
  std::string error;
  EXPECT_EQ(capture.createDeviceInput(nullptr, &error), nullptr);
  EXPECT_THAT(error, Not(StrEq("")));
}

TEST_F(RefusalContract, WithoutPermissionsEverythingIsPermitted) {
  auto& capture = host().capture;
  if (!capture.respondsToAuthorizationStatus()) {
    EXPECT_EQ(capture.authorizationStatusForMediaType(platform::MediaType::kAudio),
              platform::AuthorizationStatus::kAuthorized);
  }
}

TEST_F(RefusalContract, ASessionOfNothingDoesNotRun) {
  auto& capture = host().capture;
  const auto session = capture.createSession();
  ASSERT_NE(session, nullptr);
  session->setSessionPreset("no such preset");
  EXPECT_FALSE(session->canAddInput(nullptr));
  EXPECT_FALSE(session->canAddOutput(nullptr));
  session->addInput(nullptr);
  session->addOutput(nullptr);
  EXPECT_THAT(session->inputs(), IsEmpty());
  EXPECT_THAT(session->outputs(), IsEmpty());
  EXPECT_FALSE(session->isRunning());
  session->stopRunning();
  EXPECT_FALSE(session->isRunning());
  const auto output = capture.createAudioFileOutput();
  ASSERT_NE(output, nullptr);
  EXPECT_THROW(
      output->startRecordingToOutputFileURL("file:///nowhere", platform::kFileTypeMPEG4, {}),
      platform::CaptureException);
  output->stopRecording();
  ASSERT_NE(capture.createAudioDataOutput(), nullptr);
}

TEST_F(RefusalContract, PropertiesOfAudioObjectsThatAreNotThere) {
  auto& hardware = host().audioHardware;
  const auto uid = global(platform::kAudioDevicePropertyDeviceUID);
  EXPECT_FALSE(hardware.AudioObjectHasProperty(kNoObject, uid));
  std::uint32_t size_bytes = 8;
  EXPECT_NE(hardware.AudioObjectGetPropertyDataSize(kNoObject, uid, 0, nullptr, &size_bytes),
            noErr);
  double value = -1;
  size_bytes = sizeof value;
  EXPECT_NE(hardware.AudioObjectGetPropertyData(kNoObject, uid, 0, nullptr, &size_bytes, &value),
            noErr);
  EXPECT_NE(hardware.AudioDeviceGetProperty(
                kNoObject, 0, true, platform::kAudioDevicePropertyDeviceUID, &size_bytes, &value),
            noErr);
  EXPECT_EQ(value, -1);
  EXPECT_NE(hardware.AudioObjectSetPropertyData(kNoObject, uid, 0, nullptr, sizeof value, &value),
            noErr);
  EXPECT_NE(hardware.AudioHardwareSetProperty(platform::fourCharCode("none"), sizeof value, &value),
            noErr);
  EXPECT_FALSE(hardware.AudioObjectHasProperty(platform::kAudioObjectSystemObject,
                                               global(platform::fourCharCode("none"))));
  platform::AudioTimeStamp time;
  EXPECT_EQ(hardware.AudioDeviceGetCurrentTime(kNoObject, &time),
            platform::kAudioHardwareNotRunningError);
}

TEST_F(RefusalContract, InvalidUnitsAndGraphs) {
  auto& units = host().audioUnits;
  EXPECT_EQ(units.AudioComponentFindNext(nullptr, {platform::fourCharCode("none"), 0, 0, 0, 0}),
            nullptr);
  int storage = 0;
  auto* unit = reinterpret_cast<platform::AudioUnit>(&storage);
  EXPECT_NE(units.AudioComponentInstanceNew(nullptr, &unit), noErr);
  platform::AUNode node = 0;
  for (platform::AudioUnit none : {static_cast<platform::AudioUnit>(nullptr),
                                   reinterpret_cast<platform::AudioUnit>(&storage)}) {
    std::uint32_t value = 0;
    std::uint32_t size_bytes = sizeof value;
    EXPECT_NE(units.AudioComponentInstanceDispose(none), noErr);
    EXPECT_NE(units.AudioUnitInitialize(none), noErr);
    EXPECT_NE(units.AudioUnitUninitialize(none), noErr);
    EXPECT_NE(units.AudioUnitSetProperty(none, 0, 0, 0, &value, size_bytes), noErr);
    EXPECT_NE(units.AudioUnitGetProperty(none, 0, 0, 0, &value, &size_bytes), noErr);
    EXPECT_NE(units.AudioOutputUnitStart(none), noErr);
    EXPECT_NE(units.AudioOutputUnitStop(none), noErr);
  }
  platform::AUGraph none = nullptr;
  EXPECT_NE(units.AUGraphOpen(none), noErr);
  EXPECT_NE(units.AUGraphClose(none), noErr);
  EXPECT_NE(units.AUGraphAddNode(none, platform::kVarispeedUnit, &node), noErr);
  EXPECT_NE(units.AUGraphNodeInfo(none, 1, &unit), noErr);
  EXPECT_NE(units.AUGraphConnectNodeInput(none, 1, 0, 2, 0), noErr);
  EXPECT_NE(units.AUGraphInitialize(none), noErr);
  EXPECT_NE(units.AUGraphStart(none), noErr);
  EXPECT_NE(units.AUGraphStop(none), noErr);
  EXPECT_NE(units.DisposeAUGraph(none), noErr);
}

TEST_F(RefusalContract, RightsThatNobodyHas) {
  auto& authorization = host().authorization;
  EXPECT_NE(authorization.AuthorizationCopyRights(nullptr, platform::kAuthorizationRightAdmin,
                                                  platform::kAuthorizationFlagDefaults),
            noErr);
  EXPECT_NE(authorization.AuthorizationExecuteWithPrivileges(
                nullptr, "/bin/true", platform::kAuthorizationFlagDefaults, {}),
            noErr);
}

TEST_F(RefusalContract, TheNullDescriptorMayBeDisposedOfAnyNumberOfTimes) {
  platform::AEDesc none;
  EXPECT_EQ(host().appleEvents.AEDisposeDesc(&none), noErr);
  EXPECT_EQ(host().appleEvents.AEDisposeDesc(&none), noErr);
  EXPECT_EQ(none.descriptorType, platform::typeNull);
  EXPECT_EQ(none.dataHandle, nullptr);
}

TEST_F(RefusalContract, RecordingsThatWereNeverInterrupted) {
  std::string error;
  EXPECT_THAT(host().interruptedRecordings.find("no_such_prefix_", &error), IsEmpty());
  EXPECT_EQ(error, "");
  using Outcome = platform::InterruptedRecordings::Claim::Outcome;
  const auto claim = host().interruptedRecordings.claim(missing("a"));
  EXPECT_EQ(claim.outcome, Outcome::kNotOurs);
  EXPECT_EQ(claim.recording, nullptr);
}

TEST_F(RefusalContract, NotificationsThatNobodyShows) {
  auto& center = host().userNotificationCenter;
  center.setDelegate({});
  const auto notification = std::make_shared<platform::UserNotification>();
  center.removeDeliveredNotification(notification);
  center.deliverNotification(notification);
  center.removeDeliveredNotification(notification);
  center.removeDeliveredNotification(notification);
}

}  // namespace
}  // namespace contract
