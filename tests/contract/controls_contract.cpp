// SPDX-License-Identifier: MIT
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/contract/contract_test.h"

// What platform/controls.h promises, by the preferences window, and what application.h promises of
// alerts on a screen.

namespace contract {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class WindowReader : public platform::InterfaceOwner, public platform::WindowDelegate {
 public:
  void connectOutlet(const std::string& name,
                     const std::shared_ptr<platform::View>& view) override {
    EXPECT_NE(view, nullptr) << name;
    EXPECT_FALSE(outlets.contains(name)) << name << " comes twice";
    outlets[name] = view;
  }
  void performAction(const std::string& name, platform::View* sender) override {
    actions.push_back(name);
    senders.push_back(sender);
    if (onAction) onAction();
  }
  void windowDidBecomeKey() override { ++becameKey; }
  void windowDidChangeOcclusionState() override { ++occlusionChanges; }

  std::map<std::string, std::weak_ptr<platform::View>> outlets;
  std::vector<std::string> actions;
  std::vector<platform::View*> senders;
  std::function<void()> onAction;
  int becameKey = 0;
  int occlusionChanges = 0;
};

class ControlsContract : public ContractTest {
 protected:
  void SetUp() override {
    window = host().interfaceLoader.loadWindow("AudioPreferencesWindow", *reader);
    ASSERT_NE(window, nullptr);
    window->setDelegate(reader);
  }
  void TearDown() override { window.reset(); }
  template <typename Control>
  std::shared_ptr<Control> outlet(const std::string& name) {
    const auto found = reader->outlets.find(name);
    if (found == reader->outlets.end()) return nullptr;
    return std::dynamic_pointer_cast<Control>(found->second.lock());
  }
  std::shared_ptr<platform::PopUpButton> menu() {
    auto found = outlet<platform::PopUpButton>("audioSource");
    if (found == nullptr) throw std::runtime_error("the window has no menu of sources");
    return found;
  }
  // Three entries and a separator before the last.
  void fillMenu() {
    menu()->removeAllItems();
    menu()->addItem("first");
    menu()->addItem("second");
    menu()->addSeparator();
    menu()->addItem("last");
  }
  bool show() {
    window->makeKeyAndOrderFront();
    return rig->runUntil([&] { return reader->becameKey > 0; });
  }

