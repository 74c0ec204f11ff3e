// SPDX-License-Identifier: MIT
#pragma once

#include <adwaita.h>

#include <functional>
#include <memory>
#include <string>

#include "hosts/linux/windows_gtk/gtk_objects.h"
#include "platform/controls.h"

// The widget ports on GTK's widgets. Main thread. A view may outlive its widget: every call then
// does nothing.

namespace linux_host {

// Called when the user has used the control.
using UserAct = std::function<void(platform::View* sender)>;

// Common to all views: hiding and removing the widget.
template <typename Port>
class WidgetView : public Port {
 public:
  explicit WidgetView(GtkWidget* widget) : widget_(widget) {}
  void setHidden(bool hidden) override {
    if (widget() != nullptr) gtk_widget_set_visible(widget(), hidden ? FALSE : TRUE);
  }
  [[nodiscard]] bool isHidden() const override {
    return widget() == nullptr || gtk_widget_get_visible(widget()) == FALSE;
  }
  void removeFromSuperview() override {
    if (widget() != nullptr && gtk_widget_get_parent(widget()) != nullptr) {
      gtk_widget_unparent(widget());
    }
  }

 protected:
  [[nodiscard]] GtkWidget* widget() const { return widget_.get(); }

 private:
  const WeakObject<GtkWidget> widget_;
};

class LabelView : public WidgetView<platform::TextField> {
 public:
  explicit LabelView(GtkLabel* label) : WidgetView(GTK_WIDGET(label)) {}
  void setStringValue(const std::string& text) override;
};

// A button; with an attributed title it is drawn as that title (a link).
class ButtonView : public WidgetView<platform::Button> {
 public:
  ButtonView(GtkButton* button, UserAct onClick);
  ~ButtonView() override;
  ButtonView(const ButtonView&) = delete;
  ButtonView& operator=(const ButtonView&) = delete;
  void setResponder(std::weak_ptr<platform::ButtonResponder> responder) override;
  [[nodiscard]] std::string title() const override;
  [[nodiscard]] platform::Font font() const override;
  [[nodiscard]] platform::Rect bounds() const override;
  void setAttributedTitle(const platform::AttributedString& title) override;
  void addTrackingArea(const platform::TrackingAreaPtr& area) override;
  void removeTrackingArea(const platform::TrackingAreaPtr& area) override;

 private:
  [[nodiscard]] bool isInActiveWindow() const;
  // Whether a click is for the window alone, which it brings to the front.
  [[nodiscard]] bool onlyActivates() const;
  void updatePointer();
  static void onPress(GtkGestureClick* gesture, int presses, double x, double y, gpointer view);

  std::weak_ptr<platform::ButtonResponder> responder_;
  platform::TrackingAreaPtr area_;
  bool isUnderPointer_ = false;
  SignalHandlers handlers_;
  // Takes a press that only activates the window away from the button.
  WeakObject<GtkGesture> firstClick_;
  gulong pressHandler_ = 0;
};

// The link under the pointer gets the pointing hand.
class LinkCursor : public platform::Cursor {
 public:
  void setPointingHand() override;
  // Which link asks, while it asks; null otherwise.
  static void setAsking(GtkWidget* link) { asking_ = link; }

 private:
  static inline GtkWidget* asking_ = nullptr;
};

// The colour of links in the theme as it is now. A link that is given this colour follows the
// theme.
platform::Color themeLinkColor();

// A bar over 60 dB, which screen readers know as a level. Leaves its room empty when hidden.
class LevelView : public WidgetView<platform::LevelIndicator> {
 public:
  explicit LevelView(GtkLevelBar* bar);
  void setHidden(bool hidden) override;
  [[nodiscard]] bool isHidden() const override { return widget() == nullptr || isHidden_; }
  void setLevel(float peak) override;

 private:
  bool isHidden_ = false;
};

}  // namespace linux_host
