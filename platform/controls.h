// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Windows and controls, just wide enough for the preferences window. Main thread only. A control
// belongs to its window; who keeps one otherwise keeps it weakly. Only the user's acts perform
// actions. Free for the host: how everything looks, and what a desktop lets come to the front.

namespace platform {

// Each component from 0 to 1.
struct Color {
  float red = 0;
  float green = 0;
  float blue = 0;
  float alpha = 1;
  friend bool operator==(const Color&, const Color&) = default;
};

struct Font {
  std::string family;
  double size_points = 0;
  friend bool operator==(const Font&, const Font&) = default;
};

enum class LineBreakMode : int { kByWordWrapping = 0, kByTruncatingTail = 4 };
inline constexpr int kUnderlineStyleSingle = 1;

struct ParagraphStyle {
  LineBreakMode lineBreakMode = LineBreakMode::kByWordWrapping;
};

struct AttributedString {
  std::string text;
  Color foregroundColor;
  Font font;
  int underlineStyle = 0;
  ParagraphStyle paragraphStyle;
};

// Units and origin are the host's: the core only hands a control's bounds back to it.
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  friend bool operator==(const Rect&, const Rect&) = default;
};

inline constexpr unsigned kTrackingCursorUpdate = 4;
inline constexpr unsigned kTrackingActiveInKeyWindow = 32;

struct TrackingArea {
  Rect rect;
  unsigned options = 0;
};
using TrackingAreaPtr = std::shared_ptr<const TrackingArea>;

class View {
 public:
  virtual ~View() = default;
  virtual void setHidden(bool hidden) = 0;
  [[nodiscard]] virtual bool isHidden() const = 0;
  // Takes the view out of its window for good: it stays hidden, and what is set has no effect.
  virtual void removeFromSuperview() = 0;
};

class PopUpButton : public View {
 public:
  virtual void removeAllItems() = 0;
  // Selects nothing.
  virtual void addItem(const std::string& title) = 0;
  virtual void addSeparator() = 0;
  // Separators count.
  [[nodiscard]] virtual int numberOfItems() const = 0;
  // An index outside the menu selects nothing.
  virtual void selectItem(std::int64_t index) = 0;
  // -1 when nothing is selected.
  [[nodiscard]] virtual int indexOfSelectedItem() const = 0;
};

class CheckBox : public View {
 public:
  virtual void setState(bool on) = 0;
  [[nodiscard]] virtual bool state() const = 0;
};

class TextField : public View {
 public:
  virtual void setStringValue(const std::string& text) = 0;
};

// What stands behind a button and answers for it.
class ButtonResponder {
 public:
  virtual ~ButtonResponder() = default;
  // Whether a click that brings the button's window to the front also presses the button.
  virtual bool acceptsFirstMouse() = 0;
  // The pointer came over a tracking area that asks for cursor updates; over one for key windows,
  // only while its window has the keyboard. When it leaves, the host
  // puts the ordinary pointer back by itself.
  virtual void cursorUpdate() = 0;
};

class Button : public View {
 public:
  // Without one the button is an ordinary button. Free for the host: what the click does to that
  // which brings its window to the front.
  virtual void setResponder(std::weak_ptr<ButtonResponder> responder) = 0;
  [[nodiscard]] virtual std::string title() const = 0;
  [[nodiscard]] virtual Font font() const = 0;
  [[nodiscard]] virtual Rect bounds() const = 0;
  // Its text is the button's title from then on.
  virtual void setAttributedTitle(const AttributedString& title) = 0;
  virtual void addTrackingArea(const TrackingAreaPtr& area) = 0;
  virtual void removeTrackingArea(const TrackingAreaPtr& area) = 0;
};

// A level between 0 and 1 (full scale), linear.
class LevelIndicator : public View {
 public:
  virtual void setLevel(float peak) = 0;
};

class Cursor {
 public:
  virtual ~Cursor() = default;
  virtual void setPointingHand() = 0;
};

class SystemColors {
 public:
  virtual ~SystemColors() = default;
  // Null on a platform without one.
  [[nodiscard]] virtual std::optional<Color> linkColor() const = 0;
};

class WindowDelegate {
 public:
  virtual ~WindowDelegate() = default;
  virtual void windowDidBecomeKey() = 0;
  // The window is shown or hidden now, or isOccluded() has changed while it is shown.
  virtual void windowDidChangeOcclusionState() = 0;
};

class Window {
 public:
  virtual ~Window() = default;
  virtual void setDelegate(std::weak_ptr<WindowDelegate> delegate) = 0;
  // Which of the suite's own buttons the title bar has. Without the close button the user leaves
  // by the window's own controls and the keys that stand for them.
  virtual void setTitleBarButtons(bool preferences, bool close) = 0;
  // Shown, even where other windows cover it.
  [[nodiscard]] virtual bool isVisible() const = 0;
  // Whether the user can see nothing of the window although it is shown: it is minimised, covered
  // or elsewhere. False where the host cannot tell.
  [[nodiscard]] virtual bool isOccluded() const = 0;
  // Shows the window in front and gives it the keyboard.
  virtual void makeKeyAndOrderFront() = 0;
  // Shows it in front of the program's other windows, without the keyboard.
  virtual void orderFront() = 0;
  // Shows it in front of other programs' windows, too.
  virtual void orderFrontRegardless() = 0;
  // Hides it.
  virtual void orderOut() = 0;
};

// Who a window is loaded for: receives the controls by outlet name and the user's acts by action
// name. Unknown outlets and actions are ignored. Free for the host: which controls its window has.
class InterfaceOwner {
 public:
  virtual ~InterfaceOwner() = default;
  virtual void connectOutlet(const std::string& name, const std::shared_ptr<View>& view) = 0;
  virtual void performAction(const std::string& name, View* sender) = 0;
};

class InterfaceLoader {
 public:
  virtual ~InterfaceLoader() = default;
  // Builds the window of an interface file and connects its outlets; actions go to `owner`, which
  // must outlive the window. Null when there is no such file or no screen to show it on.
  virtual std::shared_ptr<Window> loadWindow(const std::string& interfaceFileName,
                                             InterfaceOwner& owner) = 0;
};

}  // namespace platform
