// SPDX-License-Identifier: MIT
#include "settings/link_button.h"

namespace record_audio {
namespace {

constexpr platform::Color kFallbackLinkColor{0.0F, 0.4F, 1.0F, 1.0F};

// Asked for once per process, when the first link is drawn, even if that link has its own colour.
const platform::Color& defaultLinkColor(const platform::Host& host) {
  static const platform::Color color = host.systemColors.linkColor().value_or(kFallbackLinkColor);
  return color;
}

}  // namespace

std::shared_ptr<LinkButton> LinkButton::initWithButton(
    const platform::Host& host, const std::shared_ptr<platform::Button>& button) {
  std::shared_ptr<LinkButton> link(new LinkButton(host, button));
  button->setResponder(link);
  return link;
}

void LinkButton::awakeFromNib() {
  updateState();
}

void LinkButton::updateState() {
  mainThread_.assertHeld();
  const auto button = button_.lock();
  if (!button) return;
  const platform::Color& linkColor = defaultLinkColor(host_);
  platform::AttributedString title;
  title.text = button->title();
  title.foregroundColor = _textColor.value_or(linkColor);
  title.font = button->font();
  title.underlineStyle = platform::kUnderlineStyleSingle;
  title.paragraphStyle.lineBreakMode = platform::LineBreakMode::kByTruncatingTail;
  button->setAttributedTitle(title);
  host_.runLoop.performAfterDelay(0, [weak = weak_from_this()] {
    if (const auto link = weak.lock()) link->updateTrackingArea();
  });
}

void LinkButton::updateTrackingArea() {
  mainThread_.assertHeld();
  const auto button = button_.lock();
  if (!button) return;
  if (_trackingArea) button->removeTrackingArea(_trackingArea);
  _trackingArea = std::make_shared<platform::TrackingArea>(platform::TrackingArea{
      button->bounds(), platform::kTrackingCursorUpdate | platform::kTrackingActiveInKeyWindow});
  button->addTrackingArea(_trackingArea);
}

void LinkButton::cursorUpdate() {
  mainThread_.assertHeld();
  host_.cursor.setPointingHand();
}

}  // namespace record_audio
