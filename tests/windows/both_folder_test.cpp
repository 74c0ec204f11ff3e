// SPDX-License-Identifier: MIT
#include <glib.h>

#include <filesystem>

#include "suite/suite.h"
#include "tests/base/temporary_folder.h"
#include "tests/windows/both_fixture.h"

namespace linux_host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class BothFolderTest : public BothTest {
 protected:
  BothFolderTest() {
    std::filesystem::create_directory(path("before"));
    std::filesystem::create_directory(path("after"));
    services().folder = path("before");
    show();
    port_ = owner_.outlet<suite::OutputLocationButton>("outputLocation");
    port_->updateState();
  }
  [[nodiscard]] std::string path(const std::string& name) const { return root_ / name; }

  struct Outcome {
    int calls = 0;
    bool success = false;
    std::optional<std::string> message;
    platform::Dictionary details;
  };
  // Begins a change; the outcome is there at once or later.
  std::shared_ptr<Outcome> begin() {
    auto outcome = std::make_shared<Outcome>();
    port_->handleOutputLocationChanged([outcome](bool success, int,
                                                 const std::optional<std::string>& message,
                                                 const platform::Dictionary& details) {
      ++outcome->calls;
      outcome->success = success;
      outcome->message = message;
      outcome->details = details;
    });
    return outcome;
  }
  static void finish(const Outcome& outcome) {
    EXPECT_TRUE(WindowUser::until([&] { return outcome.calls > 0; }));
    EXPECT_EQ(outcome.calls, 1);
  }
  // The user answers the toolkit's own dialog.
  Outcome change(const std::optional<std::string>& folder) {
    WindowUser::Later later([folder] { return user().answerFolderDialog(folder); });
    const auto outcome = begin();
    finish(*outcome);
    EXPECT_TRUE(later.isDone());
    return *outcome;
  }

  const base_test::TemporaryFolder root_;
  std::shared_ptr<suite::OutputLocationButton> port_;
};

TEST_F(BothFolderTest, ShowsTheFolderAndAllOfItInItsToolTip) {
  const std::string folder = std::string(g_get_home_dir()) + "/Music/R&D <b>x</b>_y";
  services().folder = folder;
  port_->updateState();
  EXPECT_EQ(user().shownFolder(), "~/Music/R&D <b>x</b>_y");
  EXPECT_EQ(user().folderTip(), folder);
}

TEST_F(BothFolderTest, AsksForAFolderWhenThereIsNone) {
  services().folder.reset();
  port_->updateState();
  EXPECT_EQ(user().shownFolder(), text("Choose a folder"));
  EXPECT_EQ(user().folderTip(), "");
}

TEST_F(BothFolderTest, SendsItsActionOnClick) {
  user().click("outputLocation");
  user().click("outputFolderLink");
  EXPECT_THAT(owner_.actions, ElementsAre("onOutputLocationChanged", "onRevealOutputFolder"));
}

TEST_F(BothFolderTest, StoresAndShowsTheFolderThatWasChosen) {
  const Outcome outcome = change(path("after"));
  EXPECT_TRUE(outcome.success);
  EXPECT_EQ(outcome.message, std::nullopt);
  EXPECT_EQ(outcome.details, (platform::Dictionary{{"Changed", true}}));
  EXPECT_THAT(services().asked, ElementsAre(path("after")));
  EXPECT_EQ(user().folderTip(), path("after"));
}

TEST_F(BothFolderTest, ChangesNothingWhenTheUserCancelsOrTakesTheSameFolder) {
  EXPECT_TRUE(change(std::nullopt).success);
  EXPECT_TRUE(change(path("before")).success);
  EXPECT_THAT(services().asked, IsEmpty());
  EXPECT_EQ(user().folderTip(), path("before"));
}

TEST_F(BothFolderTest, LetsTheDesktopsOwnChooserHaveItsWay) {
  std::string openedAt;
  std::function<void(FolderChoice)> answer;
  WindowUser::Later later([&] {
    if (!answer) return false;
    // Another request meanwhile is not sent, or changes nothing.
    user().click("outputLocation");
    EXPECT_THAT(owner_.actions, IsEmpty());
    answer({true, path("after")});
    return true;
  });
  services().desktopChooser = [&](const std::string& opened, const auto& done) {
    openedAt = opened;
    answer = done;
  };
  const auto outcome = begin();
  finish(*outcome);
  EXPECT_TRUE(outcome->success);
  EXPECT_EQ(outcome->details, (platform::Dictionary{{"Changed", true}}));
  EXPECT_EQ(openedAt, path("before"));
  EXPECT_EQ(user().folderTip(), path("after"));
  user().click("outputLocation");
  EXPECT_THAT(owner_.actions, ElementsAre("onOutputLocationChanged"));
}

TEST_F(BothFolderTest, ChangesNothingWhenTheUserCancelsTheDesktopsOwnChooser) {
  services().desktopChooser = [](const std::string&, const auto& done) { done({true, {}}); };
  const auto outcome = begin();
  finish(*outcome);
  EXPECT_TRUE(outcome->success);
  EXPECT_THAT(services().asked, IsEmpty());
}

TEST_F(BothFolderTest, AnOpenDialogDoesNotKeepTheProgramFromEnding) {
  WindowUser::Later later([] {
    if (!user().seesFolderDialog()) return false;
    services().endDialogs();
    return true;
  });
  const auto outcome = begin();
  finish(*outcome);
  EXPECT_TRUE(outcome->success);
  EXPECT_THAT(services().asked, IsEmpty());
  EXPECT_TRUE(WindowUser::until([] { return user().seesWindow(); }))
      << "the window is no dialog that waits for an answer";
}

TEST_F(BothFolderTest, KeepsTheOldFolderAndSaysWhyWhenTheNewOneCannotBeUsed) {
  services().refusal = "\"after\" <b>cannot</b> be written: Permission denied. Choose another.";
  std::string said;
  std::string why;
  WindowUser::Later reader([&] {
    if (!user().seesAlert()) return false;
    said = user().alertText();
    why = user().alertDetails();
    user().pressEscapeInAlert();
    return true;
  });
  const Outcome outcome = change(path("after"));
  EXPECT_TRUE(WindowUser::until([&] { return reader.isDone(); }));
  EXPECT_EQ(said, text("The folder cannot be used."));
  EXPECT_EQ(why, services().refusal);
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.message, services().refusal);
  EXPECT_EQ(outcome.details, (platform::Dictionary{{"Changed", false}}));
  EXPECT_EQ(user().folderTip(), path("before"));
}

}  // namespace
}  // namespace linux_host
