// SPDX-License-Identifier: MIT
#include <glib.h>

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QCursor>
#include <QElapsedTimer>
#include <QLabel>
#include <QMessageBox>
#include <QMouseEvent>
#include <cstdlib>
#include <stdexcept>

#include "tests/contract/contract_rig.h"

// The user in front of a virtual screen, on which the Linux host shows the windows of its Qt
// module.

namespace contract {
namespace {

QMessageBox* shownAlert() {
  auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
  return box != nullptr && box->isVisible() ? box : nullptr;
}

QMessageBox& alert() {
  QMessageBox* const box = shownAlert();
  if (box == nullptr) throw std::logic_error("no alert is shown");
  return *box;
}

class QtScreen : public Screen {
 public:
  // The module is loaded with the first window or alert.
  QtScreen() { setenv("QT_QPA_PLATFORM", "offscreen", 1); }
  ~QtScreen() override {
    if (poll_ != 0) g_source_remove(poll_);
  }
  QtScreen(const QtScreen&) = delete;
  QtScreen& operator=(const QtScreen&) = delete;

  void pick(const std::string& outlet, int index) override {
    auto& box = widget<QComboBox>(outlet);
    // The rows follow their menu after the event that changed it.
    QCoreApplication::processEvents();
    box.setCurrentIndex(index);
    Q_EMIT box.activated(index);
  }
  void click(const std::string& outlet) override { widget<QAbstractButton>(outlet).click(); }
  void leaveWindow() override { window().close(); }
  void coverWindow(bool isCovered) override {
    if (isCovered) {
      window().showMinimized();
    } else {
      window().showNormal();
    }
  }
  void clickFromBehind(const std::string& outlet) override {
    QWidget other;
    other.setGeometry(700, 500, 40, 40);
    other.show();
    other.activateWindow();
    await([&] { return other.isActiveWindow(); }, "another window does not come to the front");
    auto& button = widget<QAbstractButton>(outlet);
    const QPointF at = QRectF(button.rect()).center();
    const QPointF onScreen = button.mapToGlobal(at);
    for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
      QMouseEvent event(type, at, onScreen, Qt::LeftButton,
                        type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton,
                        Qt::NoModifier);
      QApplication::sendEvent(&button, &event);
    }
  }
  void pointAt(const std::string& outlet) override {
    if (outlet.empty()) return QCursor::setPos(window().mapToGlobal(QPoint(1, 1)));
    auto& target = widget<QWidget>(outlet);
    QCursor::setPos(target.mapToGlobal(target.rect().center()));
    await([&] { return target.underMouse(); }, "the pointer does not come to " + outlet);
  }
  bool isPointerAHand() override {
    const QWidget* const under = QApplication::widgetAt(QCursor::pos());
    return under != nullptr && under->cursor().shape() == Qt::PointingHandCursor;
  }
  std::string shownText(const std::string& outlet) override {
    const auto& label = widget<QLabel>(outlet);
    return label.isVisible() ? label.text().toStdString() : "";
  }

  // Not with a timer of Qt's: Qt may be loaded for this very alert.
  void onAlert(std::function<void()> act) override {
    act_ = std::move(act);
    if (poll_ == 0) poll_ = g_timeout_add(kPoll_ms, &QtScreen::lookForAlert, this);
  }
  void pressInAlert(const std::string& button) override {
    for (QAbstractButton* one : alert().buttons()) {
      if (one->text().toStdString() == button) return one->click();
    }
    throw std::logic_error("the alert has no button " + button);
  }
  void closeAlert() override { alert().close(); }

 private:
  static void await(const std::function<bool()>& condition, const std::string& complaint) {
    QElapsedTimer patience;
    patience.start();
    while (!condition()) {
      if (patience.elapsed() > kPatience_ms) throw std::runtime_error(complaint);
      QCoreApplication::processEvents(QEventLoop::AllEvents, kPoll_ms);
    }
  }
  static QWidget& window() {
    for (QWidget* top : QApplication::topLevelWidgets()) {
      if (top->objectName() == QStringLiteral("AudioPreferencesWindow")) return *top;
    }
    throw std::logic_error("there is no window");
  }
  template <typename Widget>
  static Widget& widget(const std::string& outlet) {
    auto* found = window().findChild<Widget*>(QString::fromStdString(outlet));
    if (found == nullptr) throw std::logic_error("the window has no " + outlet);
    return *found;
  }

  static gboolean lookForAlert(gpointer raw) {
    auto& self = *static_cast<QtScreen*>(raw);
    if (QApplication::instance() == nullptr || shownAlert() == nullptr) return G_SOURCE_CONTINUE;
    self.poll_ = 0;
    self.act_();
    return G_SOURCE_REMOVE;
  }

  static constexpr int kPoll_ms = 5;
  static constexpr int kPatience_ms = 10'000;
  guint poll_ = 0;
  std::function<void()> act_;
};

}  // namespace

std::unique_ptr<Screen> makeScreen(ContractRig&) {
  return std::make_unique<QtScreen>();
}

}  // namespace contract
