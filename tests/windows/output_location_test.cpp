// SPDX-License-Identifier: MIT
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QTemporaryDir>

#include "suite/suite.h"
#include "tests/windows/windows_fixture.h"

namespace linux_host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class OutputLocationTest : public WindowsTest {
 protected:
  OutputLocationTest() {
    EXPECT_TRUE(QDir(root_.path()).mkdir(QStringLiteral("before")));
    EXPECT_TRUE(QDir(root_.path()).mkdir(QStringLiteral("after")));
    services().folder = path("before");
    show();
    port_ = owner_.outlet<suite::OutputLocationButton>("outputLocation");
    port_->updateState();
  }
  std::string path(const char* name) const {
    return root_.filePath(QLatin1String(name)).toStdString();
  }
  QPushButton& button() const { return widget<QPushButton>("outputLocation"); }

  // Like the pointer, which a modal dialog blocks.
  void clickOnScreen() const {
    QTest::mouseClick(dialog().windowHandle(), Qt::LeftButton, {},
                      button().mapTo(&dialog(), button().rect().center()));
  }

  struct Outcome {
    int calls = 0;
    bool success = false;
    std::optional<std::string> message;
    platform::Dictionary details;
  };
  Outcome change(const std::function<void(QFileDialog&)>& act) {
    InModalDialog user([&] {
      auto* chooser = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
      if (chooser == nullptr || !chooser->isVisible()) return false;
      act(*chooser);
      return true;
    });
    const Outcome outcome = change();
    EXPECT_TRUE(user.done());
    return outcome;
  }
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
  Outcome change() {
    const auto outcome = begin();
    EXPECT_TRUE(QTest::qWaitFor([&] { return outcome->calls > 0; }));
    EXPECT_EQ(outcome->calls, 1);
    return *outcome;
  }
  Outcome choose(const std::string& folder) {
    return change([folder](QFileDialog& chooser) {
      chooser.findChild<QLineEdit*>(QStringLiteral("fileNameEdit"))
          ->setText(QString::fromStdString(folder));
      static_cast<QDialog&>(chooser).accept();
    });
  }

  QTemporaryDir root_;
  std::shared_ptr<suite::OutputLocationButton> port_;
};

TEST_F(OutputLocationTest, ShowsTheFolderWithAnIcon) {
  services().folder = (QDir::homePath() + QStringLiteral("/Music/R&D <b>x</b>")).toStdString();
  port_->updateState();
  EXPECT_EQ(button().text(), QStringLiteral("~/Music/R&&D <b>x</b>")) << "no mnemonic in it";
  EXPECT_FALSE(button().icon().isNull());
  EXPECT_EQ(button().accessibleDescription(), QString::fromStdString(*services().folder));
  EXPECT_FALSE(button().toolTip().contains(QStringLiteral("<b>")));
}

// A theme's icons for light windows, in a dark one.
TEST_F(OutputLocationTest, TheIconIsVisibleOnADarkButton) {
  const QString folder = root_.filePath(QStringLiteral("theme/trial/16/places"));
  ASSERT_TRUE(QDir().mkpath(folder));
  QFile index(root_.filePath(QStringLiteral("theme/trial/index.theme")));
  ASSERT_TRUE(index.open(QIODevice::WriteOnly));
  index.write("[Icon Theme]\nName=trial\nDirectories=16/places\n[16/places]\nSize=16\n");
  index.close();
  QImage drawing(16, 16, QImage::Format_ARGB32);
  drawing.fill(QColor(0x23, 0x26, 0x29));
  ASSERT_TRUE(drawing.save(folder + QStringLiteral("/folder.png")));
  const QString theme = QIcon::themeName();
  const QStringList paths = QIcon::themeSearchPaths();
  QIcon::setThemeSearchPaths({root_.filePath(QStringLiteral("theme"))});
  QIcon::setThemeName(QStringLiteral("trial"));

  const auto iconOn = [this](const QColor& background, const QColor& text) {
    QPalette palette;
    palette.setColor(QPalette::Button, background);
    palette.setColor(QPalette::ButtonText, text);
    button().setPalette(palette);
    port_->updateState();
    return button().icon().pixmap(16, 16).toImage().pixelColor(8, 8).lightness();
  };
  EXPECT_GT(iconOn(QColor(0x31, 0x36, 0x3b), Qt::white), 200);
  EXPECT_LT(iconOn(QColor(0xef, 0xf0, 0xf1), Qt::red), 50);
  QIcon::setThemeSearchPaths(paths);
  QIcon::setThemeName(theme);
}

