// SPDX-License-Identifier: MIT
#include <xcb/xcb.h>

#include <QApplication>
#include <QDialog>
#include <QFileInfo>
#include <QIcon>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>

#include "hosts/linux/windows/windows_module.h"
#include "hosts/linux/windows_qt/accessibility.h"
#include "hosts/linux/windows_qt/activation.h"
#include "hosts/linux/windows_qt/appearance.h"
#include "hosts/linux/windows_qt/language.h"
#include "hosts/linux/windows_qt/link_widget.h"
#include "hosts/linux/windows_qt/qt_interface.h"
#include "hosts/linux/windows_qt/qt_window.h"
#include "hosts/linux/windows_qt/screen_loss.h"

namespace linux_host {
namespace {

constexpr const char* kApplicationId = "com.vantrel.korvel.RecordAudio";

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// QApplication ends the process when it finds no display, so the display is tried first.
bool waylandIsThere() {
  const std::string display = environment("WAYLAND_DISPLAY");
  if (display.empty()) return false;
  const std::string path =
      display.front() == '/' ? display : environment("XDG_RUNTIME_DIR") + "/" + display;
  return QFileInfo::exists(QString::fromStdString(path));
}

bool x11IsThere() {
  if (environment("DISPLAY").empty()) return false;
  xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
  const bool works = xcb_connection_has_error(connection) == 0;
  xcb_disconnect(connection);
  return works;
}

// Empty when there is no screen.
std::string usablePlatform() {
  std::string wanted = environment("QT_QPA_PLATFORM");
  if (!wanted.empty() && wanted.rfind("xcb", 0) != 0 && wanted.rfind("wayland", 0) != 0)
    return wanted;
  if (waylandIsThere() && wanted.rfind("xcb", 0) != 0)
    return x11IsThere() ? "wayland;xcb" : "wayland";
  return x11IsThere() ? "xcb" : "";
}

// Acts as if the user had closed each dialog: code that waits for an answer takes it as a no.
void endDialogs() {
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    auto* dialog = qobject_cast<QDialog*>(widget);
    if (dialog != nullptr && dialog->isVisible() && dialog->isModal()) dialog->close();
  }
}

// The alert or the window that a new alert stands above; null when nothing is shown.
QWidget* windowInFront() {
  if (QWidget* alert = QApplication::activeModalWidget()) return alert;
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    if (qobject_cast<WindowWidget*>(widget) != nullptr && widget->isVisible()) return widget;
  }
  return nullptr;
}

class QtCursor : public platform::Cursor {
 public:
  // Set on the link under it. No other widget would take it back, and a link may ask just when the
  // pointer has left it.
  void setPointingHand() override {
    if (auto* link = qobject_cast<LinkWidget*>(QApplication::widgetAt(QCursor::pos()))) {
      link->setCursor(Qt::PointingHandCursor);
    }
  }
};

class QtSystemColors : public platform::SystemColors {
 public:
  [[nodiscard]] std::optional<platform::Color> linkColor() const override {
    return linux_host::linkColor();
  }
};

