// SPDX-License-Identifier: MIT
#include <atomic>
#include <vector>

#include "platform/file_url.h"
#include "tests/contract/contract_test.h"

// What platform/application.h promises of the desktop around the application, and
// platform/capture.h of permissions.

namespace contract {
namespace {

using platform::ActivationPolicy;
using platform::AuthorizationStatus;
using platform::MediaType;
using testing::ElementsAre;
using testing::IsEmpty;

class WorkspaceContract : public ContractTest {
 protected:
  platform::Workspace& workspace() { return host().workspace; }
  Desktop& desktop() { return rig->surroundings().desktop(); }
  void SetUp() override { desktop(); }
  std::string path(const std::string& name) { return rig->folder() + "/" + name; }
  std::string url(const std::string& name) { return platform::fileURLWithPath(path(name)); }
  bool hasOpened(std::size_t count) {
    return rig->runUntil([&] { return desktop().openedURLs().size() >= count; });
  }
};

TEST_F(WorkspaceContract, AFileIsOpenedByAnotherProgram) {
  ASSERT_TRUE(host().fileManager.createFile(path("a b.m4a")));
  EXPECT_TRUE(workspace().openFile(path("a b.m4a")));
  ASSERT_TRUE(hasOpened(1));
  EXPECT_THAT(desktop().openedURLs(), ElementsAre(url("a b.m4a")));
}

TEST_F(WorkspaceContract, AFolderIsOpened) {
  EXPECT_TRUE(workspace().openFile(rig->folder()));
  ASSERT_TRUE(hasOpened(1));
  EXPECT_THAT(desktop().openedURLs(), ElementsAre(platform::fileURLWithPath(rig->folder())));
  EXPECT_THAT(desktop().shownFiles(), IsEmpty());
}

TEST_F(WorkspaceContract, AFileThatIsNotThereIsNotOpened) {
  EXPECT_FALSE(workspace().openFile(path("missing")));
  EXPECT_FALSE(workspace().openURL(url("missing")));
  rig->pass(0.05);
  EXPECT_THAT(desktop().openedURLs(), IsEmpty());
}

TEST_F(WorkspaceContract, AnAddressIsOpenedAndWhatIsNoneIsNot) {
  EXPECT_FALSE(workspace().openURL("no address"));
  EXPECT_FALSE(workspace().openURL(""));
  EXPECT_TRUE(workspace().openURL("https://example.org/"));
  ASSERT_TRUE(hasOpened(1));
  EXPECT_THAT(desktop().openedURLs(), ElementsAre("https://example.org/"));
}

TEST_F(WorkspaceContract, FilesAreShownTogether) {
  ASSERT_TRUE(host().fileManager.createFile(path("a")));
  ASSERT_TRUE(host().fileManager.createFile(path("b")));
  workspace().activateFileViewerSelectingURLs({url("a"), url("b")});
  workspace().activateFileViewerSelectingURLs({url("b")});
  ASSERT_TRUE(rig->runUntil([&] { return desktop().shownFiles().size() == 2; }));
  EXPECT_THAT(desktop().shownFiles(),
              ElementsAre(ElementsAre(url("a"), url("b")), ElementsAre(url("b"))));
  EXPECT_THAT(desktop().openedURLs(), IsEmpty());
}

TEST_F(WorkspaceContract, TheSettingsOfPrivacyAreOpenedWhereThereAreAny) {
  desktop().setHasPrivacySettings(false);
  EXPECT_FALSE(workspace().openPrivacySettings());
  desktop().setHasPrivacySettings(true);
  EXPECT_TRUE(workspace().openPrivacySettings());
  EXPECT_TRUE(rig->runUntil([&] { return desktop().privacySettingsOpened() > 0; }));
  EXPECT_EQ(desktop().privacySettingsOpened(), 1);
}

TEST_F(WorkspaceContract, AFileGetsAnIconAndLosesIt) {
  ASSERT_TRUE(host().fileManager.createFile(path("a")));
  const auto icon = host().application.imageNamed(platform::kImageNameApplicationIcon);
  ASSERT_NE(icon, nullptr);
  EXPECT_TRUE(workspace().setIcon(icon, path("a"), 0));
  EXPECT_TRUE(workspace().setIcon(nullptr, path("a"), 0));
  EXPECT_EQ(rig->contents(path("a")), "") << "the file itself stays as it is";
}

class DockContract : public ContractTest {};

// What is seen of it is free for the host.
TEST_F(DockContract, ItTakesEveryPolicyAndIcon) {
  auto& application = host().application;
  application.disableRelaunchOnLogin();
  const auto icon = application.imageNamed(platform::kImageNameApplicationIcon);
  ASSERT_NE(icon, nullptr);
  EXPECT_EQ(icon->name, platform::kImageNameApplicationIcon);
  for (const auto policy :
       {ActivationPolicy::kRegular, ActivationPolicy::kAccessory, ActivationPolicy::kProhibited}) {
    application.setActivationPolicy(policy);
    application.setApplicationIconImage(icon);
    application.setApplicationIconImage(nullptr);
    application.activateIgnoringOtherApps(true);
    application.activateIgnoringOtherApps(false);
  }
  rig->pass(0.02);
}

class PermissionContract : public ContractTest {
 protected:
  platform::Capture& capture() { return host().capture; }
  // The handler's answer; null when it is not called.
  std::optional<bool> ask() {
    std::atomic<int> calls{0};
    std::atomic<bool> agrees{false};
    capture().requestAccessForMediaType(MediaType::kAudio, [&](bool isGranted) {
      agrees = isGranted;
      ++calls;
    });
    if (!rig->runUntil([&] { return calls > 0; })) return std::nullopt;
    rig->pass(0.05);
    EXPECT_EQ(calls, 1);
    return agrees.load();
  }
};

TEST_F(PermissionContract, TheStatusIsWhatTheSystemSays) {
  for (const auto status : {AuthorizationStatus::kDenied, AuthorizationStatus::kNotDetermined,
                            AuthorizationStatus::kAuthorized}) {
    rig->surroundings().setMicrophonePermission(status, false);
    EXPECT_TRUE(capture().respondsToAuthorizationStatus());
    EXPECT_EQ(capture().authorizationStatusForMediaType(MediaType::kAudio), status);
  }
}

TEST_F(PermissionContract, TheHandlerHearsTheUsersAnswerOnce) {
  for (const bool agrees : {true, false}) {
    rig->surroundings().setMicrophonePermission(AuthorizationStatus::kNotDetermined, agrees);
    EXPECT_EQ(ask(), agrees);
  }
}

}  // namespace
}  // namespace contract
