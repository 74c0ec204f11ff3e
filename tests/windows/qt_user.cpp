// SPDX-License-Identifier: MIT
#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFileDialog>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QTest>
#include <stdexcept>

#include "tests/windows/window_user.h"

// The user of the Qt module, on Qt's own virtual screen.

namespace linux_host {
namespace {

// As a tool tip says it: that is markup, in which a name's own markup is escaped.
std::string plain(const QString& toolTip) {
  QString text = toolTip;
  text.remove(QStringLiteral("<span>")).remove(QStringLiteral("</span>"));
  return text.replace(QStringLiteral("&lt;"), QStringLiteral("<"))
      .replace(QStringLiteral("&gt;"), QStringLiteral(">"))
      .replace(QStringLiteral("&quot;"), QStringLiteral("\""))
      .replace(QStringLiteral("&amp;"), QStringLiteral("&"))
      .toStdString();
}

// Without the marks of mnemonics.
std::string titleOf(const QString& text) {
  QString title;
  for (int at = 0; at < text.size(); ++at) {
    if (text[at] == u'&' && ++at == text.size()) break;
    title += text[at];
  }
  return title.toStdString();
}

class QtUser : public WindowUser {
 public:
  QtUser() {
    // One thread so far.
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
  }

  bool seesAlert() override { return alert() != nullptr; }
  std::string alertText() override { return alert()->text().toStdString(); }
  std::string alertDetails() override { return alert()->informativeText().toStdString(); }
  std::vector<std::string> alertButtons() override {
    std::vector<std::string> titles;
    for (const QAbstractButton* button : alert()->buttons()) {
      titles.push_back(titleOf(button->text()));
    }
    return titles;
  }
  void pressInAlert(const std::string& title) override {
    for (QAbstractButton* button : alert()->buttons()) {
      if (titleOf(button->text()) == title) return button->click();
    }
    throw std::runtime_error("no button " + title);
  }
  void pressReturnInAlert() override { QTest::keyClick(alert(), Qt::Key_Return); }
  void pressEscapeInAlert() override { QTest::keyClick(alert(), Qt::Key_Escape); }
  void closeAlert() override { alert()->close(); }

  bool seesWindow() override {
    const QDialog* found = window();
    return found != nullptr && found->isVisible();
  }
  std::string windowTitle() override { return dialog().windowTitle().toStdString(); }
  void pressEscape() override { QTest::keyClick(&dialog(), Qt::Key_Escape); }
  void pressReturn() override { QTest::keyClick(&dialog(), Qt::Key_Return); }
  void closeWindow() override { dialog().close(); }
  void minimize(bool minimized) override {
    dialog().setWindowState(minimized ? Qt::WindowMinimized : Qt::WindowNoState);
  }
  // As the pointer does, which a modal dialog blocks.
  void click(const std::string& name) override {
    QWidget& button = control(name);
    QTest::mouseClick(dialog().windowHandle(), Qt::LeftButton, {},
                      button.mapTo(&dialog(), button.rect().center()));
  }
  bool seesControl(const std::string& name) override { return control(name).isVisible(); }
  bool isEnabled(const std::string& name) override { return control(name).isEnabled(); }
  bool hasKeyboard(const std::string& name) override {
    return dialog().focusWidget() == &control(name);
  }
  std::vector<std::string> menu(const std::string& name) override {
    std::vector<std::string> titles;
    for (int row = 0; row < box(name).count(); ++row) {
      if (!isSeparator(box(name), row)) titles.push_back(box(name).itemText(row).toStdString());
    }
    return titles;
  }
  std::string chosen(const std::string& name) override {
    return box(name).currentText().toStdString();
  }
  bool showsWholeTexts(const std::string& name) override {
    const QComboBox& shown = box(name);
    QStyleOptionComboBox option;
    option.initFrom(&shown);
    const QRect room = shown.style()->subControlRect(QStyle::CC_ComboBox, &option,
                                                     QStyle::SC_ComboBoxEditField, &shown);
    return shown.fontMetrics().horizontalAdvance(shown.currentText()) <= room.width();
  }
  void pick(const std::string& name, int wanted) override {
    QComboBox& picked = box(name);
    int row = 0;
    for (int seen = isSeparator(picked, 0) ? -1 : 0; seen < wanted; ++row) {
      if (!isSeparator(picked, row + 1)) ++seen;
    }
    picked.showPopup();
    QAbstractItemView& list = *picked.view();
    if (!QTest::qWaitForWindowExposed(list.window())) {
      throw std::runtime_error("the menu does not open");
    }
    list.setCurrentIndex(list.model()->index(row, 0));
    QTest::keyClick(&list, Qt::Key_Return);
  }
  std::string shownFolder() override {
    return titleOf(static_cast<QPushButton&>(control("outputLocation")).text());
  }
  std::string folderTip() override { return plain(control("outputLocation").toolTip()); }
  std::optional<double> shownLevel() override {
    QWidget& bar = control("audioLevel");
    if (!bar.isVisible()) return std::nullopt;
    const QImage image = bar.grab().toImage();
    int lit = 0;
    for (int x = 0; x < image.width(); ++x) {
      if (image.pixelColor(x, image.height() / 2).saturation() > 100) ++lit;
    }
    return static_cast<double>(lit) / image.width();
  }
  bool isRightToLeft() override { return dialog().layoutDirection() == Qt::RightToLeft; }

  bool seesShortcut() override {
    const QWidget& button = control("shortcutButton");
    return button.isVisible() && button.visibleRegion() == QRegion(button.rect());
  }
  std::string shortcutKey() override {
    return static_cast<QLabel&>(control("shortcutKey")).text().toStdString();
  }
  std::string shortcutButton() override {
    return titleOf(static_cast<QPushButton&>(control("shortcutButton")).text());
  }
  void clickShortcutButton() override {
    static_cast<QPushButton&>(control("shortcutButton")).click();
  }

  bool seesFolderDialog() override { return chooser() != nullptr; }
  bool answerFolderDialog(const std::optional<std::string>& path) override {
    QFileDialog* const chooser = QtUser::chooser();
    if (chooser == nullptr) return false;
    if (!path) {
      chooser->close();
      return true;
    }
    chooser->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"))
        ->setText(QString::fromStdString(*path));
    static_cast<QDialog&>(*chooser).accept();
    return true;
  }

 private:
  static QFileDialog* chooser() {
    auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
    return dialog != nullptr && dialog->isVisible() ? dialog : nullptr;
  }
  static QMessageBox* alert() {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    return box != nullptr && box->isVisible() ? box : nullptr;
  }
  static QDialog* window() {
    for (QWidget* top : QApplication::topLevelWidgets()) {
      if (top->objectName() == QStringLiteral("AudioPreferencesWindow")) {
        return static_cast<QDialog*>(top);
      }
    }
    return nullptr;
  }
  static QDialog& dialog() {
    QDialog* found = window();
    if (found == nullptr) throw std::runtime_error("there is no preferences window");
    return *found;
  }
  static QWidget& control(const std::string& name) {
    auto* found = dialog().findChild<QWidget*>(QString::fromStdString(name));
    if (found == nullptr) throw std::runtime_error("no control " + name);
    return *found;
  }
  static QComboBox& box(const std::string& name) { return static_cast<QComboBox&>(control(name)); }
  static bool isSeparator(const QComboBox& of, int row) {
    return of.itemData(row, Qt::AccessibleDescriptionRole).toString() ==
           QStringLiteral("separator");
  }
};

}  // namespace

std::unique_ptr<WindowUser> makeWindowUser() {
  return std::make_unique<QtUser>();
}

}  // namespace linux_host
