// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/qt_interface.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QUiLoader>
#include <algorithm>

#include "hosts/linux/windows_qt/level_bar.h"
#include "hosts/linux/windows_qt/link_widget.h"
#include "hosts/linux/windows_qt/output_location_button.h"
#include "hosts/linux/windows_qt/pop_up_box.h"
#include "hosts/linux/windows_qt/qt_views.h"
#include "hosts/linux/windows_qt/qt_window.h"
#include "hosts/linux/windows_qt/shortcut_row.h"

namespace linux_host {
namespace {

class Loader : public QUiLoader {
 public:
  QWidget* createWidget(const QString& className, QWidget* parent, const QString& name) override {
    QWidget* widget = nullptr;
    if (className == QStringLiteral("LinkWidget")) widget = new LinkWidget(parent);
    if (className == QStringLiteral("LevelBar")) widget = new LevelBar(parent);
    if (className == QStringLiteral("PathButton")) widget = new PathButton(parent);
    if (className == QStringLiteral("QComboBox")) widget = new PopUpBox(parent);
    if (className == QStringLiteral("QDialog")) widget = new WindowWidget(parent);
    if (widget == nullptr) return QUiLoader::createWidget(className, parent, name);
    widget->setObjectName(name);
    return widget;
  }
};

class Translator {
 public:
  explicit Translator(WindowsServices& services) : services_(services) {}

  void translate(QWidget* widget) const {
    for (const char* property :
         {"text", "windowTitle", "toolTip", "accessibleName", "accessibleDescription"}) {
      const QVariant value = widget->property(property);
      if (value.metaType().id() != QMetaType::QString || value.toString().isEmpty()) continue;
      widget->setProperty(property, text(value.toString()));
    }
    if (auto* box = qobject_cast<QComboBox*>(widget)) {
      for (int row = 0; row < box->count(); ++row) box->setItemText(row, text(box->itemText(row)));
    }
  }

  [[nodiscard]] QString text(const QString& key) const {
    return QString::fromStdString(services_.localizedString(key.toStdString()));
  }

 private:
  WindowsServices& services_;
};

std::shared_ptr<platform::View> viewOf(QWidget* widget, WindowsServices& services, UserAct act) {
  if (auto* box = qobject_cast<QComboBox*>(widget)) {
    const QString unnamed = QString::fromStdString(services.localizedString("Unnamed microphone"));
    return std::make_shared<QtPopUpButton>(box, unnamed, std::move(act));
  }
  if (auto* box = qobject_cast<QCheckBox*>(widget)) {
    return std::make_shared<QtCheckBox>(box, std::move(act));
  }
  if (auto* bar = dynamic_cast<LevelBar*>(widget)) return std::make_shared<QtLevelIndicator>(bar);
  if (auto* button = dynamic_cast<PathButton*>(widget)) {
    return std::make_shared<QtOutputLocationButton>(button, services, std::move(act));
  }
  if (auto* button = qobject_cast<QPushButton*>(widget)) {
    return std::make_shared<QtButton>(button, std::move(act));
  }
  if (auto* link = qobject_cast<LinkWidget*>(widget)) {
    return std::make_shared<QtButton>(link, std::move(act));
  }
  if (auto* label = qobject_cast<QLabel*>(widget)) return std::make_shared<QtTextField>(label);
  return nullptr;
}

// A form centres a label on its row's first line by guessing that line's height. The guess is wrong
// for scripts whose lines are taller than the control beside the label.
void levelWithControl(QWidget* widget) {
  const auto* label = qobject_cast<QLabel*>(widget);
  if (label == nullptr || label->buddy() == nullptr) return;
  const int control = label->buddy()->sizeHint().height();
  widget->setMaximumHeight(std::max(control, label->sizeHint().height()));
}

UserAct actionOf(const QWidget* widget, platform::InterfaceOwner& owner) {
  const std::string name = widget->property("actionName").toString().toStdString();
  if (name.empty()) return nullptr;
  return [name, &owner](platform::View* sender) { owner.performAction(name, sender); };
}

}  // namespace

std::shared_ptr<platform::Window> loadQtWindow(const std::string& interfaceFileName,
                                               platform::InterfaceOwner& owner,
                                               WindowsServices& services) {
  QFile file(QStringLiteral(":/") + QString::fromStdString(interfaceFileName) +
             QStringLiteral(".ui"));
  if (!file.open(QIODevice::ReadOnly)) return nullptr;
  Loader loader;
  std::unique_ptr<QWidget> loaded(loader.load(&file));
  auto* dialog = dynamic_cast<WindowWidget*>(loaded.get());
  if (dialog == nullptr) return nullptr;
  static_cast<void>(loaded.release());
  std::unique_ptr<WindowWidget> window(dialog);

  const Translator translator(services);
  translator.translate(dialog);
  std::vector<std::shared_ptr<platform::View>> views;
  for (QWidget* widget : dialog->findChildren<QWidget*>()) {
    // Qt names the parts of composite widgets itself.
    if (widget->objectName().isEmpty() || widget->objectName().startsWith(u"qt_")) continue;
    translator.translate(widget);
    levelWithControl(widget);
    if (widget->property("hostOnly").toBool()) continue;
    const auto view = viewOf(widget, services, actionOf(widget, owner));
    if (!view) continue;
    views.push_back(view);
    owner.connectOutlet(widget->objectName().toStdString(), view);
  }
  ShortcutRow::addTo(*dialog, services);
  QObject::connect(dialog, &WindowWidget::looksChanged, dialog, [dialog, views] {
    for (QWidget* widget : dialog->findChildren<QWidget*>()) levelWithControl(widget);
    for (const auto& view : views) {
      const auto folder = std::dynamic_pointer_cast<suite::OutputLocationButton>(view);
      if (folder != nullptr) folder->updateState();
    }
  });
  const std::string done = dialog->property("doneAction").toString().toStdString();
  QObject::connect(dialog, &WindowWidget::doneWanted, dialog,
                   [done, &owner] { owner.performAction(done, nullptr); });
  return std::make_shared<QtWindow>(std::move(window), std::move(views), services);
}

}  // namespace linux_host
