// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/accessibility.h"

#include <QAccessible>

#include "hosts/linux/windows_qt/level_bar.h"
#include "hosts/linux/windows_qt/link_widget.h"

namespace linux_host {
namespace {

// Qt asks once for each class of an object, from the derived one to the base.
QAccessibleInterface* interfaceOf(const QString&, QObject* object) {
  if (auto* link = qobject_cast<LinkWidget*>(object)) return new LinkAccessible(*link);
  if (auto* bar = qobject_cast<LevelBar*>(object)) return new LevelBarAccessible(*bar);
  return nullptr;
}

}  // namespace

WidgetAccessibility::WidgetAccessibility() {
  QAccessible::installFactory(interfaceOf);
}

WidgetAccessibility::~WidgetAccessibility() {
  QAccessible::removeFactory(interfaceOf);
}

}  // namespace linux_host
