// SPDX-License-Identifier: MIT
#include <QAccessible>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QToolTip>
#include <QWheelEvent>

#include "tests/windows/windows_fixture.h"

namespace linux_host {
namespace {

using testing::ElementsAre;

class PopUpButtonTest : public WindowsTest {
 protected:
  PopUpButtonTest() {
    load();
    port_ = owner_.outlet<platform::PopUpButton>("audioSource");
  }

  QComboBox& box() const { return widget<QComboBox>("audioSource"); }
  QAbstractItemView& menu() const { return *box().view(); }

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
  bool shows(int rows) {
    return QTest::qWaitFor([&] { return box().count() == rows; }, 200);
  }
  void fillAndShow(const std::vector<std::string>& microphones, int selected) {
    fill(microphones, selected);
    ASSERT_TRUE(shows(port_->numberOfItems()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return box().currentIndex() == selected; }));
  }
  void openMenu() {
    box().showPopup();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(menu().window()));
  }
  void pickRow(int row) {
    openMenu();
    menu().setCurrentIndex(menu().model()->index(row, 0));
    QTest::keyClick(&menu(), Qt::Key_Return);
  }

  std::shared_ptr<platform::PopUpButton> port_;
};

TEST_F(PopUpButtonTest, KnowsItsContentAtOnceAndCountsSeparators) {
  fill({"One", "Two"}, 2);
  EXPECT_EQ(port_->numberOfItems(), 7);
  EXPECT_EQ(port_->indexOfSelectedItem(), 2);
  ASSERT_TRUE(shows(7));
  EXPECT_EQ(box().itemText(4), QStringLiteral("Computer"));
  EXPECT_EQ(box().currentText(), QStringLiteral("Two"));
}

TEST_F(PopUpButtonTest, TouchesNothingWhenRebuiltWithTheSameContent) {
  show();
  fillAndShow({"One", "Two"}, 2);
  box().setFocus();
  QSignalSpy inserted(box().model(), &QAbstractItemModel::rowsInserted);
  QSignalSpy removed(box().model(), &QAbstractItemModel::rowsRemoved);
  QSignalSpy reset(box().model(), &QAbstractItemModel::modelReset);
  QSignalSpy changed(box().model(), &QAbstractItemModel::dataChanged);
  bool synced = false;
  fill({"One", "Two"}, 2);
  QTimer::singleShot(0, [&] { synced = true; });
  ASSERT_TRUE(QTest::qWaitFor([&] { return synced; }));
  EXPECT_EQ(inserted.count() + removed.count() + reset.count() + changed.count(), 0);
  EXPECT_EQ(box().currentIndex(), 2);
  EXPECT_TRUE(box().hasFocus());
}

TEST_F(PopUpButtonTest, ChangesOnlyTheRowOfADeviceThatComesOrGoes) {
  show();
  fillAndShow({"One", "Two"}, 2);
  box().setFocus();
  QSignalSpy inserted(box().model(), &QAbstractItemModel::rowsInserted);
  QSignalSpy removed(box().model(), &QAbstractItemModel::rowsRemoved);
  fillAndShow({"One", "New", "Two"}, 3);
  EXPECT_EQ(inserted.count(), 1);
  EXPECT_EQ(removed.count(), 0);
  fillAndShow({"One", "New"}, 0);
  EXPECT_EQ(inserted.count(), 1);
  EXPECT_EQ(removed.count(), 1);
  EXPECT_TRUE(box().hasFocus());
}

TEST_F(PopUpButtonTest, UpdatesAnOpenMenuInPlaceAndKeepsTheUsersPosition) {
  show();
  fillAndShow({"One", "Two"}, 1);
  box().showPopup();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(menu().window()));
  const int height = menu().window()->height();
  const QString pointedAt = QStringLiteral("Computer");
  menu().setCurrentIndex(menu().model()->index(box().findText(pointedAt), 0));

  fill({"One", "New", "Two"}, 1);
  ASSERT_TRUE(shows(8));  // within 200 ms
  EXPECT_TRUE(menu().isVisible());
  EXPECT_GT(menu().window()->height(), height);
  EXPECT_EQ(menu().currentIndex().data().toString(), pointedAt);

  fill({"One"}, 1);
  ASSERT_TRUE(shows(6));
  EXPECT_TRUE(menu().isVisible());
  EXPECT_LT(menu().window()->height(), height);
  EXPECT_EQ(menu().currentIndex().data().toString(), pointedAt);
  EXPECT_THAT(owner_.actions, ElementsAre());
  box().hidePopup();
}