TEST_F(OutputLocationTest, ShortensALongPathInTheMiddleAndKeepsTheWindowsSize) {
  QCoreApplication::processEvents();
  const QSize size = dialog().size();
  services().folder = "/" + std::string(3000, 'a') + "/end";
  port_->updateState();
  EXPECT_TRUE(button().text().endsWith(QStringLiteral("end")));
  EXPECT_TRUE(button().text().contains(u'…'));
  QCoreApplication::processEvents();
  EXPECT_EQ(dialog().size(), size);
}

TEST_F(OutputLocationTest, AsksForAFolderWhenThereIsNone) {
  services().folder.reset();
  port_->updateState();
  EXPECT_EQ(button().text(), text("Choose a folder"));
  EXPECT_FALSE(button().icon().isNull());
  EXPECT_TRUE(button().toolTip().isEmpty());
  EXPECT_TRUE(button().accessibleDescription().isEmpty());
}

TEST_F(OutputLocationTest, ShowsThePathFromLeftToRightInEveryLayout) {
  services().folder = (QDir::homePath() + QStringLiteral("/Music")).toStdString();
  port_->updateState();
  QCoreApplication::processEvents();
  const QSize size = button().size();
  const QImage leftToRight = button().grab().toImage();
  QApplication::setLayoutDirection(Qt::RightToLeft);
  EXPECT_EQ(dialog().layoutDirection(), Qt::RightToLeft);
  QCoreApplication::processEvents();
  ASSERT_EQ(button().size(), size);
  EXPECT_EQ(button().grab().toImage(), leftToRight);
}

TEST_F(OutputLocationTest, SendsItsActionOnClick) {
  button().click();
  EXPECT_THAT(owner_.actions, ElementsAre("onOutputLocationChanged"));
}

TEST_F(OutputLocationTest, StoresAndShowsTheFolderThatWasChosen) {
  const Outcome outcome = choose(path("after"));
  EXPECT_TRUE(outcome.success);
  EXPECT_EQ(outcome.message, std::nullopt);
  EXPECT_EQ(outcome.details, (platform::Dictionary{{"Changed", true}}));
  EXPECT_THAT(services().asked, ElementsAre(path("after")));
  EXPECT_EQ(button().accessibleDescription(), QString::fromStdString(path("after")));
}

TEST_F(OutputLocationTest, ChangesNothingWhenTheUserCancelsOrTakesTheSameFolder) {
  EXPECT_TRUE(change([](QFileDialog& chooser) { chooser.close(); }).success);
  EXPECT_TRUE(choose(path("before")).success);
  EXPECT_THAT(services().asked, IsEmpty());
  EXPECT_EQ(button().accessibleDescription(), QString::fromStdString(path("before")));
}

