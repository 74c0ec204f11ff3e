// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/shortcut_row.h"

#include <memory>

#include "hosts/linux/windows_qt/message_box.h"
#include "hosts/linux/windows_qt/portal_parent.h"
#include "hosts/linux/windows_qt/qt_views.h"
#include "hosts/linux/windows_qt/qt_window.h"

namespace linux_host {

void ShortcutRow::addTo(QDialog& dialog, WindowsServices& services) {
  auto* form = dialog.findChild<QFormLayout*>();
  auto* button = dialog.findChild<QPushButton*>(QStringLiteral("shortcutButton"));
  // The dialog owns and deletes it.
  if (form != nullptr && button != nullptr) new ShortcutRow(dialog, *form, *button, services);
}

ShortcutRow::ShortcutRow(QDialog& dialog, QFormLayout& form, QPushButton& button,
                         WindowsServices& services)
    : QObject(&dialog),
      services_(services),
      dialog_(dialog),
      form_(form),
      button_(button),
      key_(dialog.findChild<QLabel*>(QStringLiteral("shortcutKey"))) {
  connect(&button_, &QPushButton::clicked, this, [this] { choose(); });
  if (auto* window = qobject_cast<WindowWidget*>(&dialog_)) {
    connect(window, &WindowWidget::looksChanged, this, [this] { showKey(); });
  }
  show({});
  services_.followShortcut([this](const Shortcut& shortcut) { show(shortcut); });
}

ShortcutRow::~ShortcutRow() {
  services_.followShortcut({});
}

QString ShortcutRow::text(const char* key) const {
  return QString::fromStdString(services_.localizedString(key));
}

void ShortcutRow::show(const Shortcut& shortcut) {
  form_.setRowVisible(dialog_.findChild<QLayout*>(QStringLiteral("shortcutLayout")),
                      shortcut.offered);
  QString key = text("None");
  if (shortcut.set) {
    key = shortcut.trigger.empty() ? text("See keyboard settings") : singleLine(shortcut.trigger);
  }
  if (shortcut.asking) key = text("One moment…");
  shownKey_ = key;
  showKey();
  key_->setToolTip(plainToolTip(key));
  button_.setText(shortcut.set ? text("Change…") : text("Set Shortcut…"));
  button_.setAccessibleDescription(key);
  button_.setEnabled(!shortcut.asking);
}

void ShortcutRow::showKey() {
  constexpr int kWidest_characters = 28;
  const int width = key_->fontMetrics().averageCharWidth() * kWidest_characters;
  key_->setText(key_->fontMetrics().elidedText(shownKey_, Qt::ElideMiddle, width));
}

void ShortcutRow::choose() {
  // Kept until the answer.
  const auto parent = std::make_shared<PortalParent>(&dialog_);
  services_.chooseShortcut(
      parent->name(), [row = QPointer<ShortcutRow>(this), parent](const ShortcutChoice& choice) {
        if (row.isNull() || choice.outcome != ShortcutChoice::Outcome::kFailed) return;
        showWarning(&row->dialog_, row->services_, "The desktop has set no shortcut.",
                    singleLine(choice.reason).toStdString());
      });
}

}  // namespace linux_host
