// SPDX-License-Identifier: MIT
#include <atomic>
#include <chrono>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/authorization.h, apple_events.h, launch_services.h and host_clock.h promise.

namespace contract {
namespace {

using platform::AEDesc;
using platform::AuthorizationRef;
using platform::noErr;
using platform::OSStatus;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* kTool = "/usr/bin/env";

class AuthorizationContract : public ContractTest {
 protected:
  platform::Authorization& authorization() { return host().authorization; }
  AuthorizationRef create() {
    AuthorizationRef made = nullptr;
    EXPECT_EQ(authorization().AuthorizationCreate(platform::kAuthorizationFlagDefaults, &made),
              noErr);
    EXPECT_NE(made, nullptr);
    return made;
  }
  OSStatus obtain(AuthorizationRef reference,
                  const std::string& right = platform::kAuthorizationRightAdmin) {
    return authorization().AuthorizationCopyRights(reference, right,
                                                   platform::kAuthorizationFlagInteractionAllowed |
                                                       platform::kAuthorizationFlagExtendRights |
                                                       platform::kAuthorizationFlagPreAuthorize);
  }
  OSStatus execute(AuthorizationRef reference, const std::vector<std::string>& arguments = {}) {
    return authorization().AuthorizationExecuteWithPrivileges(
        reference, kTool, platform::kAuthorizationFlagDefaults, arguments);
  }
  std::vector<std::vector<std::string>> started() {
    return rig->surroundings().programsStartedWithRights();
  }
  void SetUp() override { rig->surroundings().setGrantsRights(true); }
};

TEST_F(AuthorizationContract, ANewAuthorizationHasNoRights) {
  const AuthorizationRef reference = create();
  EXPECT_NE(execute(reference), noErr);
  EXPECT_EQ(authorization().AuthorizationFree(reference), noErr);
  rig->pass(0.1);
  EXPECT_THAT(started(), IsEmpty());
}

TEST_F(AuthorizationContract, WithTheRightAProgramIsStartedWithItsArguments) {
  const AuthorizationRef reference = create();
  EXPECT_EQ(obtain(reference), noErr);
  EXPECT_EQ(execute(reference, {"one", "two three"}), noErr);
  EXPECT_EQ(authorization().AuthorizationFree(reference), noErr);
  EXPECT_TRUE(rig->runUntil([&] { return !started().empty(); }));
  EXPECT_THAT(started(), ElementsAre(ElementsAre(kTool, "one", "two three")));
}

TEST_F(AuthorizationContract, WhatTheUserRefusesIsNotGranted) {
  const AuthorizationRef reference = create();
  rig->surroundings().setGrantsRights(false);
  EXPECT_NE(obtain(reference), noErr);
  EXPECT_NE(execute(reference), noErr);
  rig->surroundings().setGrantsRights(true);
  EXPECT_EQ(obtain(reference), noErr) << "it may be asked again";
  rig->surroundings().setGrantsRights(false);
  EXPECT_NE(obtain(reference), noErr);
  EXPECT_NE(execute(reference), noErr) << "the last answer counts";
  EXPECT_EQ(authorization().AuthorizationFree(reference), noErr);
  rig->pass(0.1);
  EXPECT_THAT(started(), IsEmpty());
}

TEST_F(AuthorizationContract, NoOtherRightIsGranted) {
  const AuthorizationRef reference = create();
  EXPECT_NE(obtain(reference, "no.such.right"), noErr);
  EXPECT_NE(execute(reference), noErr);
  EXPECT_EQ(authorization().AuthorizationFree(reference), noErr);
}

TEST_F(AuthorizationContract, NoAuthorizationIsRefusedEverywhere) {
  EXPECT_NE(obtain(nullptr), noErr);
  EXPECT_NE(execute(nullptr), noErr);
  EXPECT_NE(authorization().AuthorizationFree(nullptr), noErr);
}

class AppleEventsContract : public ContractTest {
 protected:
  platform::AppleEvents& events() { return host().appleEvents; }
  void SetUp() override { rig->surroundings().setRestarts(true); }
  int restarts() { return rig->surroundings().restartsAskedFor(); }

