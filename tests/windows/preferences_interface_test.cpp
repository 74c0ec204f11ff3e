// SPDX-License-Identifier: MIT
#include <QAccessible>
#include <QKeySequence>
#include <QLabel>
#include <set>

#include "settings/preferences_window_controller.h"
#include "tests/memory_host/memory_host.h"
#include "tests/windows/windows_fixture.h"

namespace linux_host {
namespace {

using record_audio::PreferencesWindowController;
using testing::ElementsAre;
using testing::IsEmpty;

class PreferencesInterfaceTest : public WindowsTest {
 protected:
  std::shared_ptr<PreferencesWindowController> makeController() {
    machine_.interfaceLoader.recipe = [](const std::string& name, platform::InterfaceOwner& owner) {
      return windowsModule().loadWindow(name, owner);
    };
    return PreferencesWindowController::initWithWindowNibName(
        machine_.environment, "AudioPreferencesWindow", {}, [this] { ++quits_; });
  }
  static void pick(QComboBox& box, int row) {
    box.showPopup();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(box.view()->window()));
    box.view()->setCurrentIndex(box.model()->index(row, 0));
    QTest::keyClick(box.view(), Qt::Key_Return);
  }
  // The names of the controls in the order of the Tab key.
  std::vector<std::string> tabOrder() {
    std::vector<std::string> order;
    QWidget* const first = &widget("audioSource");
    first->setFocus();
    do {
      order.push_back(QApplication::focusWidget()->objectName().toStdString());
      QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    } while (QApplication::focusWidget() != first && order.size() < 20);
    return order;
  }

  memory_host::MemoryHost machine_;
  int quits_ = 0;
};

TEST_F(PreferencesInterfaceTest, HasEveryOutletOfTheControllerAndNoOther) {
  load();
  const auto controller = makeController();
  std::set<std::string> declared;
  for (const std::string& name : controller->outletNames()) declared.insert(name);
  // This tool's window does not have the check box.
  EXPECT_EQ(declared.erase("highlightMouseClicksButton"), 1U);
  for (const std::string& name : declared) {
    EXPECT_NE(dialog().findChild<QWidget*>(QString::fromStdString(name)), nullptr) << name;
    EXPECT_TRUE(owner_.outlets.contains(name)) << name;
  }
  for (const auto& [name, view] : owner_.outlets) {
    const bool isOnlyLabelOrDone =
        name == "doneButton" || qobject_cast<QLabel*>(&widget(name.c_str())) != nullptr;
    EXPECT_TRUE(isOnlyLabelOrDone || declared.contains(name)) << name;
  }
}

TEST_F(PreferencesInterfaceTest, SendsEveryActionOfTheControllerAndNoOther) {
  load();
  std::set<std::string> sent{dialog().property("doneAction").toString().toStdString()};
  for (QWidget* named : namedWidgets()) {
    const QString action = named->property("actionName").toString();
    if (!action.isEmpty()) sent.insert(action.toStdString());
  }
  std::set<std::string> declared;
  for (const std::string& name : makeController()->actionNames()) declared.insert(name);
  EXPECT_EQ(declared.erase("onHighlightMouseClicks"), 1U);
  EXPECT_EQ(sent, declared);
}

TEST_F(PreferencesInterfaceTest, WorksWithTheController) {
  machine_.capture.connect("mic", "Microphone");
  const auto controller = makeController();
  controller->showWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog()));
  auto& source = widget<QComboBox>("audioSource");
  ASSERT_TRUE(QTest::qWaitFor([&] { return source.count() == 6; }));
  EXPECT_EQ(source.currentText(), QStringLiteral("Default input device"));
  pick(source, 1);
  EXPECT_EQ(controller->audioSourceType(), 2);
  EXPECT_EQ(controller->audioSourceID(), "mic");
  pick(widget<QComboBox>("soundFormatPopUp"), 1);
  EXPECT_EQ(controller->soundFormat(), 1U);
  pick(widget<QComboBox>("qualityPopUp"), 2);
  EXPECT_EQ(controller->quality(), 2U);

  machine_.capture.connect("usb", "USB");
  EXPECT_TRUE(QTest::qWaitFor([&] { return source.count() == 7; }, 200));
  EXPECT_EQ(source.currentText(), QStringLiteral("Microphone"));

  QTest::mouseClick(&widget("doneButton"), Qt::LeftButton);
  EXPECT_EQ(quits_, 1);
  EXPECT_FALSE(dialog().isVisible());
}

