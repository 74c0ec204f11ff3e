// SPDX-License-Identifier: MIT
#include "shared/auxiliary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/memory_host/memory_host.h"
#include "tests/shared/own_process.h"

namespace record_audio {
namespace {

using memory_host::MemoryHost;
using platform::AuthorizationStatus;
using platform::Dictionary;
using platform::MediaType;
using platform::TimebaseInfo;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kMarker = "Library/Application Support/com.vantrel.korvel.disablecamera";

class AuxiliaryTest : public testing::Test {
 protected:
  // 17 May 2024, 14:03:27 UTC.
  platform::Date moment() const { return machine_.clock.now(); }

  MemoryHost machine_;
  platform::Host& host_ = machine_.host;
};

std::int64_t firstTickToMsecs(TimebaseInfo timebase, std::int64_t ticks) {
  MemoryHost machine;
  machine.clock.timebase = timebase;
  return Auxiliary::tickToMsecs(machine.host, ticks);
}

TEST(TickToMsecs, DividesByAMillionAndTruncatesWithATimebaseOfOne) {
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({1, 1}, 0) == 0);
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({1, 1}, 999'999) == 0);
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({1, 1}, 1'000'000) == 1);
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({1, 1}, 1'999'999) == 1);
}

TEST(TickToMsecs, TruncatesNegativeTicksTowardZero) {
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({1, 1}, -999'999) == 0);
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({1, 1}, -2'500'000) == -2);
}

TEST(TickToMsecs, MultipliesByNumeratorAndDividesByDenominator) {
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({125, 3}, 24'000'000) == 1000);
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({1, 2}, 3'000'000) == 1);
}

TEST(TickToMsecs, ComputesInDoubleSoThatLongTimesDoNotOverflow) {
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({125, 3}, 9'000'000'000'000'000'000) ==
                        375'000'000'000'000);
  EXPECT_IN_OWN_PROCESS(firstTickToMsecs({4'000'000'000U, 4'000'000'000U}, 5'000'000) == 5);
}

bool asksForTheTimebaseOnce() {
  MemoryHost machine;
  machine.clock.timebase = {2, 1};
  Auxiliary::tickToMsecs(machine.host, 1);
  machine.clock.timebase = {7, 1};
  const bool keptTheFirst = Auxiliary::tickToMsecs(machine.host, 1'000'000) == 2;
  return keptTheFirst && machine.clock.timebaseRequests == 1;
}

// The timebase never changes while a system runs.
TEST(TickToMsecs, KeepsTheFirstTimebaseForTheLifeOfTheProcess) {
  EXPECT_IN_OWN_PROCESS(asksForTheTimebaseOnce());
}

TEST_F(AuxiliaryTest, FindsAnArgumentInAnyPosition) {
  machine_.processInfo.args = {"/usr/bin/record-audio", "one", "--preferences", "two"};
  EXPECT_TRUE(Auxiliary::launchedWithArgument(host_, "--preferences"));
  EXPECT_TRUE(Auxiliary::launchedWithArgument(host_, "two"));
  EXPECT_TRUE(Auxiliary::launchedWithPreferences(host_));
  EXPECT_TRUE(Auxiliary::preferencesModeActive(host_));
}

TEST_F(AuxiliaryTest, CountsTheProgramPathAsAnArgument) {
  EXPECT_TRUE(Auxiliary::launchedWithArgument(host_, "/usr/bin/record-audio"));
}

TEST_F(AuxiliaryTest, ComparesArgumentsExactly) {
  machine_.processInfo.args = {"tool", "--Preferences", "--preferences=yes", "-preferences",
                               " --preferences"};
  EXPECT_FALSE(Auxiliary::launchedWithArgument(host_, "--preferences"));
  EXPECT_FALSE(Auxiliary::launchedWithPreferences(host_));
  EXPECT_FALSE(Auxiliary::preferencesModeActive(host_));
}

TEST_F(AuxiliaryTest, NamesARecordingByDateWordAndTimeWithDots) {
  EXPECT_EQ(Auxiliary::getFilenameWithDateTime(host_, moment()), "2024-05-17 at 14.03.27");
}

TEST_F(AuxiliaryTest, TakesTheWordFromTheStringTable) {
  machine_.mainBundle.strings["at"] = "um";
  EXPECT_EQ(Auxiliary::getFilenameWithDateTime(host_, moment()), "2024-05-17 um 14.03.27");
}

TEST_F(AuxiliaryTest, KeepsTheDayPeriodOfATwelveHourLocale) {
  machine_.dateFormatter.timePattern = "2:mm:ss 'PM'";
  EXPECT_EQ(Auxiliary::getFilenameWithDateTime(host_, moment()), "2024-05-17 at 2.03.27 PM");
}

TEST_F(AuxiliaryTest, WritesPlainSpacesForTheSpacesOfALocale) {
  machine_.dateFormatter.timePattern = "2:03:27\u202f'PM'\u00a0x\u2009x";
  EXPECT_EQ(Auxiliary::getFilenameWithDateTime(host_, moment()), "2024-05-17 at 2.03.27 PM x x");
}