  AEDesc target(std::uint32_t process = platform::kSystemProcess) {
    const platform::ProcessSerialNumber number{0, process};
    AEDesc made;
    EXPECT_EQ(
        events().AECreateDesc(platform::typeProcessSerialNumber, &number, sizeof number, &made),
        noErr);
    EXPECT_EQ(made.descriptorType, platform::typeProcessSerialNumber);
    EXPECT_NE(made.dataHandle, nullptr);
    return made;
  }
  OSStatus make(const AEDesc* to, AEDesc* event, std::uint32_t id = platform::kAERestart) {
    return events().AECreateAppleEvent(platform::kCoreEventClass, id, to,
                                       platform::kAutoGenerateReturnID, platform::kAnyTransactionID,
                                       event);
  }
  OSStatus send(const AEDesc* event) {
    AEDesc reply{platform::typeProcessSerialNumber, nullptr};
    const OSStatus status =
        events().AESend(event, &reply, platform::kAENoReply, platform::kAENormalPriority,
                        platform::kAEDefaultTimeout);
    EXPECT_EQ(reply.descriptorType, platform::typeNull);
    EXPECT_EQ(reply.dataHandle, nullptr);
    return status;
  }
  // Makes, sends and disposes of an event.
  OSStatus ask(std::uint32_t process = platform::kSystemProcess,
               std::uint32_t id = platform::kAERestart) {
    AEDesc to = target(process);
    AEDesc event;
    EXPECT_EQ(make(&to, &event, id), noErr);
    EXPECT_EQ(events().AEDisposeDesc(&to), noErr) << "the event has a target of its own";
    const OSStatus status = send(&event);
    EXPECT_EQ(events().AEDisposeDesc(&event), noErr);
    EXPECT_EQ(event.descriptorType, platform::typeNull);
    EXPECT_EQ(event.dataHandle, nullptr);
    return status;
  }
};

TEST_F(AppleEventsContract, TheSystemProcessIsAskedToRestart) {
  EXPECT_EQ(ask(), noErr);
  EXPECT_EQ(restarts(), 1);
}

TEST_F(AppleEventsContract, ARefusalIsAStatus) {
  rig->surroundings().setRestarts(false);
  EXPECT_NE(ask(), noErr);
  EXPECT_EQ(restarts(), 1);
}

TEST_F(AppleEventsContract, AnotherProcessOrEventRestartsNothing) {
  EXPECT_NE(ask(2), noErr);
  EXPECT_NE(ask(platform::kSystemProcess, platform::fourCharCode("none")), noErr);
  EXPECT_EQ(restarts(), 0);
}

TEST_F(AppleEventsContract, WhatIsNoTargetOrNoEventIsRefused) {
  AEDesc none;
  AEDesc event{platform::typeProcessSerialNumber, &none};
  EXPECT_NE(make(&none, &event), noErr);
  EXPECT_EQ(event.descriptorType, platform::typeNull);
  EXPECT_EQ(event.dataHandle, nullptr);
  EXPECT_NE(send(&none), noErr);
  AEDesc to = target();
  EXPECT_NE(send(&to), noErr);
  EXPECT_EQ(events().AEDisposeDesc(&to), noErr);
  AEDesc wrong;
  ASSERT_EQ(events().AECreateDesc(platform::typeProcessSerialNumber, "four", 4, &wrong), noErr);
  EXPECT_NE(make(&wrong, &event), noErr);
  EXPECT_EQ(events().AEDisposeDesc(&wrong), noErr);
  EXPECT_EQ(restarts(), 0);
}

TEST_F(AppleEventsContract, NoDataMakesNoDescriptor) {
  AEDesc result{platform::typeProcessSerialNumber, &result};
  EXPECT_NE(events().AECreateDesc(platform::typeProcessSerialNumber, nullptr, 8, &result), noErr);
  EXPECT_EQ(result.descriptorType, platform::typeNull);
  EXPECT_EQ(result.dataHandle, nullptr);
}

class LaunchServicesContract : public ContractTest {};

TEST_F(LaunchServicesContract, AllApplicationsOfAnIdentifierAreFoundAndNoOthers) {
  const auto find = [&](const std::string& identifier) {
    return host().launchServices.copyApplicationPathsForBundleIdentifier(identifier);
  };
  EXPECT_THAT(find("com.vantrel.korvel"), IsEmpty());
  const std::string first = rig->surroundings().installApplication("com.vantrel.korvel");
  const std::string second = rig->surroundings().installApplication("com.vantrel.korvel");
  EXPECT_THAT(find("com.vantrel.korvel"), UnorderedElementsAre(first, second));
  EXPECT_EQ(find("com.vantrel.korvel"), find("com.vantrel.korvel")) << "in one order";
  EXPECT_THAT(find("com.vantrel"), IsEmpty());
  EXPECT_THAT(find(""), IsEmpty());
}

class PersonContract : public ContractTest {
 protected:
  static constexpr platform::Date kNoon{std::chrono::hours(24 * 20'000 + 12)};  // 2024-10-04
};

TEST_F(PersonContract, DatesAreWrittenByPatternAndTimesWithTheirSeconds) {
  const auto& formatter = host().dateFormatter;
  EXPECT_EQ(formatter.stringFromDate(kNoon, "yyyy-MM"), "2024-10");
  EXPECT_THAT(formatter.stringFromDate(kNoon, "yyyy-MM-dd"), testing::StartsWith("2024-10-0"));
  EXPECT_EQ(formatter.stringFromDate(kNoon, "'at'"), "at");
  const std::string time = formatter.localizedMediumTime(kNoon);
  EXPECT_THAT(time, testing::Not(IsEmpty()));
  EXPECT_NE(time, formatter.localizedMediumTime(kNoon + std::chrono::seconds(1)));
  EXPECT_EQ(time, formatter.localizedMediumTime(kNoon + std::chrono::hours(24))) << "no date";
}

TEST_F(PersonContract, TheProgramsPathComesBeforeItsArguments) {
  ASSERT_THAT(host().processInfo.arguments(), testing::Not(IsEmpty()));
  EXPECT_THAT(host().processInfo.arguments().front(), testing::HasSubstr("/"));
  EXPECT_THAT(host().mainBundle.bundlePath(), testing::StartsWith("/"));
}

TEST_F(PersonContract, AHomeIsAPathAndWhatIsThereExistsForItsUser) {
  const auto home = host().userAccount.homeDirectory();
  EXPECT_THAT(home.value_or("/"), testing::StartsWith("/")) << "or there is none";
  EXPECT_TRUE(host().userAccount.accessExists(rig->folder()));
  EXPECT_FALSE(host().userAccount.accessExists(rig->folder() + "/missing"));
}

class ClockContract : public ContractTest {
 protected:
  [[nodiscard]] double wall_s() {
    return std::chrono::duration<double>(host().wallClock.now().time_since_epoch()).count();
  }
};

TEST_F(ClockContract, TheClocksGoOnAsTimePasses) {
  const double begin_s = now_s();
  const double wallBegin_s = wall_s();
  rig->pass(0.2);
  EXPECT_GE(now_s() - begin_s, 0.1999);
  EXPECT_GE(wall_s() - wallBegin_s, 0.19);
}

TEST_F(ClockContract, TheyAreReadOnAnyThread) {
  const auto queue = host().dispatch.createSerialQueue("contract.clock");
  ASSERT_NE(queue, nullptr);
  const std::uint64_t before = host().hostClock.absoluteTime();
  const platform::Date dateBefore = host().wallClock.now();
  std::uint64_t read = 0;
  bool isLater = false;
  std::atomic<bool> isDone{false};
  queue->async([&] {
    read = host().hostClock.absoluteTime();
    isLater = host().wallClock.now() >= dateBefore;
    isDone = true;
  });
  ASSERT_TRUE(rig->runUntil([&] { return isDone.load(); }));
  EXPECT_GE(read, before);
  EXPECT_TRUE(isLater);
}

}  // namespace
}  // namespace contract