TEST_F(PreferencesInterfaceTest, ShowsStoredIndexesOutOfRangeAsNothingChosen) {
  machine_.userDefaults.values["SoundFormat"] = 7;
  machine_.userDefaults.values["Quality"] = -3;
  const auto controller = makeController();
  controller->showWindow();
  EXPECT_TRUE(QTest::qWaitFor([&] {
    return widget<QComboBox>("soundFormatPopUp").currentIndex() == -1 &&
           widget<QComboBox>("qualityPopUp").currentIndex() == -1;
  }));
}

TEST_F(PreferencesInterfaceTest, EscapeCtrlWTheCloseButtonAndReturnAreDone) {
  show();
  QTest::keyClick(&dialog(), Qt::Key_Escape);
  QTest::keyClick(&dialog(), Qt::Key_W, Qt::ControlModifier);
  EXPECT_FALSE(dialog().close()) << "the controller hides the window";
  QTest::keyClick(&dialog(), Qt::Key_Return);
  widget<QPushButton>("doneButton").click();
  EXPECT_THAT(owner_.actions, ElementsAre("onDoneClicked", "onDoneClicked", "onDoneClicked",
                                          "onDoneClicked", "onDoneClicked"));
  EXPECT_TRUE(dialog().isVisible());
  window_->orderOut();
  EXPECT_FALSE(window_->isVisible());
}

TEST_F(PreferencesInterfaceTest, TellsItsDelegateWhenItBecomesKeyAndChangesVisibility) {
  struct Delegate : platform::WindowDelegate {
    void windowDidBecomeKey() override { journal.emplace_back("key"); }
    void windowDidChangeOcclusionState() override { journal.emplace_back("occlusion"); }
    std::vector<std::string> journal;
  };
  load();
  const auto delegate = std::make_shared<Delegate>();
  window_->setDelegate(delegate);
  show();
  window_->orderOut();
  EXPECT_THAT(delegate->journal, ElementsAre("occlusion", "key", "occlusion"));
}

TEST_F(PreferencesInterfaceTest, TabVisitsTheControlsFromTopToBottom) {
  show();
  EXPECT_THAT(tabOrder(),
              ElementsAre("audioSource", "privacySettingsLink", "soundFormatPopUp", "qualityPopUp",
                          "outputLocation", "outputFolderLink", "doneButton"));
  services().changeShortcut({.offered = true, .trigger = {}});
  EXPECT_THAT(tabOrder(),
              ElementsAre("audioSource", "privacySettingsLink", "soundFormatPopUp", "qualityPopUp",
                          "outputLocation", "outputFolderLink", "shortcutButton", "doneButton"));
  services().changeShortcut({});
  owner_.outlet<platform::Button>("privacySettingsLink")->setHidden(true);
  EXPECT_THAT(tabOrder(), ElementsAre("audioSource", "soundFormatPopUp", "qualityPopUp",
                                      "outputLocation", "outputFolderLink", "doneButton"));
}

// Return presses what has the keyboard; where that is no button, Done.
TEST_F(PreferencesInterfaceTest, ReturnPressesTheButtonThatHasTheKeyboard) {
  services().changeShortcut({.offered = true, .trigger = {}});
  show();
  const std::pair<const char*, const char*> acts[] = {
      {"outputLocation", "onOutputLocationChanged"},
      {"outputFolderLink", "onRevealOutputFolder"},
      {"privacySettingsLink", "onOpenPrivacySettings"},
      {"audioSource", "onDoneClicked"},
      {"doneButton", "onDoneClicked"}};
  for (const int key : {Qt::Key_Return, Qt::Key_Enter}) {
    for (const auto& [name, action] : acts) {
      owner_.actions.clear();
      widget(name).setFocus();
      QTest::keyClick(&widget(name), static_cast<Qt::Key>(key));
      EXPECT_THAT(owner_.actions, ElementsAre(action)) << name;
    }
  }
  widget("shortcutButton").setFocus();
  QTest::keyClick(&widget("shortcutButton"), Qt::Key_Return);
  EXPECT_EQ(services().shortcutChoices.size(), 1U);
}

TEST_F(PreferencesInterfaceTest, TheLevelHasAValueForScreenReaders) {
  show();
  QAccessibleInterface* level = QAccessible::queryAccessibleInterface(&widget("audioLevel"));
  ASSERT_NE(level, nullptr);
  QAccessibleValueInterface* value = level->valueInterface();
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->minimumValue().toInt(), 0);
  EXPECT_EQ(value->maximumValue().toInt(), 100);
  const auto port = owner_.outlet<platform::LevelIndicator>("audioLevel");
  port->setLevel(0.03162278F);  // -30 dB
  EXPECT_EQ(value->currentValue().toInt(), 50);
  value->setCurrentValue(90);
  EXPECT_EQ(value->currentValue().toInt(), 50) << "only the sound changes it";
  port->setLevel(1);
  EXPECT_EQ(value->currentValue().toInt(), 100);
}

