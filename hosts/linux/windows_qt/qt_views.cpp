// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/qt_views.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QEvent>
#include <QFileDialog>
#include <QFileIconProvider>
#include <QFontMetrics>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QStyleOptionButton>
#include <QStylePainter>
#include <QTimer>
#include <algorithm>
#include <cmath>

#include "hosts/linux/windows_qt/appearance.h"
#include "hosts/linux/windows_qt/link_widget.h"
#include "hosts/linux/windows_qt/qt_window.h"

namespace linux_host {

QString singleLine(const std::string& text) {
  auto characters = QString::fromStdString(text).toUcs4();
  for (auto& character : characters) {
    if (!QChar::isPrint(character)) character = U' ';
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
  const auto shown = shownItems();
  if (shown == items_) return row;
  if (row < 0 || row >= static_cast<int>(shown.size())) return -1;
  const Item& picked = shown[static_cast<std::size_t>(row)];
  if (std::count(items_.begin(), items_.end(), picked) != 1) return -1;
  return static_cast<int>(std::find(items_.begin(), items_.end(), picked) - items_.begin());
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

// Keeps the rows before and after the change, so that the view keeps its position and focus.
void QtPopUpButton::updateRows(const std::vector<Item>& shown) {
  const auto limit = std::min(shown.size(), items_.size());
  std::size_t head = 0;
  while (head < limit && shown[head] == items_[head]) ++head;
  std::size_t tail = 0;
  while (tail < limit - head && shown[shown.size() - 1 - tail] == items_[items_.size() - 1 - tail])
    ++tail;
  for (std::size_t row = shown.size() - tail; row > head; --row) {
    box()->removeItem(static_cast<int>(row - 1));
  }
  for (std::size_t row = head; row < items_.size() - tail; ++row) {
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

namespace {

// The position of a level on the bar, which covers 60 dB: 0 at its quiet end, 1 at full scale.
float placeOf(float level_dB) {
  constexpr float kFloor_dB = -60.0F;
  return std::clamp(1.0F - level_dB / kFloor_dB, 0.0F, 1.0F);
}

}  // namespace

LevelBar::LevelBar(QWidget* parent) : QWidget(parent) {
  QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  // The layout does not jump when the level appears and disappears.
  policy.setRetainSizeWhenHidden(true);
  setSizePolicy(policy);
}

void LevelBar::setLevel(float peak) {
  const int before_pixels = litPixels();
  peak_ = std::clamp(std::isnan(peak) ? 0.0F : peak, 0.0F, 1.0F);
  // Draws only visible changes.
  if (litPixels() != before_pixels) update();
}

float LevelBar::litShare() const {
  return peak_ > 0 ? placeOf(20.0F * std::log10(peak_)) : 0.0F;
}

int LevelBar::litPixels() const {
  return qRound(static_cast<double>(litShare()) * width() * devicePixelRatio());
}

QSize LevelBar::sizeHint() const {
  return {160, 6};
}

void LevelBar::paintEvent(QPaintEvent*) {
  const float level = litShare();
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  const QRectF bar = rect();
  const double radius = bar.height() / 2;
  QColor groove = palette().color(QPalette::WindowText);
  groove.setAlphaF(0.25F);
  painter.setBrush(groove);
  painter.drawRoundedRect(bar, radius, radius);
  if (level <= 0) return;

  const struct {
    float upTo_dB;
    QColor color;
  } zones[] = {{-12, QColor(0x2f, 0x9e, 0x44)},
               {-3, QColor(0xe6, 0x9f, 0x00)},
               {0, QColor(0xd6, 0x33, 0x24)}};
  if (layoutDirection() == Qt::RightToLeft) {
    painter.translate(bar.width(), 0);
    painter.scale(-1, 1);
  }
  double from = 0;
  for (const auto& zone : zones) {
    const double to = bar.width() * std::min(level, placeOf(zone.upTo_dB));
    if (to <= from) break;
    painter.setClipRect(QRectF(from, 0, to - from, bar.height()));
    painter.setBrush(zone.color);
    painter.drawRoundedRect(QRectF(0, 0, bar.width() * level, bar.height()), radius, radius);
    from = to;
  }
}

void QtLevelIndicator::setLevel(float peak) {
  if (widget() != nullptr) static_cast<LevelBar*>(widget())->setLevel(peak);
}

PathButton::PathButton(QWidget* parent) : QPushButton(parent) {
  setLayoutDirection(Qt::LeftToRight);
}

void PathButton::paintEvent(QPaintEvent*) {
  QStylePainter painter(this);
  painter.setLayoutDirection(Qt::LeftToRight);
  QStyleOptionButton option;
  initStyleOption(&option);
  painter.drawControl(QStyle::CE_PushButton, option);
}

QtOutputLocationButton::QtOutputLocationButton(QPushButton* button, WindowsServices& services,
                                               UserAct onClick)
    : QtView(button), services_(services) {
  QObject::connect(button, &QPushButton::clicked, button, [this, act = std::move(onClick)] {
    if (act) act(this);
  });
}

void QtOutputLocationButton::updateState() {
  if (widget() == nullptr) return;
  auto* button = static_cast<QPushButton*>(widget());
  button->setIcon(legibleIcon(QIcon::fromTheme(QStringLiteral("folder"),
                                               QFileIconProvider().icon(QFileIconProvider::Folder)),
                              button->iconSize(), button->palette()));
  const auto folder = services_.outputLocation();
  if (!folder) {
    button->setText(QString::fromStdString(services_.localizedString("Choose a folder")));
    button->setToolTip({});
    button->setAccessibleDescription({});
    return;
  }
  const QString path = QString::fromStdString(*folder);
  QString shown = path;
  if (shown.startsWith(QDir::homePath() + u'/'))
    shown.replace(0, QDir::homePath().size(), QStringLiteral("~"));
  shown = singleLine(shown.toStdString());
  constexpr int kWidest_characters = 28;
  const int width = button->fontMetrics().averageCharWidth() * kWidest_characters;
  shown = button->fontMetrics().elidedText(shown, Qt::ElideMiddle, width);
  // An ampersand in a folder's name does not mark a mnemonic.
  button->setText(shown.replace(u'&', QStringLiteral("&&")));
  button->setToolTip(plainToolTip(path));
  button->setAccessibleDescription(path);
}

std::string QtOutputLocationButton::chosenFolder(const std::string& before) {
  QWidget* window = widget() != nullptr ? widget()->window() : nullptr;
  const std::string title = services_.localizedString("Output folder");
  // Invisible; it only keeps the window from taking input while the desktop's dialog is open.
  QDialog waiting(window);
  waiting.setAttribute(Qt::WA_DontShowOnScreen);
  std::optional<FolderChoice> choice;
  services_.chooseFolder(portalNameOf(window), title, before,
                         [&choice, asker = QPointer<QDialog>(&waiting)](FolderChoice made) {
                           if (asker.isNull()) return;
                           choice = std::move(made);
                           asker->done(0);
                         });
  if (!choice) waiting.exec();
  // No answer will come: the program is ending.
  if (!choice) return {};
  if (choice->offered) return choice->path.value_or("");
  return QFileDialog::getExistingDirectory(window, QString::fromStdString(title),
                                           QString::fromStdString(before))
      .toStdString();
}

void QtOutputLocationButton::handleOutputLocationChanged(Completion completion) {
  const auto text = [this](const char* key) {
    return QString::fromStdString(services_.localizedString(key));
  };
  const std::string before = services_.outputLocation().value_or("");
  const std::string path = chosenFolder(before);
  if (path.empty() || path == before) {
    completion(true, 0, std::nullopt, {});
    return;
  }
  const std::string error = services_.setOutputLocation(path);
  updateState();
  if (error.empty()) {
    completion(true, 0, std::nullopt, {{"Changed", true}});
    return;
  }
  QMessageBox box(QMessageBox::Warning, text("Record Audio"), text("The folder cannot be used."),
                  QMessageBox::Ok, widget() != nullptr ? widget()->window() : nullptr);
  box.setTextFormat(Qt::PlainText);
  box.setInformativeText(QString::fromStdString(error));
  box.exec();
  completion(false, 1, error, {{"Changed", false}});
}

}  // namespace linux_host