TEST_F(AuxiliaryTest, ReplacesWhatADiskRefusesInAFileName) {
  machine_.mainBundle.strings["at"] = "a:\"<>|?*b";
  machine_.dateFormatter.timePattern = "14/03\\27\n\x7f";
  EXPECT_EQ(Auxiliary::getFilenameWithDateTime(host_, moment()), "2024-05-17 a.......b 14.03.27..");
}

TEST_F(AuxiliaryTest, KeepsOtherScriptsInAFileName) {
  machine_.mainBundle.strings["at"] = "в";
  machine_.dateFormatter.timePattern = "午後2:03:27";
  EXPECT_EQ(Auxiliary::getFilenameWithDateTime(host_, moment()), "2024-05-17 в 午後2.03.27");
}

TEST_F(AuxiliaryTest, SetsTheIconOfAFileInAnOrdinaryFolder) {
  const auto icon = machine_.application.imageNamed("On");
  Auxiliary::setIcon(host_, icon, "/home/user/Music/take.mp3");
  EXPECT_THAT(machine_.workspace.icons, ElementsAre(memory_host::MemoryWorkspace::IconChange{
                                            "On", "/home/user/Music/take.mp3", 0}));
}

// The last extension is cut off before the test, so that only what lies inside is spared.
TEST_F(AuxiliaryTest, DecoratesAnApplicationBundleItself) {
  Auxiliary::setIcon(host_, nullptr, "/Apps/Record Audio.app");
  Auxiliary::setIcon(host_, nullptr, "/Apps/Record Audio.app/");
  Auxiliary::setIcon(host_, nullptr, "/Apps/a.app");
  Auxiliary::setIcon(host_, nullptr, "a.app");
  ASSERT_EQ(machine_.workspace.icons.size(), 4U);
  EXPECT_EQ(machine_.workspace.icons[0].path, "/Apps/Record Audio.app");
  EXPECT_EQ(machine_.workspace.icons[0].image, "");
}

TEST_F(AuxiliaryTest, NeverDecoratesAnythingInsideAnApplicationBundle) {
  for (const char* path :
       {"/Apps/Tool.app/Contents/readme.txt", "/Apps/Tool.app/Inner.app", "/a.application/b.txt",
        "/Apps/Tool.app/Contents/none", "/Apps/Tool.app.bak", ".app/readme.txt"}) {
    Auxiliary::setIcon(host_, nullptr, path);
  }
  EXPECT_THAT(machine_.workspace.icons, IsEmpty());
}

TEST_F(AuxiliaryTest, TakesALeadingDotAsPartOfTheNameNotAsAnExtension) {
  Auxiliary::setIcon(host_, nullptr, "/home/user/.app");
  EXPECT_THAT(machine_.workspace.icons, IsEmpty());
}

TEST_F(AuxiliaryTest, IgnoresAnIconThatTheWorkspaceRefuses) {
  machine_.workspace.setIconResult = false;
  Auxiliary::setIcon(host_, nullptr, "/home/user/take.mp3");
  EXPECT_EQ(machine_.workspace.icons.size(), 1U);
}

TEST_F(AuxiliaryTest, ReturnsTheLocalisedNameOfTheTool) {
  (*machine_.mainBundle.localizedInfo)["CFBundleName"] = "Ton aufnehmen";
  EXPECT_EQ(Auxiliary::getLocalizedAppName(host_), "Ton aufnehmen");
}

TEST_F(AuxiliaryTest, ReturnsNoNameWhereTheBundleHasNone) {
  (*machine_.mainBundle.localizedInfo)["CFBundleName"] = Dictionary();
  EXPECT_EQ(Auxiliary::getLocalizedAppName(host_), std::nullopt);
  machine_.mainBundle.localizedInfo->erase("CFBundleName");
  EXPECT_EQ(Auxiliary::getLocalizedAppName(host_), std::nullopt);
  machine_.mainBundle.localizedInfo.reset();
  EXPECT_EQ(Auxiliary::getLocalizedAppName(host_), std::nullopt);
}

struct StatusCase {
  AuthorizationStatus status;
  bool granted;
  bool determined;
};

class PermissionTest : public testing::TestWithParam<StatusCase> {
 protected:
  MemoryHost machine_;
};

TEST_P(PermissionTest, IsGrantedOnlyWhenAuthorisedAndOpenOnlyWhenUndetermined) {
  machine_.capture.authorization = GetParam().status;
  EXPECT_EQ(Auxiliary::getStatusOfMediaType(machine_.host, MediaType::kAudio), GetParam().granted);
  EXPECT_EQ(Auxiliary::isStatusOfMediaTypeDetermind(machine_.host, MediaType::kAudio),
            GetParam().determined);
}

TEST_P(PermissionTest, AsksTheUserOnlyWhenUndetermined) {
  machine_.capture.authorization = GetParam().status;
  int calls = 0;
  Auxiliary::requestRightsForMediaType(machine_.host, MediaType::kAudio, [&](bool) { ++calls; });
  EXPECT_EQ(machine_.capture.pendingRequests.size(), GetParam().determined ? 0U : 1U);
  EXPECT_EQ(calls, 0);
}