TEST_F(PreferencesInterfaceTest, ScreenReadersPressLinks) {
  show();
  QAccessibleInterface* link = QAccessible::queryAccessibleInterface(&widget("outputFolderLink"));
  ASSERT_NE(link, nullptr);
  QAccessibleActionInterface* actions = link->actionInterface();
  ASSERT_NE(actions, nullptr);
  ASSERT_TRUE(actions->actionNames().contains(QAccessibleActionInterface::pressAction()));
  actions->doAction(QAccessibleActionInterface::pressAction());
  EXPECT_THAT(owner_.actions, ElementsAre("onRevealOutputFolder"));
  EXPECT_TRUE(link->state().focusable);
}

TEST_F(PreferencesInterfaceTest, HidingTheLevelDoesNotMoveTheOtherControls) {
  show();
  const auto level = owner_.outlet<platform::LevelIndicator>("audioLevel");
  const QSize size = dialog().size();
  const QPoint place = widget("soundFormatPopUp").pos();
  level->setHidden(true);
  QCoreApplication::processEvents();
  EXPECT_EQ(dialog().size(), size);
  EXPECT_EQ(widget("soundFormatPopUp").pos(), place);
}

class LanguageTest : public PreferencesInterfaceTest,
                     public testing::WithParamInterface<std::string> {
 protected:
  LanguageTest() { services().speak(GetParam()); }
};

TEST_P(LanguageTest, EveryFieldHasAMnemonicOfItsOwn) {
  load();
  std::map<QString, std::string> users;
  for (QWidget* named : namedWidgets()) {
    const QString mnemonic = QKeySequence::mnemonic(named->property("text").toString()).toString();
    const auto* label = qobject_cast<QLabel*>(named);
    const bool needsOne =
        (label != nullptr && label->buddy() != nullptr) || named->objectName() == u"doneButton";
    EXPECT_EQ(!mnemonic.isEmpty(), needsOne) << named->objectName().toStdString();
    if (mnemonic.isEmpty()) continue;
    const auto [user, isNew] = users.emplace(mnemonic, named->objectName().toStdString());
    EXPECT_TRUE(isNew) << mnemonic.toStdString() << " is of " << user->second << " already";
  }
  EXPECT_EQ(users.size(), 6U);
}

// What assistive technology gets.
TEST_P(LanguageTest, EveryControlHasAnAccessibleNameAndRole) {
  show();
  const std::map<std::string, QAccessible::Role> roles{
      {"audioSource", QAccessible::ComboBox},  {"soundFormatPopUp", QAccessible::ComboBox},
      {"qualityPopUp", QAccessible::ComboBox}, {"outputLocation", QAccessible::Button},
      {"outputFolderLink", QAccessible::Link}, {"privacySettingsLink", QAccessible::Link},
      {"doneButton", QAccessible::Button},     {"audioWarning", QAccessible::StaticText},
      {"shortcutButton", QAccessible::Button}, {"audioLevel", QAccessible::ProgressBar}};
  for (const auto& [name, role] : roles) {
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&widget(name.c_str()));
    ASSERT_NE(accessible, nullptr) << name;
    EXPECT_EQ(accessible->role(), role) << name;
    const QString spoken = accessible->text(QAccessible::Name);
    EXPECT_FALSE(spoken.isEmpty()) << name;
    EXPECT_FALSE(spoken.contains(u'&')) << name;
  }
  QAccessibleInterface* level = QAccessible::queryAccessibleInterface(&widget("audioLevel"));
  ASSERT_NE(level, nullptr);
  EXPECT_EQ(level->text(QAccessible::Name), text("Input level"));
  for (const char* name : {"audioSource", "soundFormatPopUp", "qualityPopUp", "audioLevel",
                           "shortcutButton", "doneButton"}) {
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&widget(name));
    EXPECT_FALSE(accessible->text(QAccessible::Description).isEmpty()) << name;
  }
  QAccessibleInterface* window = QAccessible::queryAccessibleInterface(&dialog());
  EXPECT_EQ(window->text(QAccessible::Name), text("Record Audio Preferences"));
}

INSTANTIATE_TEST_SUITE_P(AllLanguages, LanguageTest, testing::ValuesIn(languages()),
                         [](const auto& language) { return language.param; });

TEST(LanguagesTest, AreTheOnesWithAStringTable) {
  EXPECT_GE(languages().size(), 15U);
}

}  // namespace
}  // namespace linux_host
