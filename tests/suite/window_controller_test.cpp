// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "suite/korvel_window_controller.h"
#include "tests/memory_host/memory_controls.h"
#include "tests/memory_host/memory_host.h"

namespace suite {
namespace {

using memory_host::MemoryCheckBox;
using memory_host::MemoryHost;
using memory_host::MemoryTextField;
using testing::ElementsAre;
using testing::IsEmpty;

class PlainController : public KorvelWindowController {
 public:
  explicit PlainController(Environment environment) : KorvelWindowController(environment, "Plain") {
    addOutlet("box", box);
    addOutlet("label", label);
    addAction("press", [this](platform::View* sender) { senders.push_back(sender); });
  }
  [[nodiscard]] bool hidesPreferencesButton() const override { return isWithoutPreferences; }
  [[nodiscard]] bool hidesCloseButton() const override { return isWithoutClose; }
  void windowDidLoad() override {
    ++loads;
    labelWasThereAtLoad = !label.expired();
  }

  std::weak_ptr<platform::CheckBox> box;
  std::weak_ptr<platform::TextField> label;
  std::vector<platform::View*> senders;
  bool isWithoutPreferences = false;
  bool isWithoutClose = false;
  int loads = 0;
  bool labelWasThereAtLoad = false;
};

class WindowControllerTest : public testing::Test {
 protected:
  MemoryHost machine_;
  PlainController controller_{machine_.environment};
};

TEST_F(WindowControllerTest, LoadsItsWindowOnceAndOnlyWhenNeeded) {
  EXPECT_FALSE(controller_.isWindowLoaded());
  EXPECT_FALSE(controller_.isWindowVisible());
  EXPECT_THAT(machine_.interfaceLoader.loaded, IsEmpty());
  const auto window = controller_.window();
  EXPECT_NE(window, nullptr);
  EXPECT_EQ(controller_.window(), window);
  EXPECT_TRUE(controller_.isWindowLoaded());
  EXPECT_THAT(machine_.interfaceLoader.loaded, ElementsAre("Plain"));
  EXPECT_EQ(controller_.loads, 1);
}

TEST_F(WindowControllerTest, ShowsTheWindowAsTheKeyWindow) {
  controller_.showWindow();
  EXPECT_TRUE(controller_.isWindowVisible());
  EXPECT_THAT(machine_.interfaceLoader.windows.at(0)->journal, ElementsAre("makeKeyAndOrderFront"));
}

TEST_F(WindowControllerTest, HasBothTitleBarButtonsByDefault) {
  controller_.showWindow();
  EXPECT_TRUE(machine_.interfaceLoader.windows.at(0)->hasPreferencesButton);
  EXPECT_TRUE(machine_.interfaceLoader.windows.at(0)->hasCloseButton);
}

TEST_F(WindowControllerTest, HasOnlyTheTitleBarButtonsThatItDoesNotHide) {
  PlainController other(machine_.environment);
  controller_.isWithoutPreferences = true;
  other.isWithoutClose = true;
  controller_.showWindow();
  other.showWindow();
  EXPECT_FALSE(machine_.interfaceLoader.windows.at(0)->hasPreferencesButton);
  EXPECT_TRUE(machine_.interfaceLoader.windows.at(0)->hasCloseButton);
  EXPECT_TRUE(machine_.interfaceLoader.windows.at(1)->hasPreferencesButton);
  EXPECT_FALSE(machine_.interfaceLoader.windows.at(1)->hasCloseButton);
}

TEST_F(WindowControllerTest, TriesAgainAfterAWindowCouldNotBeLoaded) {
  machine_.interfaceLoader.recipe = [](const auto&, auto&) { return nullptr; };
  EXPECT_EQ(controller_.window(), nullptr);
  controller_.showWindow();
  EXPECT_EQ(controller_.loads, 0);
  machine_.interfaceLoader.recipe = nullptr;
  controller_.showWindow();
  EXPECT_TRUE(controller_.isWindowVisible());
  EXPECT_EQ(controller_.loads, 1);
}

TEST_F(WindowControllerTest, HasItsOutletsWhenTheWindowDidLoad) {
  const auto label = std::make_shared<MemoryTextField>();
  machine_.interfaceLoader.recipe = [&](const std::string&, platform::InterfaceOwner& owner) {
    owner.connectOutlet("label", label);
    return std::make_shared<memory_host::MemoryWindow>();
  };
  controller_.window();
  EXPECT_TRUE(controller_.labelWasThereAtLoad);
}

TEST_F(WindowControllerTest, ConnectsOutletsByNameAndKeepsThemWeakly) {
  auto label = std::make_shared<MemoryTextField>();
  controller_.connectOutlet("label", label);
  EXPECT_EQ(controller_.label.lock(), label);
  label.reset();
  EXPECT_TRUE(controller_.label.expired());
}

TEST_F(WindowControllerTest, IgnoresUnknownOutletsAndControlsOfAnotherKind) {
  const auto label = std::make_shared<MemoryTextField>();
  controller_.connectOutlet("nothing", label);
  controller_.connectOutlet("box", label);
  controller_.connectOutlet("label", nullptr);
  EXPECT_TRUE(controller_.box.expired());
  EXPECT_TRUE(controller_.label.expired());
}

TEST_F(WindowControllerTest, PerformsActionsByNameAndIgnoresUnknownOnes) {
  MemoryCheckBox box;
  controller_.performAction("press", &box);
  controller_.performAction("press", nullptr);
  controller_.performAction("nothing", &box);
  EXPECT_THAT(controller_.senders, ElementsAre(&box, nullptr));
}

TEST_F(WindowControllerTest, ListsWhatAnInterfaceFileMayConnectTo) {
  EXPECT_THAT(controller_.outletNames(), ElementsAre("box", "label"));
  EXPECT_THAT(controller_.actionNames(), ElementsAre("press"));
}

}  // namespace
}  // namespace suite
