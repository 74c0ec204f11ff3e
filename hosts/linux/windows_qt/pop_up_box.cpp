// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/pop_up_box.h"

#include <QAbstractItemView>
#include <QCoreApplication>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QToolTip>
#include <QWheelEvent>

#include "hosts/linux/windows_qt/qt_views.h"

namespace linux_host {
namespace {

bool isArrow(const QKeyEvent& event) {
  return event.key() == Qt::Key_Up || event.key() == Qt::Key_Down;
}

// Keys that go to a place in the menu: the item that begins with a letter, the first, the last.
bool isPlace(const QKeyEvent& event) {
  switch (event.key()) {
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Home:
    case Qt::Key_End:
      return true;
    default: {
      const QString text = event.text();
      constexpr auto kCommand = Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
      return !(event.modifiers() & kCommand) && !text.isEmpty() && text.front().isPrint() &&
             !text.front().isSpace();
    }
  }
}

}  // namespace

void PopUpBox::wheelEvent(QWheelEvent* event) {
  event->ignore();
}

void PopUpBox::keyPressEvent(QKeyEvent* event) {
  if (!isArrow(*event) && !isPlace(*event)) {
    QComboBox::keyPressEvent(event);
    return;
  }
  showPopup();
  if (isPlace(*event)) QCoreApplication::sendEvent(view(), event);
  event->accept();
}

bool PopUpBox::isTextCut() const {
  QStyleOptionComboBox option;
  initStyleOption(&option);
  const QRect field =
      style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this);
  return fontMetrics().horizontalAdvance(currentText()) > field.width();
}

bool PopUpBox::event(QEvent* event) {
  if (event->type() != QEvent::ToolTip || !isTextCut()) return QComboBox::event(event);
  QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), plainToolTip(currentText()),
                     this);
  return true;
}

}  // namespace linux_host