TEST_F(PopUpButtonTest, SelectsNothingOutsideTheMenu) {
  for (const std::int64_t index : {std::int64_t{-1}, std::int64_t{7}, std::int64_t{1} << 40,
                                   std::int64_t{std::numeric_limits<std::int64_t>::min()}}) {
    fillAndShow({"One", "Two"}, 2);
    port_->selectItem(index);
    EXPECT_EQ(port_->indexOfSelectedItem(), -1) << index;
    EXPECT_TRUE(QTest::qWaitFor([&] { return box().currentIndex() == -1; })) << index;
  }
}

TEST_F(PopUpButtonTest, SendsItsActionOnceForAPickAndNeverForTheProgramsOwnChoice) {
  show();
  fillAndShow({"One", "Two"}, 0);
  EXPECT_THAT(owner_.actions, ElementsAre());
  pickRow(2);
  EXPECT_THAT(owner_.actions, ElementsAre("onAudioSelect"));
  EXPECT_EQ(port_->indexOfSelectedItem(), 2);
}

TEST_F(PopUpButtonTest, TellsTwoDevicesWithTheSameNameApart) {
  show();
  fillAndShow({"Twin", "Twin"}, 0);
  pickRow(2);
  EXPECT_EQ(port_->indexOfSelectedItem(), 2);
  pickRow(1);
  EXPECT_EQ(port_->indexOfSelectedItem(), 1);
  EXPECT_THAT(owner_.actions, ElementsAre("onAudioSelect", "onAudioSelect"));
}

TEST_F(PopUpButtonTest, TakesAPickDuringAnUpdateAsTheUserMeantIt) {
  show();
  fillAndShow({"One", "Two", "Three"}, 0);
  box().showPopup();
  menu().setCurrentIndex(menu().model()->index(2, 0));
  fill({"Two", "Three"}, 0);
  QTest::keyClick(&menu(), Qt::Key_Return);
  EXPECT_EQ(port_->indexOfSelectedItem(), 1) << "\"Two\" is there now";
  EXPECT_THAT(owner_.actions, ElementsAre("onAudioSelect"));
}

TEST_F(PopUpButtonTest, TakesNoPickOfADeviceThatHasJustGone) {
  show();
  fillAndShow({"One", "Two"}, 0);
  box().showPopup();
  menu().setCurrentIndex(menu().model()->index(2, 0));
  fill({"One"}, 0);
  QTest::keyClick(&menu(), Qt::Key_Return);
  EXPECT_THAT(owner_.actions, ElementsAre());
  EXPECT_EQ(port_->indexOfSelectedItem(), 0);
  EXPECT_EQ(box().currentIndex(), 0);
}

TEST_F(PopUpButtonTest, DoesNotPickSeparators) {
  show();
  fillAndShow({"One"}, 1);
  openMenu();
  QTest::keyClick(&menu(), Qt::Key_Down);
  QTest::keyClick(&menu(), Qt::Key_Return);
  EXPECT_EQ(box().currentText(), QStringLiteral("Computer"));
  EXPECT_EQ(port_->indexOfSelectedItem(), 3);
}

// A step too far would choose "Computer", which installs a driver.
TEST_F(PopUpButtonTest, TheWheelPicksNothingInAClosedBox) {
  show();
  fillAndShow({"One", "Two"}, 1);
  box().setFocus();
  for (const int turn : {-120, 120, -1200}) {
    QWheelEvent wheel(box().rect().center(), box().mapToGlobal(box().rect().center()), {},
                      QPoint(0, turn), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(&box(), &wheel);
    EXPECT_EQ(box().currentIndex(), 1) << turn;
  }
  EXPECT_THAT(owner_.actions, ElementsAre());
}

TEST_F(PopUpButtonTest, KeysOpenTheMenuAndPickNothing) {
  show();
  fillAndShow({"One", "Two"}, 1);
  for (const int key : {Qt::Key_Up, Qt::Key_Down, Qt::Key_PageUp, Qt::Key_PageDown, Qt::Key_Home,
                        Qt::Key_End, Qt::Key_C}) {
    box().setFocus();
    QTest::keyClick(&box(), static_cast<Qt::Key>(key));
    EXPECT_TRUE(QTest::qWaitFor([&] { return menu().isVisible(); })) << key;
    EXPECT_EQ(box().currentIndex(), 1) << key;
    QTest::keyClick(&menu(), Qt::Key_Escape);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !menu().isVisible(); })) << key;
  }
  EXPECT_EQ(port_->indexOfSelectedItem(), 1);
  EXPECT_THAT(owner_.actions, ElementsAre());
}