  const std::unique_ptr<Screen> screen = makeScreen(*rig);
  const std::shared_ptr<WindowReader> reader = std::make_shared<WindowReader>();
  std::shared_ptr<platform::Window> window;
};

TEST_F(ControlsContract, AnInterfaceFileThatIsNotThereMakesNoWindow) {
  WindowReader other;
  EXPECT_EQ(host().interfaceLoader.loadWindow("no such window", other), nullptr);
  EXPECT_THAT(other.outlets, IsEmpty());
}

TEST_F(ControlsContract, TheControlsAreConnectedByNameAndGoWithTheirWindow) {
  EXPECT_NE(outlet<platform::PopUpButton>("audioSource"), nullptr);
  EXPECT_NE(outlet<platform::PopUpButton>("soundFormatPopUp"), nullptr);
  EXPECT_NE(outlet<platform::PopUpButton>("qualityPopUp"), nullptr);
  EXPECT_NE(outlet<platform::TextField>("audioWarning"), nullptr);
  EXPECT_NE(outlet<platform::LevelIndicator>("audioLevel"), nullptr);
  EXPECT_NE(outlet<platform::Button>("outputFolderLink"), nullptr);
  EXPECT_NE(outlet<suite::OutputLocationButton>("outputLocation"), nullptr);
  EXPECT_THAT(reader->actions, IsEmpty());
  window.reset();
  for (const auto& [name, view] : reader->outlets) EXPECT_TRUE(view.expired()) << name;
}

TEST_F(ControlsContract, AMenuHoldsWhatIsPutIntoItAndSelectsNothingByItself) {
  fillMenu();
  EXPECT_EQ(menu()->numberOfItems(), 4);
  EXPECT_EQ(menu()->indexOfSelectedItem(), -1);
  menu()->selectItem(3);
  EXPECT_EQ(menu()->indexOfSelectedItem(), 3);
  for (const std::int64_t outside : {std::int64_t{4}, std::int64_t{-1}, std::int64_t{1} << 40}) {
    menu()->selectItem(1);
    menu()->selectItem(outside);
    EXPECT_EQ(menu()->indexOfSelectedItem(), -1) << outside;
  }
  menu()->selectItem(1);
  menu()->removeAllItems();
  EXPECT_EQ(menu()->numberOfItems(), 0);
  EXPECT_EQ(menu()->indexOfSelectedItem(), -1);
  EXPECT_THAT(reader->actions, IsEmpty()) << "only the user acts";
}

TEST_F(ControlsContract, TheUsersPickIsSelectedBeforeItIsTold) {
  ASSERT_TRUE(show());
  fillMenu();
  menu()->selectItem(0);
  int selected = -1;
  reader->onAction = [&] { selected = menu()->indexOfSelectedItem(); };
  screen->pick("audioSource", 3);
  ASSERT_TRUE(rig->runUntil([&] { return !reader->actions.empty(); }));
  EXPECT_THAT(reader->actions, ElementsAre("onAudioSelect"));
  EXPECT_THAT(reader->senders, ElementsAre(menu().get()));
  EXPECT_EQ(selected, 3);
  EXPECT_EQ(menu()->indexOfSelectedItem(), 3);
}

TEST_F(ControlsContract, AMenuOfTheInterfaceFileHasItsFirstItemSelected) {
  const auto format = outlet<platform::PopUpButton>("soundFormatPopUp");
  ASSERT_NE(format, nullptr);
  EXPECT_EQ(format->numberOfItems(), 2);
  EXPECT_EQ(format->indexOfSelectedItem(), 0);
}

TEST_F(ControlsContract, AViewIsHiddenAndShown) {
  const auto warning = outlet<platform::TextField>("audioWarning");
  ASSERT_NE(warning, nullptr);
  warning->setHidden(true);
  EXPECT_TRUE(warning->isHidden());
  warning->setHidden(false);
  EXPECT_FALSE(warning->isHidden());
  menu()->setHidden(true);
  EXPECT_TRUE(menu()->isHidden());
  EXPECT_FALSE(warning->isHidden());
}

TEST_F(ControlsContract, AViewThatWasTakenOutStaysOutAndIsHarmless) {
  const auto warning = outlet<platform::TextField>("audioWarning");
  const auto level = outlet<platform::LevelIndicator>("audioLevel");
  ASSERT_NE(warning, nullptr);
  ASSERT_NE(level, nullptr);
  warning->removeFromSuperview();
  level->removeFromSuperview();
  EXPECT_TRUE(warning->isHidden());
  warning->setHidden(false);
  EXPECT_TRUE(warning->isHidden()) << "for good";
  warning->setStringValue("nobody sees it");
  level->setLevel(0.5F);
  warning->removeFromSuperview();
  EXPECT_TRUE(show());
}

TEST_F(ControlsContract, ATextFieldShowsItsText) {
  const auto warning = outlet<platform::TextField>("audioWarning");
  ASSERT_NE(warning, nullptr);
  warning->setHidden(false);
  warning->setStringValue("Muted & <b>quiet</b>");
  ASSERT_TRUE(show());
  EXPECT_EQ(screen->shownText("audioWarning"), "Muted & <b>quiet</b>");
}

TEST_F(ControlsContract, ALevelTakesAnyNumber) {
  const auto level = outlet<platform::LevelIndicator>("audioLevel");
  ASSERT_NE(level, nullptr);
  ASSERT_TRUE(show());
  for (const float peak : {0.0F, 0.5F, 1.0F, 2.0F, -1.0F}) level->setLevel(peak);
}

TEST_F(ControlsContract, AButtonHasATitleAFontAndBoundsAndTellsItsClick) {
  const auto link = outlet<platform::Button>("outputFolderLink");
  ASSERT_NE(link, nullptr);
  link->setHidden(false);
  ASSERT_TRUE(show());
  EXPECT_THAT(link->title(), Not(IsEmpty()));
  EXPECT_GT(link->font().size_points, 0);
  EXPECT_THAT(link->font().family, Not(IsEmpty()));
  EXPECT_GT(link->bounds().width, 0);
  EXPECT_GT(link->bounds().height, 0);
  screen->click("outputFolderLink");
  ASSERT_TRUE(rig->runUntil([&] { return !reader->actions.empty(); }));
  EXPECT_THAT(reader->actions, ElementsAre("onRevealOutputFolder"));
  EXPECT_THAT(reader->senders, ElementsAre(link.get()));
}

class LinkContract : public ControlsContract {
 protected:
  class Responder : public platform::ButtonResponder {
   public:
    explicit Responder(platform::Cursor& cursor) : cursor_(cursor) {}
    bool acceptsFirstMouse() override { return acceptsFirst; }
    void cursorUpdate() override {
      ++updates;
      cursor_.setPointingHand();
    }
    bool acceptsFirst = false;
    int updates = 0;

