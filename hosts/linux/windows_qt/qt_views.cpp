// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/qt_views.h"

#include <QAbstractItemView>
#include <QCheckBox>
#include <QLabel>
#include <QTimer>
#include <algorithm>

#include "hosts/linux/windows/menu_changes.h"
#include "hosts/linux/windows_qt/level_bar.h"
#include "hosts/linux/windows_qt/link_widget.h"

namespace linux_host {

QString singleLine(const std::string& text) {
  auto characters = QString::fromStdString(text).toUcs4();
  for (auto& character : characters) {
    // Not printed, but they decide how the letters beside them are: Persian and Hindi need them.
    const bool isJoiner = character == U'\u200C' || character == U'\u200D';
    if (!isJoiner && !QChar::isPrint(character)) character = U' ';
  }
  return QString::fromUcs4(reinterpret_cast<const char32_t*>(characters.constData()),
                           characters.size())
      .simplified();
}

QString plainToolTip(const QString& text) {
  return QStringLiteral("<span>") + text.toHtmlEscaped() + QStringLiteral("</span>");
}

QtPopUpButton::QtPopUpButton(QComboBox* box, QString unnamedItem, UserAct onPick)
    : QtView(box), unnamedItem_(std::move(unnamedItem)), onPick_(std::move(onPick)) {
  // Items in the interface file are the menu's initial content.
  for (int row = 0; row < box->count(); ++row) items_.push_back({box->itemText(row), false});
  selected_ = box->currentIndex();
  box->view()->setTextElideMode(Qt::ElideMiddle);
  connect(box, &QComboBox::activated, this, [this](int row) { pick(row); });
}

void QtPopUpButton::pick(int row) {
  const int item = itemOfRow(row);
  if (item < 0) {
    syncNow();
    return;
  }
  selected_ = item;
  if (onPick_) onPick_(this);
}

// The user can pick an item before the sync: the choice means the row on the screen.
int QtPopUpButton::itemOfRow(int row) const {
  return itemOfShownRow(items_, shownItems(), row);
}

void QtPopUpButton::removeAllItems() {
  items_.clear();
  selected_ = -1;
  scheduleSync();
}

void QtPopUpButton::addItem(const std::string& title) {
  const QString line = singleLine(title);
  items_.push_back({line.isEmpty() ? unnamedItem_ : line, false});
  scheduleSync();
}

void QtPopUpButton::addSeparator() {
  items_.push_back({{}, true});
  scheduleSync();
}

void QtPopUpButton::selectItem(std::int64_t index) {
  selected_ = index >= 0 && index < numberOfItems() ? static_cast<int>(index) : -1;
  scheduleSync();
}

void QtPopUpButton::scheduleSync() {
  if (syncScheduled_) return;
  syncScheduled_ = true;
  QTimer::singleShot(0, this, [this] { syncNow(); });
}

std::vector<QtPopUpButton::Item> QtPopUpButton::shownItems() const {
  std::vector<Item> shown;
  for (int row = 0; row < box()->count(); ++row) {
    const bool separator = box()->itemData(row, Qt::AccessibleDescriptionRole).toString() ==
                           QStringLiteral("separator");
    shown.push_back({separator ? QString() : box()->itemText(row), separator});
  }
  return shown;
}

void QtPopUpButton::insertRow(int row, const Item& item) {
  if (item.separator) {
    box()->insertSeparator(row);
  } else {
    box()->insertItem(row, item.title);
    box()->setItemData(row, plainToolTip(item.title), Qt::ToolTipRole);
  }
}

void QtPopUpButton::syncNow() {
  syncScheduled_ = false;
  if (box() == nullptr) return;
  const QSignalBlocker quiet(box());
  const auto shown = shownItems();
  if (shown != items_) {
    const QPersistentModelIndex pointedAt = box()->view()->currentIndex();
    updateRows(shown);
    // An open menu grows or shrinks with its content; the highlighted row stays the same.
    if (box()->view()->isVisible()) {
      box()->showPopup();
      if (pointedAt.isValid()) box()->view()->setCurrentIndex(pointedAt);
    }
  }
  if (box()->currentIndex() != selected_) box()->setCurrentIndex(selected_);
}

void QtPopUpButton::updateRows(const std::vector<Item>& shown) {
  const MenuChange change = menuChange(shown, items_);
  for (std::size_t row = change.at + change.removed; row > change.at; --row) {
    box()->removeItem(static_cast<int>(row - 1));
  }
  for (std::size_t row = change.at; row < change.at + change.inserted; ++row) {
    insertRow(static_cast<int>(row), items_[row]);
  }
}

QtCheckBox::QtCheckBox(QCheckBox* box, UserAct onClick) : QtView(box) {
  QObject::connect(box, &QCheckBox::clicked, box, [this, act = std::move(onClick)] {
    if (act) act(this);
  });
}

void QtCheckBox::setState(bool on) {
  if (widget() != nullptr) static_cast<QCheckBox*>(widget())->setChecked(on);
}

bool QtCheckBox::state() const {
  return widget() != nullptr && static_cast<QCheckBox*>(widget())->isChecked();
}

QtTextField::QtTextField(QLabel* label) : QtView(label) {}

void QtTextField::setStringValue(const std::string& text) {
  if (widget() != nullptr) static_cast<QLabel*>(widget())->setText(QString::fromStdString(text));
}

QtButton::QtButton(QAbstractButton* button, UserAct onClick) : QtView(button) {
  QObject::connect(button, &QAbstractButton::clicked, button, [this, act = std::move(onClick)] {
    if (act) act(this);
  });
}

void QtButton::setResponder(std::weak_ptr<platform::ButtonResponder> responder) {
  if (auto* link = qobject_cast<LinkWidget*>(widget())) link->setResponder(std::move(responder));
}

std::string QtButton::title() const {
  if (widget() == nullptr) return {};
  return static_cast<QAbstractButton*>(widget())->text().toStdString();
}

platform::Font QtButton::font() const {
  if (widget() == nullptr) return {};
  const QFont font = widget()->font();
  return {font.family().toStdString(), font.pointSizeF()};
}

platform::Rect QtButton::bounds() const {
  if (widget() == nullptr) return {};
  const QRect rect = widget()->rect();
  return {0, 0, static_cast<double>(rect.width()), static_cast<double>(rect.height())};
}

void QtButton::setAttributedTitle(const platform::AttributedString& title) {
  if (auto* link = qobject_cast<LinkWidget*>(widget())) link->setAttributedTitle(title);
}

void QtButton::addTrackingArea(const platform::TrackingAreaPtr& area) {
  if (auto* link = qobject_cast<LinkWidget*>(widget())) link->setTrackingArea(area);
}

void QtButton::removeTrackingArea(const platform::TrackingAreaPtr& area) {
  auto* link = qobject_cast<LinkWidget*>(widget());
  if (link != nullptr && link->trackingArea() == area) link->setTrackingArea(nullptr);
}

QtLevelIndicator::QtLevelIndicator(LevelBar* bar) : QtView(bar) {}

void QtLevelIndicator::setLevel(float peak) {
  if (widget() != nullptr) static_cast<LevelBar*>(widget())->setLevel(peak);
}

}  // namespace linux_host
