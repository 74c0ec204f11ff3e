// SPDX-License-Identifier: MIT
#pragma once

#include <QComboBox>
#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "hosts/linux/windows/windows_module.h"
#include "platform/controls.h"

class QAbstractButton;
class QCheckBox;
class QLabel;

// The widget ports on Qt widgets. Main thread. A view may outlive its widget: every call then does
// nothing.

namespace linux_host {

class LevelBar;

// Called when the user has used the control.
using UserAct = std::function<void(platform::View* sender)>;

// Text that came from outside (a device's name) as one harmless line.
QString singleLine(const std::string& text);
// A tool tip that shows `text` literally: otherwise tags in a name would be drawn as markup.
QString plainToolTip(const QString& text);

// Common to all views: hiding and removing the widget.
template <typename Port>
class QtView : public Port {
 public:
  explicit QtView(QWidget* widget) : widget_(widget) {}
  void setHidden(bool hidden) override {
    if (widget_) widget_->setVisible(!hidden);
  }
  [[nodiscard]] bool isHidden() const override { return !widget_ || widget_->isHidden(); }
  void removeFromSuperview() override { delete widget_.data(); }

 protected:
  [[nodiscard]] QWidget* widget() const { return widget_; }

 private:
  QPointer<QWidget> widget_;
};

// A combo box that can be rebuilt without flicker. The items are kept here. After the current event
// the widget is updated once, and only the rows that really changed. An open menu stays open, and
// one in which nothing changed is not touched.
class QtPopUpButton : public QtView<platform::PopUpButton>, public QObject {
 public:
  QtPopUpButton(QComboBox* box, QString unnamedItem, UserAct onPick);

  void removeAllItems() override;
  void addItem(const std::string& title) override;
  void addSeparator() override;
  [[nodiscard]] int numberOfItems() const override { return static_cast<int>(items_.size()); }
  void selectItem(std::int64_t index) override;
  [[nodiscard]] int indexOfSelectedItem() const override { return selected_; }

  // Updates the widget now.
  void syncNow();

 private:
  struct Item {
    QString title;
    bool separator = false;
    friend bool operator==(const Item&, const Item&) = default;
  };

  void pick(int row);
  void scheduleSync();
  // The item that `row` of the widget shows; -1 when it is unknown.
  [[nodiscard]] int itemOfRow(int row) const;
  [[nodiscard]] std::vector<Item> shownItems() const;
  void insertRow(int row, const Item& item);
  void updateRows(const std::vector<Item>& shown);
  [[nodiscard]] QComboBox* box() const { return static_cast<QComboBox*>(widget()); }

  QString unnamedItem_;
  UserAct onPick_;
  std::vector<Item> items_;
  int selected_ = -1;
  bool syncScheduled_ = false;
};

class QtCheckBox : public QtView<platform::CheckBox> {
 public:
  QtCheckBox(QCheckBox* box, UserAct onClick);
  void setState(bool on) override;
  [[nodiscard]] bool state() const override;
};

class QtTextField : public QtView<platform::TextField> {
 public:
  explicit QtTextField(QLabel* label);
  void setStringValue(const std::string& text) override;
};

// A push button; with an attributed title it is drawn as that title (a link).
class QtButton : public QtView<platform::Button> {
 public:
  QtButton(QAbstractButton* button, UserAct onClick);
  void setResponder(std::weak_ptr<platform::ButtonResponder> responder) override;
  [[nodiscard]] std::string title() const override;
  [[nodiscard]] platform::Font font() const override;
  [[nodiscard]] platform::Rect bounds() const override;
  void setAttributedTitle(const platform::AttributedString& title) override;
  void addTrackingArea(const platform::TrackingAreaPtr& area) override;
  void removeTrackingArea(const platform::TrackingAreaPtr& area) override;
};

class QtLevelIndicator : public QtView<platform::LevelIndicator> {
 public:
  explicit QtLevelIndicator(LevelBar* bar);
  void setLevel(float peak) override;
};

}  // namespace linux_host