   private:
    platform::Cursor& cursor_;
  };

  void SetUp() override {
    ControlsContract::SetUp();
    link = outlet<platform::Button>("outputFolderLink");
    ASSERT_NE(link, nullptr);
    link->setHidden(false);
    link->setResponder(responder);
    ASSERT_TRUE(show());
  }
  platform::TrackingAreaPtr area() {
    return std::make_shared<platform::TrackingArea>(platform::TrackingArea{
        link->bounds(), platform::kTrackingCursorUpdate | platform::kTrackingActiveInKeyWindow});
  }

  const std::shared_ptr<Responder> responder = std::make_shared<Responder>(host().cursor);
  std::shared_ptr<platform::Button> link;
};

TEST_F(LinkContract, ThePointerOverATrackingAreaAsksTheResponderAndIsPutBack) {
  screen->pointAt("outputFolderLink");
  rig->pass(0.02);
  EXPECT_EQ(responder->updates, 0) << "there is no area yet";
  screen->pointAt("");
  const auto tracked = area();
  link->addTrackingArea(tracked);
  screen->pointAt("outputFolderLink");
  ASSERT_TRUE(rig->runUntil([&] { return screen->isPointerAHand(); }));
  EXPECT_GE(responder->updates, 1);
  screen->pointAt("");
  EXPECT_TRUE(rig->runUntil([&] { return !screen->isPointerAHand(); }));
  const int before = responder->updates;
  link->removeTrackingArea(area());
  link->removeTrackingArea(tracked);
  screen->pointAt("outputFolderLink");
  rig->pass(0.02);
  EXPECT_EQ(responder->updates, before);
  EXPECT_FALSE(screen->isPointerAHand());
}

TEST_F(LinkContract, AnotherAreaThanItsOwnIsNotRemoved) {
  link->addTrackingArea(area());
  link->removeTrackingArea(area());
  screen->pointAt("outputFolderLink");
  EXPECT_TRUE(rig->runUntil([&] { return screen->isPointerAHand(); }));
}

TEST_F(LinkContract, TheResponderDecidesAboutTheClickThatBringsItsWindowToTheFront) {
  screen->clickFromBehind("outputFolderLink");
  rig->pass(0.02);
  EXPECT_THAT(reader->actions, IsEmpty());
  responder->acceptsFirst = true;
  screen->clickFromBehind("outputFolderLink");
  ASSERT_TRUE(rig->runUntil([&] { return !reader->actions.empty(); }));
  EXPECT_THAT(reader->actions, ElementsAre("onRevealOutputFolder"));
}

TEST_F(LinkContract, AResponderThatHasGoneIsNotAsked) {
  link->addTrackingArea(area());
  link->setResponder({});
  screen->pointAt("outputFolderLink");
  rig->pass(0.02);
  EXPECT_EQ(responder->updates, 0);
}

TEST_F(LinkContract, AnAttributedTitleIsTheTitleFromThenOn) {
  link->setAttributedTitle({.text = "Contract & folder",
                            .foregroundColor = {0, 0.5F, 1, 1},
                            .font = link->font(),
                            .underlineStyle = platform::kUnderlineStyleSingle,
                            .paragraphStyle = {platform::LineBreakMode::kByTruncatingTail}});
  EXPECT_EQ(link->title(), "Contract & folder");
  screen->click("outputFolderLink");
  EXPECT_TRUE(rig->runUntil([&] { return !reader->actions.empty(); }));
}

TEST_F(ControlsContract, AWindowIsShownAndTakenAwayAndItsDelegateHearsOfIt) {
  EXPECT_FALSE(window->isVisible());
  window->orderOut();
  EXPECT_EQ(reader->occlusionChanges, 0);
  ASSERT_TRUE(show());
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(reader->occlusionChanges, 1);
  window->orderFront();
  EXPECT_EQ(reader->occlusionChanges, 1) << "it was in front";
  window->orderOut();
  EXPECT_FALSE(window->isVisible());
  EXPECT_EQ(reader->occlusionChanges, 2);
  window->orderOut();
  EXPECT_EQ(reader->occlusionChanges, 2);
  window->orderFrontRegardless();
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(reader->occlusionChanges, 3);
  EXPECT_THAT(reader->actions, IsEmpty());
}

TEST_F(ControlsContract, AWindowThatNobodySeesIsOccludedButStaysVisible) {
  EXPECT_FALSE(window->isOccluded());
  ASSERT_TRUE(show());
  EXPECT_FALSE(window->isOccluded());
  screen->coverWindow(true);
  ASSERT_TRUE(rig->runUntil([&] { return window->isOccluded(); }));
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(reader->occlusionChanges, 2);
  screen->coverWindow(false);
  ASSERT_TRUE(rig->runUntil([&] { return !window->isOccluded(); }));
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(reader->occlusionChanges, 3);
  screen->coverWindow(true);
  window->orderOut();
  EXPECT_FALSE(window->isVisible());
  EXPECT_FALSE(window->isOccluded()) << "it is not shown";
}

TEST_F(ControlsContract, TheUserWhoLeavesAWindowIsHeardAndItStays) {
  window->setTitleBarButtons(false, false);
  ASSERT_TRUE(show());
  screen->leaveWindow();
  ASSERT_TRUE(rig->runUntil([&] { return !reader->actions.empty(); }));
  EXPECT_THAT(reader->actions, ElementsAre("onDoneClicked"));
  EXPECT_TRUE(window->isVisible()) << "the owner takes it away";
}

TEST_F(ControlsContract, ADelegateThatHasGoneIsNotCalled) {
  window->setDelegate({});
  window->makeKeyAndOrderFront();
  rig->pass(0.05);
  EXPECT_EQ(reader->occlusionChanges, 0);
  EXPECT_EQ(reader->becameKey, 0);
}

TEST_F(ControlsContract, AColourForLinksIsNoneOrAColour) {
  const auto color = host().systemColors.linkColor();
  if (color) {
    for (const float part : {color->red, color->green, color->blue, color->alpha}) {
      EXPECT_GE(part, 0);
      EXPECT_LE(part, 1);
    }
  }
  host().cursor.setPointingHand();
}

class ShownAlertContract : public ContractTest {
 protected:
  // What the alert answers when the user does `act` in it.
  int answer(const std::function<void()>& act) {
    screen->onAlert(act);
    return host().alerts.runModal(alert);
  }