class QtModule : public WindowsModule {
 public:
  // `screen`: the names of Qt's platforms to try, in order, with semicolons between them.
  QtModule(WindowsServices& services, std::string screen)
      : services_(services), screen_(std::move(screen)), app_(argc_, argv_.data()) {
    toolkitSources_.end();
    screenLoss_.emplace(services_, toolkitSources_);
    // The class of X11 windows, through which desktops find the launcher.
    QApplication::setApplicationName(QLatin1String(kApplicationId));
    QApplication::setDesktopFileName(QLatin1String(kApplicationId));
    QApplication::setQuitOnLastWindowClosed(false);
    applyLanguage(services.textLanguage());
    QApplication::setWindowIcon(QIcon::fromTheme(QLatin1String(kApplicationId),
                                                 QIcon(QStringLiteral(":/RecordAudio.svg"))));
    appearance_.emplace(services_);
    // Qt's own iteration of the same loop: on Wayland nothing is sent without it.
    services_.runLoopBy([] { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); },
                        endDialogs);
  }
  ~QtModule() override { services_.runLoopBy({}, {}); }
  QtModule(const QtModule&) = delete;
  QtModule& operator=(const QtModule&) = delete;

  int runModal(const platform::Alert& alert) override {
    // The window above which the alert stands owns it, and may be gone before the answer.
    const QPointer<QMessageBox> box = new QMessageBox(windowInFront());
    box->setWindowTitle(text("Record Audio"));
    box->setTextFormat(Qt::PlainText);
    box->setIcon(iconOf(alert.style));
    box->setText(QString::fromStdString(alert.messageText));
    box->setInformativeText(QString::fromStdString(alert.informativeText));
    std::vector<QAbstractButton*> buttons;
    for (const std::string& title : alert.buttons) {
      // The first button agrees, the last declines; Escape declines.
      const auto role = buttons.empty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole;
      buttons.push_back(box->addButton(QString::fromStdString(title), role));
    }
    if (buttons.empty()) buttons.push_back(box->addButton(text("OK"), QMessageBox::AcceptRole));
    box->setDefaultButton(qobject_cast<QPushButton*>(buttons.front()));
    box->setEscapeButton(buttons.back());
    const QAbstractButton* const extra =
        alert.extraButton.empty()
            ? nullptr
            : box->addButton(QString::fromStdString(alert.extraButton), QMessageBox::ActionRole);
    box->setModal(true);
    bringForward(*box, services_.takeActivationToken());
    box->exec();
    const QAbstractButton* const clicked = box.isNull() ? buttons.back() : box->clickedButton();
    delete box.data();
    if (extra != nullptr && clicked == extra) return platform::kAlertExtraButtonReturn;
    const auto found = std::find(buttons.begin(), buttons.end(), clicked);
    const auto declines = std::prev(buttons.end());
    return platform::kAlertFirstButtonReturn +
           static_cast<int>((found == buttons.end() ? declines : found) - buttons.begin());
  }

  void raiseAlert() override {
    QWidget* alert = QApplication::activeModalWidget();
    if (alert == nullptr) return;
    alert->setWindowState(alert->windowState() & ~Qt::WindowMinimized);
    bringForward(*alert, services_.takeActivationToken());
    // If the desktop lets no program take the focus, it at least draws attention to the alert.
    QApplication::alert(alert);
  }

  void dismissAlerts() override { endDialogs(); }

  std::shared_ptr<platform::Window> loadWindow(const std::string& interfaceFileName,
                                               platform::InterfaceOwner& owner) override {
    return loadQtWindow(interfaceFileName, owner, services_);
  }

  platform::Cursor& cursor() override { return cursor_; }
  platform::SystemColors& systemColors() override { return colors_; }

 private:
  static QMessageBox::Icon iconOf(platform::AlertStyle style) {
    switch (style) {
      case platform::AlertStyle::kCritical:
        return QMessageBox::Critical;
      case platform::AlertStyle::kInformational:
        return QMessageBox::Information;
      case platform::AlertStyle::kWarning:
        break;
    }
    return QMessageBox::Warning;
  }

  [[nodiscard]] QString text(const char* key) const {
    return QString::fromStdString(services_.localizedString(key));
  }

  WindowsServices& services_;
  // QApplication keeps references to these. It takes the screen from them and not from the
  // environment, which must not change while other threads may be reading it.
  std::string name_ = "record-audio";
  std::string screenOption_ = "-platform";
  std::string screen_;
  int argc_ = 3;
  std::array<char*, 4> argv_{name_.data(), screenOption_.data(), screen_.data(), nullptr};
  SourceSpan toolkitSources_;
  QApplication app_;
  std::optional<ScreenLoss> screenLoss_;
  WidgetAccessibility accessibility_;
  std::optional<AppearanceFollower> appearance_;
  QtCursor cursor_;
  QtSystemColors colors_;
};

}  // namespace
}  // namespace linux_host

extern "C" __attribute__((visibility("default"))) linux_host::WindowsModule*
record_audio_create_windows_module(linux_host::WindowsServices& services, std::string* error) {
  const std::string platform = linux_host::usablePlatform();
  if (platform.empty()) {
    *error =
        "There is no screen to show a window on: neither WAYLAND_DISPLAY nor DISPLAY leads to one.";
    return nullptr;
  }
  return new linux_host::QtModule(services, platform);
}
