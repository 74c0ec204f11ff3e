// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/screen_loss.h"

#include <gtk/gtk.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <string_view>
#ifdef GDK_WINDOWING_WAYLAND
#include <gdk/wayland/gdkwayland.h>
#include <wayland-client-core.h>
#endif
#ifdef GDK_WINDOWING_X11
#include <gdk/x11/gdkx.h>
#endif

namespace linux_host {
namespace {

constexpr int kUnknown = -1;

// What GTK writes before it ends the process.
constexpr std::array<std::string_view, 5> kLastMessages = {
    "Lost connection to Wayland compositor", "Error reading events from display",
    "Error flushing display", "dispatching to Wayland display", "Fatal IO error"};

int connectionOf(GdkDisplay* display) {
#ifdef GDK_WINDOWING_WAYLAND
  if (GDK_IS_WAYLAND_DISPLAY(display)) {
    return wl_display_get_fd(gdk_wayland_display_get_wl_display(display));
  }
#endif
#ifdef GDK_WINDOWING_X11
  if (GDK_IS_X11_DISPLAY(display)) {
    return ConnectionNumber(gdk_x11_display_get_xdisplay(display));
  }
#endif
  return kUnknown;
}

bool isNamedByGtk(GSource* source) {
  const char* name = g_source_get_name(source);
  if (name == nullptr) return false;
  const std::string_view text(name);
  return text.starts_with("[gtk") || text.starts_with("[gdk") || text.starts_with("GDK ");
}

std::string_view valueOf(const GLogField& field) {
  const auto* text = static_cast<const char*>(field.value);
  return field.length < 0 ? std::string_view(text)
                          : std::string_view(text, static_cast<std::size_t>(field.length));
}

struct Message {
  std::string_view domain;
  std::string_view text;
};

Message messageIn(const GLogField* fields, gsize count) {
  Message message;
  for (gsize i = 0; i < count; ++i) {
    if (std::string_view(fields[i].key) == "GLIB_DOMAIN") message.domain = valueOf(fields[i]);
    if (std::string_view(fields[i].key) == "MESSAGE") message.text = valueOf(fields[i]);
  }
  return message;
}

bool isLast(const Message& message) {
  return message.domain == "Gdk" &&
         std::any_of(kLastMessages.begin(), kLastMessages.end(), [&](std::string_view last) {
           return message.text.find(last) != std::string_view::npos;
         });
}

// Advice for programs with a main window. While this one records, an alert stands alone.
bool isAboutLoneAlerts(const Message& message) {
  return message.domain == "Adwaita" &&
         message.text.find("without a transient parent") != std::string_view::npos;
}

}  // namespace

// Comes before GTK's own source, which ends the process when it reads from a broken connection.
struct ScreenLoss::Watch {
  GSource base;
  int connection;
};

ScreenLoss::ScreenLoss(WindowsServices& services, const SourceSpan& toolkit, GdkDisplay* display)
    : services_(services), toolkit_(toolkit) {
  watching_ = this;
  // GLib has room for one writer, and takes it once in a process.
  static const bool isWriterSet = [] {
    g_log_set_writer_func(onMessage, nullptr, nullptr);
    return true;
  }();
  (void)isWriterSet;
  const int connection = connectionOf(display);
  if (connection == kUnknown) return;
  static GSourceFuncs functions = {prepare, check, dispatch, nullptr, nullptr, nullptr};
  watch_ = g_source_new(&functions, sizeof(Watch));
  reinterpret_cast<Watch*>(watch_)->connection = connection;
  g_source_set_priority(watch_, G_PRIORITY_HIGH);
  g_source_add_unix_fd(watch_, connection, GIOCondition(G_IO_HUP | G_IO_ERR));
  // An alert that waits within another event's handler iterates the loop, too.
  g_source_set_can_recurse(watch_, TRUE);
  g_source_attach(watch_, nullptr);
}

ScreenLoss::~ScreenLoss() {
  watching_ = nullptr;
  if (watch_ == nullptr) return;
  g_source_destroy(watch_);
  g_source_unref(watch_);
}

bool ScreenLoss::isBroken(const Watch& watch) {
  pollfd connection{watch.connection, 0, 0};
  return poll(&connection, 1, 0) > 0 && (connection.revents & (POLLHUP | POLLERR)) != 0;
}

// GTK's sources go at once, so that they are not asked in this round of the loop.
gboolean ScreenLoss::prepare(GSource* source, gint* timeout_ms) {
  *timeout_ms = -1;
  return check(source);
}

gboolean ScreenLoss::check(GSource* source) {
  if (watching_ == nullptr || !isBroken(*reinterpret_cast<Watch*>(source))) return FALSE;
  watching_->abandonToolkit();
  return TRUE;
}

gboolean ScreenLoss::dispatch(GSource* source, GSourceFunc, gpointer) {
  g_source_destroy(source);
  watching_->services_.goOnWithoutScreen();
  return G_SOURCE_REMOVE;
}

void ScreenLoss::abandonToolkit() const {
  toolkit_.destroyWith(isNamedByGtk);
}

GLogWriterOutput ScreenLoss::onMessage(GLogLevelFlags level, const GLogField* fields, gsize count,
                                       gpointer) {
  const Message message = messageIn(fields, count);
  if (isAboutLoneAlerts(message)) return G_LOG_WRITER_HANDLED;
  const GLogWriterOutput output = g_log_writer_default(level, fields, count, nullptr);
  if (watching_ != nullptr && isLast(message)) {
    watching_->abandonToolkit();
    if (watching_->watch_ != nullptr) g_source_destroy(watching_->watch_);
    watching_->services_.goOnWithoutScreen();
  }
  return output;
}

}  // namespace linux_host