  const std::unique_ptr<Screen> screen = makeScreen(*rig);
  platform::Alert alert{.style = platform::AlertStyle::kWarning,
                        .messageText = "Contract?",
                        .informativeText = "More of it.",
                        .buttons = {"Yes", "Later", "No"},
                        .extraButton = "Elsewhere"};
};

TEST_F(ShownAlertContract, EachButtonHasItsAnswer) {
  int expected = platform::kAlertFirstButtonReturn;
  for (const char* button : {"Yes", "Later", "No"}) {
    EXPECT_EQ(answer([&] { screen->pressInAlert(button); }), expected++);
  }
  EXPECT_EQ(answer([&] { screen->pressInAlert("Elsewhere"); }), platform::kAlertExtraButtonReturn);
}

TEST_F(ShownAlertContract, AnAlertThatIsClosedAnswersWithItsLastButton) {
  EXPECT_EQ(answer([&] { screen->closeAlert(); }), platform::kAlertFirstButtonReturn + 2);
  alert.buttons.clear();
  EXPECT_EQ(answer([&] { screen->closeAlert(); }), platform::kAlertFirstButtonReturn);
}

TEST_F(ShownAlertContract, QueuedWorkGoesOnMeanwhileAndTimersFireAfterwards) {
  bool queued = false;
  int fired = 0;
  const auto timer =
      host().runLoop.scheduledTimer(0.05, {}, true, [&](const platform::TimerPtr&) { ++fired; });
  answer([&] {
    host().dispatch.mainQueue()->async([&] { queued = true; });
    EXPECT_TRUE(rig->runUntil([&] { return queued; }));
    rig->pass(0.2);
    EXPECT_EQ(fired, 0);
    screen->pressInAlert("Yes");
  });
  EXPECT_EQ(fired, 0) << "not within the call";
  EXPECT_TRUE(rig->runUntil([&] { return fired > 0; }));
  EXPECT_EQ(fired, 1) << "what was missed is skipped";
  timer->invalidate();
}

// An application that shows an alert when it has been launched.
class AlertingApplication : public platform::ApplicationDelegate, public platform::RemoteControl {
 public:
  void applicationWillFinishLaunching() override {}
  bool application(const std::string&) override { return true; }
  void applicationDidFinishLaunching() override { onLaunch(); }
  bool applicationShouldHandleReopen(bool hasVisibleWindows) override {
    reopened.push_back(hasVisibleWindows);
    if (onReopen) onReopen();
    return true;
  }
  platform::TerminateReply applicationShouldTerminate() override {
    ++asked;
    return std::exchange(reply, platform::TerminateReply::kNow);
  }
  void applicationWillTerminate() override {}