TEST_P(PermissionTest, IsGrantedAndDecidedOnASystemWithoutPermissions) {
  machine_.capture.authorization = GetParam().status;
  machine_.capture.hasPermissions = false;
  EXPECT_TRUE(Auxiliary::getStatusOfMediaType(machine_.host, MediaType::kAudio));
  EXPECT_TRUE(Auxiliary::isStatusOfMediaTypeDetermind(machine_.host, MediaType::kAudio));
}

INSTANTIATE_TEST_SUITE_P(EveryStatus, PermissionTest,
                         testing::Values(StatusCase{AuthorizationStatus::kNotDetermined, false,
                                                    false},
                                         StatusCase{AuthorizationStatus::kRestricted, false, true},
                                         StatusCase{AuthorizationStatus::kDenied, false, true},
                                         StatusCase{AuthorizationStatus::kAuthorized, true, true}));

TEST_F(AuxiliaryTest, PassesTheUsersAnswerOn) {
  machine_.capture.authorization = AuthorizationStatus::kNotDetermined;
  std::vector<bool> answers;
  const auto note = [&](bool granted) { answers.push_back(granted); };
  Auxiliary::requestRightsForMediaType(host_, MediaType::kAudio, note);
  Auxiliary::requestRightsForMediaType(host_, MediaType::kAudio, note);
  ASSERT_EQ(machine_.capture.pendingRequests.size(), 2U);
  machine_.capture.pendingRequests[0](true);
  machine_.capture.pendingRequests[1](false);
  EXPECT_THAT(answers, ElementsAre(true, false));
}

// Callers look first; only an undecided permission leads here.
TEST_F(AuxiliaryTest, AsksWithoutLookingWhetherTheSystemHasPermissions) {
  machine_.capture.hasPermissions = false;
  machine_.capture.authorization = AuthorizationStatus::kNotDetermined;
  Auxiliary::requestRightsForMediaType(host_, MediaType::kAudio, [](bool) {});
  EXPECT_EQ(machine_.capture.pendingRequests.size(), 1U);
}

TEST_F(AuxiliaryTest, WithholdsCamerasExactlyWhileTheMarkerExists) {
  EXPECT_FALSE(Auxiliary::isCameraBlocked(host_));
  machine_.userAccount.existing.insert(std::string("/home/user/") + kMarker);
  EXPECT_TRUE(Auxiliary::isCameraBlocked(host_));
}

TEST_F(AuxiliaryTest, LooksForTheMarkerUnderAHomeThatIsTheRootOrEndsInASlash) {
  machine_.userAccount.home = "/";
  machine_.userAccount.existing.insert(std::string("/") + kMarker);
  EXPECT_TRUE(Auxiliary::isCameraBlocked(host_));
  machine_.userAccount.home = "/home/user/";
  EXPECT_FALSE(Auxiliary::isCameraBlocked(host_));
  machine_.userAccount.existing.insert(std::string("/home/user/") + kMarker);
  EXPECT_TRUE(Auxiliary::isCameraBlocked(host_));
  machine_.userAccount.home = "";
  machine_.userAccount.existing = {std::string("/") + kMarker};
  EXPECT_TRUE(Auxiliary::isCameraBlocked(host_));
}

TEST_F(AuxiliaryTest, WithholdsNoCamerasFromAUserWithoutAnAccountRecord) {
  machine_.userAccount.existing = {kMarker, std::string("/") + kMarker};
  machine_.userAccount.home.reset();
  EXPECT_FALSE(Auxiliary::isCameraBlocked(host_));
}

TEST_F(AuxiliaryTest, HashesTheApplicationFoldersName) {
  // 64-bit FNV-1a of "a", a published test value.
  machine_.mainBundle.path = "/Apps/a";
  EXPECT_EQ(stringWithAppHash(host_, "lock"), "lock_12638187200555641996");
}

TEST_F(AuxiliaryTest, HashesTheLastNameOfAnyPath) {
  for (const char* path : {"a", "a/", "a//", "/a", "/a//", "/x/y/a/"}) {
    machine_.mainBundle.path = path;
    EXPECT_EQ(stringWithAppHash(host_, "x"), "x_12638187200555641996") << path;
  }
  for (const char* root : {"/", "//"}) {
    machine_.mainBundle.path = root;
    EXPECT_EQ(stringWithAppHash(host_, "x"), "x_12638123428881205758") << root;
  }
}

TEST_F(AuxiliaryTest, GivesCopiesInFoldersOfOtherNamesOtherHashes) {
  const std::string here = stringWithAppHash(host_, "x");
  machine_.mainBundle.path = "/elsewhere/Record Audio.app/";
  EXPECT_EQ(stringWithAppHash(host_, "x"), here);
  machine_.mainBundle.path = "/Apps/Record Audio 2.app";
  EXPECT_NE(stringWithAppHash(host_, "x"), here);
}

}  // namespace
}  // namespace record_audio
