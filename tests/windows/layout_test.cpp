// SPDX-License-Identifier: MIT
#include <QCheckBox>
#include <QFontMetrics>
#include <QGlyphRun>
#include <QLabel>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QTextLayout>

#include "suite/suite.h"
#include "tests/windows/windows_fixture.h"

// Run once for each scale factor.

namespace linux_host {
namespace {

class LayoutTest : public WindowsTest, public testing::WithParamInterface<std::string> {
 protected:
  LayoutTest() {
    services().speak(GetParam());
    QApplication::setLayoutDirection(isWrittenFromRightToLeft(GetParam()) ? Qt::RightToLeft
                                                                          : Qt::LeftToRight);
    services().changeShortcut({true, false, true, "Strg+Umschalt+Meta+Druck oder F12"});
    // The longest path that is shown in full.
    services().folder = "/" + std::string(200, 'm');
  }

  void showEverything() {
    load();
    owner_.outlet<suite::OutputLocationButton>("outputLocation")->updateState();
    const auto source = owner_.outlet<platform::PopUpButton>("audioSource");
    for (const char* key : {"Default input device", "Computer", "Don't record audio"}) {
      source->addItem(services().localizedString(key));
    }
    source->selectItem(0);
    show();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return widget<QComboBox>("audioSource").currentIndex() == 0; }));
  }

  // The style leaves a pixel at both ends; the rest is for fonts that are wider than the test's.
  static double roomForText(const QComboBox& box) {
    constexpr double kWidestFont = 1.05;
    QStyleOptionComboBox option;
    option.initFrom(&box);
    const QRect field = box.style()->subControlRect(QStyle::CC_ComboBox, &option,
                                                    QStyle::SC_ComboBoxEditField, &box);
    return (field.width() - 2) / kWidestFont;
  }
};

// Otherwise boxes would be measured in place of letters. The fonts are in scripts/packages.txt.
TEST_P(LayoutTest, TheFontsHaveEveryLetter) {
  showEverything();
  for (QWidget* named : namedWidgets()) {
    QTextLayout layout(named->property("text").toString(), named->font());
    layout.beginLayout();
    layout.createLine();
    layout.endLayout();
    for (const QGlyphRun& run : layout.glyphRuns()) {
      constexpr quint32 kMissing = 0;
      EXPECT_FALSE(run.glyphIndexes().contains(kMissing)) << layout.text().toStdString();
    }
  }
}

TEST_P(LayoutTest, NothingIsClipped) {
  showEverything();
  for (QWidget* named : namedWidgets()) {
    const std::string name = named->objectName().toStdString();
    EXPECT_TRUE(dialog().rect().contains(QRect(named->mapTo(&dialog(), QPoint()), named->size())))
        << name;
    const auto* label = qobject_cast<QLabel*>(named);
    if (label != nullptr && label->wordWrap()) {
      EXPECT_GE(label->height(), label->heightForWidth(label->width())) << name;
      continue;
    }
    EXPECT_GE(named->height(), named->sizeHint().height()) << name;
    const auto* box = qobject_cast<QComboBox*>(named);
    if (box == nullptr) {
      EXPECT_GE(named->width(), named->sizeHint().width()) << name;
      continue;
    }
    for (int row = 0; row < box->count(); ++row) {
      EXPECT_GE(roomForText(*box), box->fontMetrics().horizontalAdvance(box->itemText(row)))
          << name << ": " << box->itemText(row).toStdString();
    }
  }
}

TEST_P(LayoutTest, NoControlsOverlap) {
  showEverything();
  const auto named = namedWidgets();
  for (std::size_t i = 0; i < named.size(); ++i) {
    for (std::size_t j = i + 1; j < named.size(); ++j) {
      EXPECT_FALSE(named[i]->geometry().intersects(named[j]->geometry()))
          << named[i]->objectName().toStdString() << " and "
          << named[j]->objectName().toStdString();
    }
  }
}

TEST_P(LayoutTest, EveryLabelIsLevelWithItsControl) {
  showEverything();
  const auto middle = [&](const QWidget& one) {
    return one.mapTo(&dialog(), one.rect().center()).y();
  };
  // Even if the script's lines are taller than those of the test's font.
  for (const char* name : {"audioSourceLabel", "soundFormatLabel", "qualityLabel",
                           "outputLocationLabel", "shortcutLabel"}) {
    auto& label = widget<QLabel>(name);
    label.setMinimumHeight(label.buddy()->sizeHint().height() - 1);
  }
  QCoreApplication::processEvents();
  for (const char* name : {"audioSourceLabel", "soundFormatLabel", "qualityLabel",
                           "outputLocationLabel", "shortcutLabel"}) {
    const auto& label = widget<QLabel>(name);
    EXPECT_NEAR(middle(label), middle(*label.buddy()), 1) << name;
  }
}

TEST_P(LayoutTest, IsMirroredFromRightToLeft) {
  showEverything();
  const auto isLeft = [&](const char* name) {
    return widget(name).geometry().center().x() < dialog().width() / 2;
  };
  const bool isMirrored = isWrittenFromRightToLeft(GetParam());
  EXPECT_NE(isLeft("audioSourceLabel"), isMirrored);
  EXPECT_EQ(isLeft("doneButton"), isMirrored);
  const QSize size = dialog().size();
  QApplication::setLayoutDirection(isMirrored ? Qt::LeftToRight : Qt::RightToLeft);
  ASSERT_TRUE(QTest::qWaitFor([&] { return isLeft("audioSourceLabel") == isMirrored; }));
  EXPECT_NE(isLeft("doneButton"), isMirrored);
  EXPECT_EQ(dialog().size(), size);
}

INSTANTIATE_TEST_SUITE_P(AllLanguages, LayoutTest, testing::ValuesIn(languages()),
                         [](const auto& language) { return language.param; });

TEST(ScaleTest, IsTheRequestedOne) {
  const double wanted = std::max(1.0, qEnvironmentVariable("QT_SCALE_FACTOR").toDouble());
  EXPECT_DOUBLE_EQ(qApp->devicePixelRatio(), wanted);
}

}  // namespace
}  // namespace linux_host
