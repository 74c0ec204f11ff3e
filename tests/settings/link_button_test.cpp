// SPDX-License-Identifier: MIT
#include "settings/link_button.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/memory_host/memory_controls.h"
#include "tests/memory_host/memory_host.h"
#include "tests/settings/preferences_fixture.h"
#include "tests/shared/own_process.h"

namespace record_audio {
namespace {

using memory_host::MemoryButton;
using memory_host::MemoryHost;
using platform::Color;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Color kRed{1, 0, 0, 1};

class LinkButtonTest : public testing::Test {
 protected:
  void awake() {
    link_->awakeFromNib();
    machine_.runLoop.settle();
  }
  const platform::AttributedString& title() { return button_->attributedTitles.back(); }

  MemoryHost machine_;
  std::shared_ptr<MemoryButton> button_ = std::make_shared<MemoryButton>();
  std::shared_ptr<LinkButton> link_ = LinkButton::initWithButton(machine_.host, button_);
};

TEST_F(LinkButtonTest, DrawsNothingBeforeItAwakes) {
  machine_.runLoop.settle();
  EXPECT_THAT(button_->attributedTitles, IsEmpty());
  EXPECT_THAT(button_->areas, IsEmpty());
}

TEST_F(LinkButtonTest, UnderlinesTheTitleInTheButtonsFontAndTruncatesItAtItsEnd) {
  button_->text = "Open the privacy settings";
  button_->textFont = {"Serif", 13.5};
  awake();
  ASSERT_THAT(button_->attributedTitles, SizeIs(1));
  EXPECT_EQ(title().text, "Open the privacy settings");
  EXPECT_EQ(title().font, (platform::Font{"Serif", 13.5}));
  EXPECT_EQ(title().underlineStyle, 1);
  EXPECT_EQ(static_cast<int>(title().paragraphStyle.lineBreakMode), 4);
}

TEST_F(LinkButtonTest, DrawsInItsOwnColourStillUnderlined) {
  link_->setTextColor(kRed);
  awake();
  EXPECT_EQ(title().foregroundColor, kRed);
  EXPECT_EQ(title().underlineStyle, 1);
}

// So that several changes need only one updateState().
TEST_F(LinkButtonTest, DoesNotRedrawForANewColourAlone) {
  awake();
  link_->setTextColor(kRed);
  EXPECT_THAT(button_->attributedTitles, SizeIs(1));
  link_->updateState();
  EXPECT_EQ(title().foregroundColor, kRed);
}

TEST_F(LinkButtonTest, TakesANewTitleWithTheNextUpdate) {
  awake();
  button_->text = "Other";
  link_->updateState();
  EXPECT_EQ(title().text, "Other");
}

TEST_F(LinkButtonTest, ReturnsToTheDefaultColour) {
  awake();
  const Color ordinary = title().foregroundColor;
  link_->setTextColor(kRed);
  link_->setTextColor(std::nullopt);
  link_->updateState();
  EXPECT_EQ(title().foregroundColor, ordinary);
}

Color firstDefaultColor(std::optional<Color> systemColor) {
  MemoryHost machine;
  machine.systemColors.color = systemColor;
  const auto button = std::make_shared<MemoryButton>();
  const auto link = LinkButton::initWithButton(machine.host, button);
  link->updateState();
  return button->attributedTitles.back().foregroundColor;
}

TEST(DefaultLinkColor, IsTheSystemsLinkColour) {
  EXPECT_IN_OWN_PROCESS((firstDefaultColor(Color{0.5F, 0.25F, 0, 1}) == Color{0.5F, 0.25F, 0, 1}));
}

TEST(DefaultLinkColor, IsAnOpaqueBlueWhereTheSystemHasNone) {
  EXPECT_IN_OWN_PROCESS((firstDefaultColor(std::nullopt) == Color{0.0F, 0.4F, 1.0F, 1.0F}));
}

bool keepsTheFirstColor() {
  const Color first = firstDefaultColor(kRed);
  return first == kRed && firstDefaultColor(Color{0, 1, 0, 1}) == kRed;
}

// It is asked for once; links in one window must not differ.
TEST(DefaultLinkColor, IsKeptForTheLifeOfTheProcess) {
  EXPECT_IN_OWN_PROCESS(keepsTheFirstColor());
}

bool isMadeByALinkWithAColorOfItsOwn() {
  MemoryHost machine;
  const auto button = std::make_shared<MemoryButton>();
  const auto link = LinkButton::initWithButton(machine.host, button);
  link->setTextColor(kRed);
  const bool notBefore = machine.systemColors.requests == 0;
  link->updateState();
  link->updateState();
  return notBefore && machine.systemColors.requests == 1;
}

TEST(DefaultLinkColor, IsMadeOnceAtTheFirstUpdateOfAnyLink) {
  EXPECT_IN_OWN_PROCESS(isMadeByALinkWithAColorOfItsOwn());
}

TEST_F(LinkButtonTest, TracksThePointerOnceTheLayoutHasSettled) {
  link_->awakeFromNib();
  EXPECT_THAT(button_->areas, IsEmpty());
  button_->rect = {3, 4, 120, 18};
  machine_.runLoop.settle();
  ASSERT_THAT(button_->areas, SizeIs(1));
  EXPECT_EQ(button_->areas[0]->rect, (platform::Rect{3, 4, 120, 18}));
  EXPECT_EQ(button_->areas[0]->options, 0x24U);
  EXPECT_EQ(link_->trackingArea(), button_->areas[0]);
}

TEST_F(LinkButtonTest, ReplacesTheTrackingAreaWithEachUpdateOnly) {
  awake();
  const auto first = link_->trackingArea();
  button_->rect = {0, 0, 300, 20};
  machine_.runLoop.settle();
  EXPECT_EQ(link_->trackingArea(), first);
  link_->updateState();
  machine_.runLoop.settle();
  ASSERT_THAT(button_->areas, SizeIs(1));
  EXPECT_NE(button_->areas[0], first);
  EXPECT_EQ(button_->areas[0]->rect.width, 300);
}

TEST_F(LinkButtonTest, ShowsAPointingHandOnlyWhileItsWindowIsKey) {
  awake();
  button_->hover(false);
  EXPECT_EQ(machine_.cursor.pointingHandCount, 0);
  button_->hover(true);
  EXPECT_EQ(machine_.cursor.pointingHandCount, 1);
}

TEST_F(LinkButtonTest, IsNotPressedByTheClickThatActivatesItsWindow) {
  EXPECT_FALSE(link_->acceptsFirstMouse());
  EXPECT_FALSE(button_->clickPresses(false));
  EXPECT_TRUE(button_->clickPresses(true));
}

TEST_F(LinkButtonTest, OutlivesItsButton) {
  link_->awakeFromNib();
  button_.reset();
  machine_.runLoop.settle();
  link_->updateState();
  link_->updateTrackingArea();
  machine_.runLoop.settle();
  EXPECT_EQ(link_->trackingArea(), nullptr);
}

TEST_F(LinkButtonTest, IsOutlivedByItsButtonAndByWhatItScheduled) {
  link_->awakeFromNib();
  link_.reset();
  machine_.runLoop.settle();
  button_->hover(true);
  EXPECT_THAT(button_->areas, IsEmpty());
  EXPECT_EQ(machine_.cursor.pointingHandCount, 0);
}

class LinksOfTheWindowTest : public PreferencesTest {};

TEST_F(LinksOfTheWindowTest, AreDrawnAndTrackedWhenTheWindowLoads) {
  const auto controller = showController();
  machine_.runLoop.settle();
  for (const auto& button : {shown().privacySettingsLink, shown().outputFolderLink}) {
    EXPECT_THAT(button->attributedTitles, SizeIs(1));
    EXPECT_THAT(button->areas, SizeIs(1));
  }
}

}  // namespace
}  // namespace record_audio
