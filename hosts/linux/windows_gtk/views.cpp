// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/views.h"

#include <algorithm>
#include <cmath>

namespace linux_host {
namespace {

constexpr const char* kLinkClass = "link";

// The position of a level on the bar, which covers 60 dB: 0 at its quiet end, 1 at full scale.
double placeOf(double level_dB) {
  constexpr double kFloor_dB = -60;
  return std::clamp(1 - level_dB / kFloor_dB, 0.0, 1.0);
}

struct FreeAttributes {
  void operator()(PangoAttrList* list) const { pango_attr_list_unref(list); }
};
using AttributesPtr = std::unique_ptr<PangoAttrList, FreeAttributes>;

struct FreeDescription {
  void operator()(PangoFontDescription* font) const { pango_font_description_free(font); }
};
using DescriptionPtr = std::unique_ptr<PangoFontDescription, FreeDescription>;

guint16 channel(float part) {
  return static_cast<guint16>(std::lround(std::clamp(part, 0.0F, 1.0F) * G_MAXUINT16));
}

AttributesPtr attributesOf(const platform::AttributedString& title, bool hasOwnColor,
                           bool hasOwnFont) {
  AttributesPtr list(pango_attr_list_new());
  const bool underlined = title.underlineStyle == platform::kUnderlineStyleSingle;
  pango_attr_list_insert(list.get(), pango_attr_underline_new(underlined ? PANGO_UNDERLINE_SINGLE
                                                                         : PANGO_UNDERLINE_NONE));
  if (hasOwnColor) {
    const auto& color = title.foregroundColor;
    pango_attr_list_insert(
        list.get(),
        pango_attr_foreground_new(channel(color.red), channel(color.green), channel(color.blue)));
    pango_attr_list_insert(list.get(), pango_attr_foreground_alpha_new(channel(color.alpha)));
  }
  if (hasOwnFont) {
    const DescriptionPtr font(pango_font_description_new());
    pango_font_description_set_family(font.get(), title.font.family.c_str());
    pango_font_description_set_size(
        font.get(), static_cast<gint>(std::lround(title.font.size_points * PANGO_SCALE)));
    pango_attr_list_insert(list.get(), pango_attr_font_desc_new(font.get()));
  }
  return list;
}

bool isActive(GtkWidget* widget) {
  GtkRoot* root = gtk_widget_get_root(widget);
  return root != nullptr && gtk_window_is_active(GTK_WINDOW(root)) != FALSE;
}

}  // namespace

platform::Color themeLinkColor() {
  const ObjectPtr<GtkWidget> probe(GTK_WIDGET(g_object_ref_sink(gtk_label_new(nullptr))));
  GdkRGBA color{0.11F, 0.44F, 0.85F, 1};  // of the default theme
  gtk_style_context_lookup_color(gtk_widget_get_style_context(probe.get()), "accent_color", &color);
  return {color.red, color.green, color.blue, color.alpha};
}

void LabelView::setStringValue(const std::string& text) {
  if (widget() != nullptr) gtk_label_set_text(GTK_LABEL(widget()), text.c_str());
}

ButtonView::ButtonView(GtkButton* button, UserAct onClick)
    : WidgetView(GTK_WIDGET(button)), firstClick_(gtk_gesture_click_new()) {
  handlers_.connect(button, "clicked", [this, act = std::move(onClick)] {
    if (act) act(this);
  });
  gtk_event_controller_set_propagation_phase(GTK_EVENT_CONTROLLER(firstClick_.get()),
                                             GTK_PHASE_CAPTURE);
  pressHandler_ = g_signal_connect(firstClick_.get(), "pressed", G_CALLBACK(onPress), this);
  gtk_widget_add_controller(widget(), GTK_EVENT_CONTROLLER(firstClick_.get()));
  GtkEventController* motion = gtk_event_controller_motion_new();
  handlers_.connect(motion, "enter", [this] {
    isUnderPointer_ = true;
    updatePointer();
  });
  handlers_.connect(motion, "leave", [this] {
    isUnderPointer_ = false;
    updatePointer();
  });
  gtk_widget_add_controller(widget(), motion);
  if (GtkRoot* root = gtk_widget_get_root(widget())) {
    handlers_.connect(root, "notify::is-active", [this] { updatePointer(); });
  }
}

ButtonView::~ButtonView() {
  if (firstClick_.get() != nullptr) g_signal_handler_disconnect(firstClick_.get(), pressHandler_);
}

void ButtonView::setResponder(std::weak_ptr<platform::ButtonResponder> responder) {
  responder_ = std::move(responder);
}

std::string ButtonView::title() const {
  const char* label = widget() != nullptr ? gtk_button_get_label(GTK_BUTTON(widget())) : nullptr;
  return label != nullptr ? label : "";
}

platform::Font ButtonView::font() const {
  if (widget() == nullptr) return {};
  const PangoFontDescription* font =
      pango_context_get_font_description(gtk_widget_get_pango_context(widget()));
  const char* family = pango_font_description_get_family(font);
  return {family != nullptr ? family : "",
          static_cast<double>(pango_font_description_get_size(font)) / PANGO_SCALE};
}

platform::Rect ButtonView::bounds() const {
  if (widget() == nullptr) return {};
  return {0, 0, static_cast<double>(gtk_widget_get_width(widget())),
          static_cast<double>(gtk_widget_get_height(widget()))};
}

void ButtonView::setAttributedTitle(const platform::AttributedString& title) {
  if (widget() == nullptr) return;
  gtk_button_set_label(GTK_BUTTON(widget()), title.text.c_str());
  GtkWidget* child = gtk_button_get_child(GTK_BUTTON(widget()));
  if (child == nullptr || !GTK_IS_LABEL(child)) return;
  // The theme's own colour comes from the style sheet, so that it changes with the theme.
  const bool hasOwnColor = title.foregroundColor != themeLinkColor();
  if (!hasOwnColor) gtk_widget_add_css_class(widget(), kLinkClass);
  gtk_label_set_attributes(GTK_LABEL(child),
                           attributesOf(title, hasOwnColor, title.font != font()).get());
  const bool truncates =
      title.paragraphStyle.lineBreakMode == platform::LineBreakMode::kByTruncatingTail;
  gtk_label_set_ellipsize(GTK_LABEL(child), truncates ? PANGO_ELLIPSIZE_END : PANGO_ELLIPSIZE_NONE);
}

void ButtonView::addTrackingArea(const platform::TrackingAreaPtr& area) {
  area_ = area;
  updatePointer();
}

void ButtonView::removeTrackingArea(const platform::TrackingAreaPtr& area) {
  if (area_ != area) return;
  area_ = nullptr;
  updatePointer();
}

bool ButtonView::isInActiveWindow() const {
  return widget() != nullptr && isActive(widget());
}

bool ButtonView::onlyActivates() const {
  const auto responder = responder_.lock();
  return responder != nullptr && !isInActiveWindow() && !responder->acceptsFirstMouse();
}

void ButtonView::onPress(GtkGestureClick* gesture, int, double, double, gpointer view) {
  if (!static_cast<ButtonView*>(view)->onlyActivates()) return;
  gtk_gesture_set_state(GTK_GESTURE(gesture), GTK_EVENT_SEQUENCE_CLAIMED);
}

void ButtonView::updatePointer() {
  if (widget() == nullptr) return;
  gtk_widget_set_cursor(widget(), nullptr);
  const bool isTracked = area_ && (area_->options & platform::kTrackingCursorUpdate) != 0;
  const bool isForKeyWindow = area_ && (area_->options & platform::kTrackingActiveInKeyWindow) != 0;
  if (!isTracked || !isUnderPointer_ || (isForKeyWindow && !isInActiveWindow())) return;
  const auto responder = responder_.lock();
  if (responder == nullptr) return;
  LinkCursor::setAsking(widget());
  responder->cursorUpdate();
  LinkCursor::setAsking(nullptr);
}

void LinkCursor::setPointingHand() {
  if (asking_ != nullptr) gtk_widget_set_cursor_from_name(asking_, "pointer");
}

LevelView::LevelView(GtkLevelBar* bar) : WidgetView(GTK_WIDGET(bar)) {
  // Only these: the toolkit's own thresholds would colour the bar by others.
  for (const char* own :
       {GTK_LEVEL_BAR_OFFSET_LOW, GTK_LEVEL_BAR_OFFSET_HIGH, GTK_LEVEL_BAR_OFFSET_FULL}) {
    gtk_level_bar_remove_offset_value(bar, own);
  }
  gtk_level_bar_add_offset_value(bar, "quiet", placeOf(-12));
  gtk_level_bar_add_offset_value(bar, "loud", placeOf(-3));
  gtk_level_bar_add_offset_value(bar, "clipping", placeOf(0));
}

void LevelView::setHidden(bool hidden) {
  isHidden_ = hidden;
  if (widget() == nullptr) return;
  gtk_widget_set_opacity(widget(), hidden ? 0 : 1);
  gtk_accessible_update_state(GTK_ACCESSIBLE(widget()), GTK_ACCESSIBLE_STATE_HIDDEN,
                              hidden ? TRUE : FALSE, -1);
}

void LevelView::setLevel(float peak) {
  if (widget() == nullptr) return;
  const double safePeak = std::isnan(peak) ? 0 : std::clamp(static_cast<double>(peak), 0.0, 1.0);
  const double place = safePeak > 0 ? placeOf(20 * std::log10(safePeak)) : 0;
  // Only changes that can be seen are drawn.
  const int width_px = gtk_widget_get_width(widget()) * gtk_widget_get_scale_factor(widget());
  const double shown = width_px > 0 ? std::round(place * width_px) / width_px : place;
  auto* bar = GTK_LEVEL_BAR(widget());
  if (gtk_level_bar_get_value(bar) != shown) gtk_level_bar_set_value(bar, shown);
}

}  // namespace linux_host