  bool stop() override { return false; }
  bool cancel() override { return false; }
  [[nodiscard]] platform::Dictionary status() const override { return {{"state", "idle"}}; }
  void setOnStateChange(std::function<void()>) override {}

  std::function<void()> onLaunch;
  std::function<void()> onReopen;
  std::vector<bool> reopened;
  int asked = 0;
  platform::TerminateReply reply = platform::TerminateReply::kNow;  // to the next question
};

class AlertingContract : public ShownAlertContract {
 protected:
  void SetUp() override { rig->surroundings(); }
  void run(std::function<void()> onLaunch) {
    application->onLaunch = [this, onLaunch = std::move(onLaunch)] {
      host().runLoop.performAfterDelay(0, onLaunch);
    };
    rig->surroundings().run(application, application, {});
  }
  void terminate() { host().application.terminate(); }

  const std::shared_ptr<AlertingApplication> application = std::make_shared<AlertingApplication>();
};

TEST_F(AlertingContract, AnotherStartRaisesTheAlertAndIsNotKept) {
  int answered = 0;
  run([&] {
    answered = answer([&] {
      rig->surroundings().startAgain({});
      rig->pass(0.3);
      EXPECT_THAT(application->reopened, IsEmpty());
      screen->pressInAlert("Later");
    });
    host().runLoop.performAfterDelay(0.1, [&] { terminate(); });
  });
  EXPECT_EQ(answered, platform::kAlertFirstButtonReturn + 1);
  EXPECT_THAT(application->reopened, IsEmpty()) << "it was kept";
}

TEST_F(AlertingContract, AnEndThatIsRefusedDismissesTheAlertAndAsksAgain) {
  int answered = 0;
  int askedMeanwhile = 0;
  application->reply = platform::TerminateReply::kCancel;
  run([&] {
    answered = answer([&] { terminate(); });
    askedMeanwhile = application->asked;
  });
  EXPECT_EQ(answered, platform::kAlertFirstButtonReturn + 2) << "its last button";
  EXPECT_EQ(askedMeanwhile, 1) << "asked again within the event that showed the alert";
  EXPECT_EQ(application->asked, 2);
}

TEST_F(AlertingContract, AnotherStartSaysWhetherAWindowIsVisible) {
  const auto reader = std::make_shared<WindowReader>();
  std::shared_ptr<platform::Window> window;
  application->onReopen = [&] {
    if (application->reopened.size() == 2) return terminate();
    window->orderOut();
    host().runLoop.performAfterDelay(0, [&] { rig->surroundings().startAgain({}); });
  };
  run([&] {
    window = host().interfaceLoader.loadWindow("AudioPreferencesWindow", *reader);
    ASSERT_NE(window, nullptr);
    window->makeKeyAndOrderFront();
    rig->surroundings().startAgain({});
  });
  EXPECT_THAT(application->reopened, ElementsAre(true, false));
}

}  // namespace
}  // namespace contract
