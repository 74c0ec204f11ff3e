// SPDX-License-Identifier: MIT
#include <limits>

#include "tests/windows/both_fixture.h"

namespace linux_host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class BothMenuTest : public BothTest {
 protected:
  BothMenuTest() {
    show();
    port_ = owner_.outlet<platform::PopUpButton>("audioSource");
  }

  // Fills it like the audio source list.
  void fill(const std::vector<std::string>& microphones, int selected) {
    port_->removeAllItems();
    if (!microphones.empty()) port_->addItem("Default input device");
    for (const std::string& name : microphones) port_->addItem(name);
    port_->addSeparator();
    port_->addItem("Computer");
    port_->addSeparator();
    port_->addItem("Don't record audio");
    port_->selectItem(selected);
  }
  void fillAndShow(const std::vector<std::string>& microphones, int selected,
                   const std::string& chosen) {
    fill(microphones, selected);
    const std::size_t rows = microphones.size() + (microphones.empty() ? 2 : 3);
    EXPECT_TRUE(WindowUser::until([&] {
      return user().menu("audioSource").size() == rows && user().chosen("audioSource") == chosen;
    })) << user().chosen("audioSource");
  }

  std::shared_ptr<platform::PopUpButton> port_;
};

TEST_F(BothMenuTest, KnowsItsContentAtOnceAndCountsSeparators) {
  fill({"One", "Two"}, 2);
  EXPECT_EQ(port_->numberOfItems(), 7);
  EXPECT_EQ(port_->indexOfSelectedItem(), 2);
  EXPECT_TRUE(WindowUser::until([] { return user().chosen("audioSource") == "Two"; }));
  EXPECT_THAT(user().menu("audioSource"),
              ElementsAre("Default input device", "One", "Two", "Computer", "Don't record audio"));
}

TEST_F(BothMenuTest, BeginsWithASeparatorWithoutMicrophones) {
  fillAndShow({}, 3, "Don't record audio");
  EXPECT_EQ(port_->numberOfItems(), 4);
  EXPECT_THAT(user().menu("audioSource"), ElementsAre("Computer", "Don't record audio"));
  user().pick("audioSource", 0);
  EXPECT_EQ(port_->indexOfSelectedItem(), 1);
}

TEST_F(BothMenuTest, SelectsNothingOutsideTheMenu) {
  for (const std::int64_t index : {std::int64_t{-1}, std::int64_t{7}, std::int64_t{1} << 40,
                                   std::int64_t{std::numeric_limits<std::int64_t>::min()}}) {
    fillAndShow({"One", "Two"}, 2, "Two");
    port_->selectItem(index);
    EXPECT_EQ(port_->indexOfSelectedItem(), -1) << index;
    EXPECT_TRUE(WindowUser::until([] { return user().chosen("audioSource").empty(); })) << index;
  }
}

TEST_F(BothMenuTest, SendsItsActionOnceForAPickAndNeverForTheProgramsOwnChoice) {
  fillAndShow({"One", "Two"}, 0, "Default input device");
  EXPECT_THAT(owner_.actions, IsEmpty());
  user().pick("audioSource", 2);
  EXPECT_THAT(owner_.actions, ElementsAre("onAudioSelect"));
  EXPECT_EQ(port_->indexOfSelectedItem(), 2);
  user().pick("audioSource", 4);
  EXPECT_EQ(port_->indexOfSelectedItem(), 6);
}

// A microphone that is missing is shown as the default one; picking that is a new choice.
TEST_F(BothMenuTest, SendsItsActionForAPickOfWhatIsChosenAlready) {
  fillAndShow({"One"}, 0, "Default input device");
  user().pick("audioSource", 0);
  EXPECT_THAT(owner_.actions, ElementsAre("onAudioSelect"));
  EXPECT_EQ(port_->indexOfSelectedItem(), 0);
}

TEST_F(BothMenuTest, TellsTwoDevicesOfOneNameApart) {
  fillAndShow({"Twin", "Twin"}, 0, "Default input device");
  user().pick("audioSource", 2);
  EXPECT_EQ(port_->indexOfSelectedItem(), 2);
  user().pick("audioSource", 1);
  EXPECT_EQ(port_->indexOfSelectedItem(), 1);
  EXPECT_THAT(owner_.actions, ElementsAre("onAudioSelect", "onAudioSelect"));
}

TEST_F(BothMenuTest, ADeviceThatComesOrGoesLeavesTheChoiceWhereItIs) {
  fillAndShow({"One", "Two"}, 2, "Two");
  fillAndShow({"One", "New", "Two"}, 3, "Two");
  fillAndShow({"Two"}, 1, "Two");
  EXPECT_THAT(owner_.actions, IsEmpty());
}

TEST_F(BothMenuTest, ChangesWhileTheWindowIsHidden) {
  fillAndShow({"One", "Two"}, 2, "Two");
  window_->orderOut();
  fillAndShow({}, 1, "Computer");
  fillAndShow({"One", "Two", "Three"}, 3, "Three");
  show();
  EXPECT_EQ(user().chosen("audioSource"), "Three");
  user().pick("audioSource", 1);
  EXPECT_EQ(port_->indexOfSelectedItem(), 1);
}

struct Name {
  const char* what;
  std::string given;
  std::string shown;
};

class BothNameTest : public BothMenuTest, public testing::WithParamInterface<Name> {};

TEST_P(BothNameTest, IsShownSafelyAndChosen) {
  fillAndShow({"One", GetParam().given}, 0, "Default input device");
  EXPECT_EQ(user().menu("audioSource").at(2), GetParam().shown);
  user().pick("audioSource", 2);
  EXPECT_EQ(port_->indexOfSelectedItem(), 2);
  EXPECT_TRUE(WindowUser::until([] { return user().chosen("audioSource") == GetParam().shown; }));
}

INSTANTIATE_TEST_SUITE_P(
    Names, BothNameTest,
    testing::Values(Name{"Empty", "", "Unnamed microphone"},
                    Name{"Blank", " \t\n ", "Unnamed microphone"},
                    Name{"Long", std::string(4000, 'm'), std::string(4000, 'm')},
                    Name{"Markup", "<b>Mic</b> & <img src=x>", "<b>Mic</b> & <img src=x>"},
                    Name{"Mnemonic", "My_mic & you__", "My_mic & you__"},
                    Name{"Newlines", "Mic\nrophone\r\n2", "Mic rophone 2"},
                    Name{"BidiControls", "A\u202Egnp.exe\u2066\u200F", "A gnp.exe"},
                    Name{"Controls", std::string("A\x1B[2J\x07") + '\0' + "B", "A [2J B"},
                    Name{"NotUtf8", "Mic\xFF\xFE", "Mic\uFFFD\uFFFD"},
                    Name{"BeyondTheBasicPlane", "Mic \U0001F3A4", "Mic \U0001F3A4"}),
    [](const auto& name) { return std::string(name.param.what); });

}  // namespace
}  // namespace linux_host
