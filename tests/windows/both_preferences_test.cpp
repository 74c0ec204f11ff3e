// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <limits>
#include <set>

#include "settings/preferences_window_controller.h"
#include "tests/memory_host/memory_host.h"
#include "tests/windows/both_fixture.h"

namespace linux_host {
namespace {

using record_audio::PreferencesWindowController;
using testing::Each;
using testing::ElementsAre;

class BothPreferencesTest : public BothTest {
 protected:
  std::shared_ptr<PreferencesWindowController> makeController() {
    machine_.interfaceLoader.recipe = [](const std::string& name, platform::InterfaceOwner& owner) {
      return windowsModule().loadWindow(name, owner);
    };
    return PreferencesWindowController::initWithWindowNibName(
        machine_.environment, "AudioPreferencesWindow", {}, [this] { ++quits_; });
  }

  memory_host::MemoryHost machine_;
  int quits_ = 0;
};

TEST_F(BothPreferencesTest, HasEveryOutletOfTheController) {
  load();
  for (const std::string& name : makeController()->outletNames()) {
    // This tool's window does not have the check box.
    EXPECT_EQ(owner_.outlets.contains(name), name != "highlightMouseClicksButton") << name;
  }
}

TEST_F(BothPreferencesTest, WorksWithTheController) {
  machine_.capture.connect("mic", "Microphone");
  const auto controller = makeController();
  controller->showWindow();
  ASSERT_TRUE(WindowUser::until(
      [] { return user().seesWindow() && user().menu("audioSource").size() == 4; }));
  EXPECT_EQ(user().chosen("audioSource"), "Default input device");
  user().pick("audioSource", 1);
  EXPECT_EQ(controller->audioSourceType(), 2);
  EXPECT_EQ(controller->audioSourceID(), "mic");
  user().pick("soundFormatPopUp", 1);
  EXPECT_EQ(controller->soundFormat(), 1U);
  user().pick("qualityPopUp", 2);
  EXPECT_EQ(controller->quality(), 2U);

  machine_.capture.connect("usb", "USB");
  EXPECT_TRUE(WindowUser::until([] { return user().menu("audioSource").size() == 5; }));
  EXPECT_EQ(user().chosen("audioSource"), "Microphone");

  user().click("doneButton");
  EXPECT_EQ(quits_, 1);
  EXPECT_TRUE(WindowUser::until([] { return !user().seesWindow(); }));
}

TEST_F(BothPreferencesTest, OpensWithTheKeyboardInTheFirstControl) {
  const auto controller = makeController();
  controller->showWindow();
  ASSERT_TRUE(WindowUser::until([] { return user().seesWindow(); }));
  EXPECT_TRUE(WindowUser::until([] { return user().hasKeyboard("audioSource"); }));
}

TEST_F(BothPreferencesTest, IsOccludedWhileItIsMinimized) {
  struct Delegate : platform::WindowDelegate {
    void windowDidBecomeKey() override {}
    void windowDidChangeOcclusionState() override { ++changes; }
    int changes = 0;
  };
  load();
  const auto delegate = std::make_shared<Delegate>();
  window_->setDelegate(delegate);
  show();
  EXPECT_FALSE(window_->isOccluded());
  const int shown = delegate->changes;
  user().minimize(true);
  EXPECT_TRUE(WindowUser::until([this] { return window_->isOccluded(); }));
  EXPECT_TRUE(window_->isVisible());
  EXPECT_EQ(delegate->changes, shown + 1);
  user().minimize(false);
  EXPECT_TRUE(WindowUser::until([this] { return !window_->isOccluded(); }));
  EXPECT_EQ(delegate->changes, shown + 2);
}

TEST_F(BothPreferencesTest, ShowsStoredIndexesOutOfRangeAsNothingChosen) {
  machine_.userDefaults.values["SoundFormat"] = 7;
  machine_.userDefaults.values["Quality"] = -3;
  const auto controller = makeController();
  controller->showWindow();
  EXPECT_TRUE(WindowUser::until([] {
    return user().chosen("soundFormatPopUp").empty() && user().chosen("qualityPopUp").empty();
  }));
}

TEST_F(BothPreferencesTest, EscapeTheCloseButtonAndReturnAreDone) {
  show();
  user().pressEscape();
  user().closeWindow();
  user().pressReturn();
  user().click("doneButton");
  // A key shows a button pressed for a moment.
  ASSERT_TRUE(WindowUser::until([this] { return owner_.actions.size() == 4; }));
  EXPECT_THAT(owner_.actions, Each("onDoneClicked"));
  EXPECT_TRUE(user().seesWindow()) << "the controller hides it";
  EXPECT_TRUE(window_->isVisible());
  window_->orderOut();
  EXPECT_FALSE(window_->isVisible());
}

TEST_F(BothPreferencesTest, TellsItsDelegateWhenItBecomesKeyAndChangesVisibility) {
  struct Delegate : platform::WindowDelegate {
    void windowDidBecomeKey() override { journal.emplace_back("key"); }
    void windowDidChangeOcclusionState() override { journal.emplace_back("occlusion"); }
    std::vector<std::string> journal;
  };
  load();
  const auto delegate = std::make_shared<Delegate>();
  window_->setDelegate(delegate);
  show();
  EXPECT_TRUE(WindowUser::until([&] { return delegate->journal.size() == 2; }));
  window_->orderOut();
  EXPECT_THAT(delegate->journal, ElementsAre("occlusion", "key", "occlusion"));
}

TEST_F(BothPreferencesTest, TheLevelCoversSixtyDecibelsAndIsSilentForNonsense) {
  show();
  const auto level = owner_.outlet<platform::LevelIndicator>("audioLevel");
  level->setHidden(false);
  ASSERT_TRUE(WindowUser::until([] { return user().shownLevel().has_value(); }));
  level->setLevel(0.03162278F);  // -30 dB
  EXPECT_NEAR(user().shownLevel().value_or(-1), 0.5, 0.02);
  level->setLevel(1);
  EXPECT_NEAR(user().shownLevel().value_or(-1), 1, 0.02);
  for (const float none : {0.0F, -1.0F, std::numeric_limits<float>::quiet_NaN()}) {
    level->setLevel(none);
    EXPECT_NEAR(user().shownLevel().value_or(-1), 0, 0.02) << none;
  }
  level->setHidden(true);
  EXPECT_TRUE(level->isHidden());
  EXPECT_EQ(user().shownLevel(), std::nullopt);
}

TEST_F(BothPreferencesTest, TheWarningAndItsLinkAreHiddenByTheirOutlets) {
  show();
  user().click("privacySettingsLink");
  EXPECT_THAT(owner_.actions, ElementsAre("onOpenPrivacySettings"));
  for (const char* name : {"audioWarning", "privacySettingsLink"}) {
    owner_.outlet<platform::View>(name)->setHidden(true);
    EXPECT_FALSE(user().seesControl(name)) << name;
    owner_.outlet<platform::View>(name)->setHidden(false);
    EXPECT_TRUE(WindowUser::until([&] { return user().seesControl(name); })) << name;
  }
}

TEST_F(BothPreferencesTest, AViewOutlivesItsWindow) {
  load();
  std::vector<std::shared_ptr<platform::View>> kept;
  for (const auto& [name, view] : owner_.outlets) kept.push_back(view.lock());
  const auto link = owner_.outlet<platform::Button>("outputFolderLink");
  const auto menu = owner_.outlet<platform::PopUpButton>("audioSource");
  window_.reset();
  for (const auto& view : kept) {
    view->setHidden(false);
    EXPECT_TRUE(view->isHidden());
  }
  EXPECT_EQ(link->title(), "");
  menu->addItem("late");
  menu->selectItem(0);
  WindowUser::until([] { return true; });
}

// The row with the keyboard shortcut.

using Outcome = ShortcutChoice::Outcome;

TEST_F(BothPreferencesTest, TheShortcutIsThereOnlyWhileTheDesktopHasKeysForPrograms) {
  show();
  EXPECT_FALSE(user().seesShortcut());
  services().changeShortcut({.offered = true, .trigger = {}});
  EXPECT_TRUE(WindowUser::until([] { return user().seesShortcut(); }));
  EXPECT_EQ(user().shortcutKey(), text("None"));
  EXPECT_EQ(user().shortcutButton(), text("Set Shortcut…"));
  services().changeShortcut({.offered = true, .set = true, .trigger = "Press\n<b>&_R</b>"});
  EXPECT_EQ(user().shortcutKey(), "Press <b>&_R</b>");
  EXPECT_EQ(user().shortcutButton(), text("Change…"));
  services().changeShortcut({.offered = true, .set = true, .trigger = {}});
  EXPECT_EQ(user().shortcutKey(), text("See keyboard settings"));
  services().changeShortcut({.offered = true, .asking = true, .trigger = {}});
  EXPECT_EQ(user().shortcutKey(), text("One moment…"));
  services().changeShortcut({});
  EXPECT_TRUE(WindowUser::until([] { return !user().seesShortcut(); }));
}

TEST_F(BothPreferencesTest, TheShortcutIsSeenInAWindowThatOpensLater) {
  services().changeShortcut({.offered = true, .trigger = {}});
  show();
  EXPECT_TRUE(WindowUser::until([] { return user().seesShortcut(); }));
  services().changeShortcut({});
}

TEST_F(BothPreferencesTest, AFailedShortcutIsToldWithTheDesktopsReason) {
  services().changeShortcut({.offered = true, .trigger = {}});
  show();
  user().clickShortcutButton();
  ASSERT_TRUE(WindowUser::until([] { return services().shortcutChoices.size() == 1; }));
  services().shortcutChoices.front()({Outcome::kDeclined, {}});
  EXPECT_FALSE(user().seesAlert()) << "the user knows";
  services().shortcutChoices.front()({Outcome::kFailed, "Not\nfor you"});
  ASSERT_TRUE(WindowUser::until([] { return user().seesAlert(); }));
  EXPECT_EQ(user().alertText(), text("The desktop has set no shortcut."));
  EXPECT_EQ(user().alertDetails(), "Not for you");
  services().endDialogs();
  EXPECT_TRUE(WindowUser::until([] { return !user().seesAlert(); }));
  window_.reset();
  services().shortcutChoices.front()({Outcome::kFailed, "Nobody is there"});
  EXPECT_FALSE(user().seesAlert());
}

// The direction is that of the language in which the module was loaded.
TEST_F(BothPreferencesTest, TheDirectionFollowsTheLanguageOfTheTexts) {
  show();
  EXPECT_EQ(user().isRightToLeft(), isWrittenFromRightToLeft(languageAtStart()));
}

// Every language.

class BothLanguageTest : public BothTest, public testing::WithParamInterface<std::string> {};

TEST_P(BothLanguageTest, EveryTextIsOfThatLanguage) {
  services().speak(GetParam());
  show();
  EXPECT_EQ(user().windowTitle(), text("Record Audio Preferences"));
  EXPECT_THAT(user().menu("qualityPopUp"), ElementsAre(text("High"), text("Medium"), text("Low")));
}

TEST_P(BothLanguageTest, TheDefaultSourceIsShownInFull) {
  services().speak(GetParam());
  show();
  const auto source = owner_.outlet<platform::PopUpButton>("audioSource");
  source->addItem(text("Default input device"));
  source->selectItem(0);
  ASSERT_TRUE(WindowUser::until(
      [] { return user().chosen("audioSource") == text("Default input device"); }));
  EXPECT_TRUE(WindowUser::until([] { return user().showsWholeTexts("audioSource"); }))
      << text("Default input device");
}

INSTANTIATE_TEST_SUITE_P(AllLanguages, BothLanguageTest, testing::ValuesIn(languages()),
                         [](const auto& language) { return language.param; });

}  // namespace
}  // namespace linux_host
