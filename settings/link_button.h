// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "platform/host.h"
#include "platform/thread_role.h"

namespace record_audio {

// A borderless button that looks and behaves like a hyperlink. Its action in the interface file
// says what it opens. Main thread only, asserted in debug builds.
class LinkButton : public platform::ButtonResponder,
                   public std::enable_shared_from_this<LinkButton> {
 public:
  // Makes `button` a link. The button belongs to its window, so it is held weakly. The host must
  // outlive the link.
  static std::shared_ptr<LinkButton> initWithButton(
      const platform::Host& host, const std::shared_ptr<platform::Button>& button);

  // To be called once the button is in its window.
  void awakeFromNib();
  // Draws the title again. To be called after the title, the font or the text colour has changed.
  // The tracking area is updated later, from the run loop, when the layout has settled.
  void updateState();
  // Makes the tracking area cover the button. After a change of its size call updateState().
  void updateTrackingArea();

  bool acceptsFirstMouse() override { return false; }
  void cursorUpdate() override;

  // Null: the default link colour.
  [[nodiscard]] const std::optional<platform::Color>& textColor() const { return _textColor; }
  // Shows with the next updateState().
  void setTextColor(std::optional<platform::Color> color) { _textColor = color; }
  // The installed tracking area; null before the first.
  [[nodiscard]] const platform::TrackingAreaPtr& trackingArea() const { return _trackingArea; }
  void setTrackingArea(platform::TrackingAreaPtr area) { _trackingArea = std::move(area); }

 private:
  LinkButton(const platform::Host& host, std::weak_ptr<platform::Button> button)
      : host_(host), button_(std::move(button)) {}

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const platform::Host& host_;
  std::weak_ptr<platform::Button> button_;
  std::optional<platform::Color> _textColor;
  platform::TrackingAreaPtr _trackingArea;
};

}  // namespace record_audio