TEST_F(OutputLocationTest, GoesOnWhileTheDesktopsOwnChooserIsOpen) {
  std::string openedAt;
  std::function<void(FolderChoice)> answer;
  services().desktopChooser = [&](const std::string& opened, const auto& done) {
    openedAt = opened;
    answer = done;
  };
  const auto outcome = begin();
  ASSERT_TRUE(answer) << "the call must not wait for the user";
  EXPECT_EQ(outcome->calls, 0);
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr) << "nothing unseen blocks the window";
  clickOnScreen();
  EXPECT_THAT(owner_.actions, IsEmpty()) << "one choice at a time";
  EXPECT_EQ(begin()->details, platform::Dictionary{}) << "and nothing for another one";
  QTest::mouseClick(&widget("outputFolderLink"), Qt::LeftButton);
  EXPECT_THAT(owner_.actions, ElementsAre("onRevealOutputFolder"));

  answer({true, path("after")});
  EXPECT_EQ(outcome->calls, 1);
  EXPECT_TRUE(outcome->success);
  EXPECT_EQ(outcome->details, (platform::Dictionary{{"Changed", true}}));
  EXPECT_EQ(openedAt, path("before"));
  EXPECT_THAT(services().asked, ElementsAre(path("after")));
  EXPECT_EQ(button().accessibleDescription(), QString::fromStdString(path("after")));
  clickOnScreen();
  EXPECT_THAT(owner_.actions, ElementsAre("onRevealOutputFolder", "onOutputLocationChanged"));
}

TEST_F(OutputLocationTest, AChoiceEndsWithItsWindow) {
  std::function<void(FolderChoice)> answer;
  services().desktopChooser = [&](const std::string&, const auto& done) { answer = done; };
  const auto byDesktop = begin();
  port_.reset();
  window_.reset();
  EXPECT_EQ(byDesktop->calls, 1);
  EXPECT_TRUE(byDesktop->success);
  answer({true, path("after")});
  EXPECT_EQ(byDesktop->calls, 1);
  EXPECT_THAT(services().asked, IsEmpty());

  services().desktopChooser = nullptr;
  show();
  port_ = owner_.outlet<suite::OutputLocationButton>("outputLocation");
  const auto byToolkit = begin();
  ASSERT_TRUE(QTest::qWaitFor([] { return QApplication::activeModalWidget() != nullptr; }));
  EXPECT_EQ(QApplication::activeModalWidget()->parentWidget(), &dialog());
  port_.reset();
  window_.reset();
  EXPECT_EQ(byToolkit->calls, 1);
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

TEST_F(OutputLocationTest, ChangesNothingWhenTheUserCancelsTheDesktopsOwnChooser) {
  services().desktopChooser = [](const std::string&, const auto& done) { done({true, {}}); };
  EXPECT_TRUE(change().success);
  EXPECT_THAT(services().asked, IsEmpty());
}

TEST_F(OutputLocationTest, ShowsItsOwnChooserWhenTheDesktopsFails) {
  services().desktopChooser = [](const std::string&, const auto& done) {
    QTimer::singleShot(0, qApp, [done] { done({}); });
  };
  EXPECT_TRUE(choose(path("after")).success);
  EXPECT_THAT(services().asked, ElementsAre(path("after")));
}

TEST_F(OutputLocationTest, ADialogDoesNotKeepTheProgramFromQuitting) {
  EXPECT_TRUE(change([](QFileDialog&) { services().endDialogs(); }).success);
  EXPECT_THAT(services().asked, IsEmpty());
  EXPECT_TRUE(dialog().isVisible()) << "the window is no dialog that waits for an answer";
}

TEST_F(OutputLocationTest, KeepsTheOldFolderAndSaysWhyWhenTheNewOneCannotBeUsed) {
  services().refusal = "\"after\" <b>cannot</b> be written: Permission denied. Choose another.";
  QString said;
  QString why;
  Qt::TextFormat format = Qt::AutoText;
  InModalDialog reader([&] {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr || !box->isVisible()) return false;
    said = box->text();
    why = box->informativeText();
    format = box->textFormat();
    QTest::keyClick(box, Qt::Key_Escape);
    return true;
  });
  const Outcome outcome = choose(path("after"));
  EXPECT_TRUE(QTest::qWaitFor([&] { return reader.done(); }));
  EXPECT_EQ(said, text("The folder cannot be used."));
  EXPECT_EQ(why.toStdString(), services().refusal);
  EXPECT_EQ(format, Qt::PlainText);
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.message, services().refusal);
  EXPECT_EQ(outcome.details, (platform::Dictionary{{"Changed", false}}));
  EXPECT_EQ(button().accessibleDescription(), QString::fromStdString(path("before")));
}

}  // namespace
}  // namespace linux_host