TEST_F(PopUpButtonTest, ALetterIsConfirmedInTheMenu) {
  show();
  fillAndShow({"One", "Two"}, 1);
  box().setFocus();
  QTest::keyClick(&box(), Qt::Key_C);
  ASSERT_TRUE(QTest::qWaitFor([&] { return menu().isVisible(); }));
  EXPECT_EQ(menu().currentIndex().data().toString(), QStringLiteral("Computer"));
  QTest::keyClick(&menu(), Qt::Key_Return);
  EXPECT_THAT(owner_.actions, ElementsAre("onAudioSelect"));
  EXPECT_EQ(port_->indexOfSelectedItem(), 4);
}

TEST_F(PopUpButtonTest, ANameTooLongForTheBoxHasAToolTip) {
  show();
  const QString name = QString(80, u'm') + QStringLiteral(" <b>");
  fillAndShow({"One", name.toStdString()}, 1);
  const auto toolTip = [this] {
    QToolTip::hideText();
    QHelpEvent help(QEvent::ToolTip, box().rect().center(),
                    box().mapToGlobal(box().rect().center()));
    QCoreApplication::sendEvent(&box(), &help);
    return QToolTip::text();
  };
  EXPECT_EQ(toolTip(), QString());
  fillAndShow({"One", name.toStdString()}, 2);
  EXPECT_TRUE(toolTip().contains(name.toHtmlEscaped())) << toolTip().toStdString();
  QToolTip::hideText();
}

struct Name {
  const char* what;
  std::string given;
  QString shown;
};

class DeviceNameTest : public PopUpButtonTest, public testing::WithParamInterface<Name> {};

TEST_P(DeviceNameTest, IsShownSafelyAndChosen) {
  show();
  const QSize size = dialog().size();
  fillAndShow({"One", GetParam().given}, 0);
  EXPECT_EQ(box().itemText(2), GetParam().shown);
  EXPECT_EQ(port_->numberOfItems(), 7);
  pickRow(2);
  EXPECT_EQ(port_->indexOfSelectedItem(), 2);
  EXPECT_TRUE(QTest::qWaitFor([&] { return box().currentText() == GetParam().shown; }));
  EXPECT_EQ(dialog().size(), size) << "a name must not change the window's size";
  // Tool tips are drawn with their markup; tags in the name must not be.
  EXPECT_FALSE(box().itemData(2, Qt::ToolTipRole).toString().contains(QStringLiteral("<b>")));
}

INSTANTIATE_TEST_SUITE_P(
    Names, DeviceNameTest,
    testing::Values(
        Name{"Empty", "", QStringLiteral("Unnamed microphone")},
        Name{"Blank", " \t\n ", QStringLiteral("Unnamed microphone")},
        Name{"Long", std::string(4000, 'm'), QString(4000, u'm')},
        Name{"Markup", "<b>Mic</b> & <img src=x>", QStringLiteral("<b>Mic</b> & <img src=x>")},
        Name{"Newlines", "Mic\nrophone\r\n2", QStringLiteral("Mic rophone 2")},
        Name{"BidiControls", "A\u202Egnp.exe\u2066\u200F", QStringLiteral("A gnp.exe")},
        Name{"Controls", std::string("A\x1B[2J\x07") + '\0' + "B", QStringLiteral("A [2J B")},
        Name{"NotUtf8", "Mic\xFF\xFE", QStringLiteral("Mic\uFFFD\uFFFD")},
        Name{"BeyondTheBasicPlane", "Mic \U0001F3A4", QString::fromUtf8("Mic \U0001F3A4")}),
    [](const auto& name) { return std::string(name.param.what); });

}  // namespace
}  // namespace linux_host
