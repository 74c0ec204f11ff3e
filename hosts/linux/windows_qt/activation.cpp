// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_qt/activation.h"

#include <xcb/xcb.h>

#include <QGuiApplication>
#include <QTimer>
#include <QVariant>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "hosts/linux/windows_qt/wayland.h"

// X11 has no tokens. A startup id carries the time of the click, which the window manager compares
// with that of the front window.

namespace linux_host {
namespace {

constexpr std::size_t kMessage_bytes = 20;
constexpr std::uint32_t kFromApplication = 1;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

class X11 {
 public:
  explicit X11(xcb_connection_t* connection)
      : connection_(connection),
        root_(xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root) {}

  // The window belongs to the program started with that id.
  void setStartupId(xcb_window_t window, const std::string& id) const {
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, atom("_NET_STARTUP_ID"),
                        atom("UTF8_STRING"), 8, static_cast<std::uint32_t>(id.size()), id.data());
  }

  void activate(xcb_window_t window, std::uint32_t time_ms) const {
    xcb_client_message_event_t event = message(window, "_NET_ACTIVE_WINDOW", 32);
    event.data.data32[0] = kFromApplication;
    event.data.data32[1] = time_ms;
    send(event);
  }

  // The start is complete: the pointer stops showing that a program is starting.
  void completeStartup(xcb_window_t window, const std::string& id) const {
    std::string text = "remove: ID=";
    for (const char character : id) {
      if (character == ' ' || character == '"' || character == '\\') text += '\\';
      text += character;
    }
    text += '\0';
    const char* type = "_NET_STARTUP_INFO_BEGIN";
    for (std::size_t at = 0; at < text.size(); at += kMessage_bytes) {
      xcb_client_message_event_t event = message(window, type, 8);
      std::memcpy(event.data.data8, text.data() + at, std::min(kMessage_bytes, text.size() - at));
      send(event);
      type = "_NET_STARTUP_INFO";
    }
  }

  void flush() const { xcb_flush(connection_); }

 private:
  [[nodiscard]] xcb_atom_t atom(const char* name) const {
    const std::unique_ptr<xcb_intern_atom_reply_t, Free> reply(xcb_intern_atom_reply(
        connection_,
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(std::strlen(name)), name),
        nullptr));
    return reply == nullptr ? xcb_atom_t{XCB_ATOM_NONE} : reply->atom;
  }
  [[nodiscard]] xcb_client_message_event_t message(xcb_window_t window, const char* type,
                                                   std::uint8_t format) const {
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = format;
    event.window = window;
    event.type = atom(type);
    return event;
  }
  void send(const xcb_client_message_event_t& event) const {
    // By the desktop's conventions, requests to the window manager carry numbers, startup messages
    // a text.
    std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    if (event.format == 32) {
      mask = XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    }
    xcb_send_event(connection_, 0, root_, mask, reinterpret_cast<const char*>(&event));
  }

  xcb_connection_t* const connection_;
  const xcb_window_t root_;
};

// The server's time of the click that made the startup id; 0 when the id does not contain it.
std::uint32_t timeOf(const std::string& startupId) {
  constexpr std::string_view kMark = "_TIME";
  const std::size_t at = startupId.rfind(kMark);
  if (at == std::string::npos) return 0;
  return static_cast<std::uint32_t>(
      std::strtoul(startupId.c_str() + at + kMark.size(), nullptr, 10));
}

// Set until the event is over: the window is not on the screen yet, and will be in front.
constexpr const char* kJustShown = "justShown";

void noteShown(QWidget& window) {
  window.setProperty(kJustShown, true);
  QTimer::singleShot(0, &window, [&window] { window.setProperty(kJustShown, QVariant()); });
}

}  // namespace

void makeNewIfBehind(QWidget& window) {
  const bool isBehind =
      window.isVisible() && !window.isActiveWindow() && !window.property(kJustShown).toBool();
  if (isBehind && !window.isModal() && isOnWayland()) window.hide();
}

void bringForward(QWidget& window, const std::string& token) {
  const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  if (token.empty() || x11 == nullptr) {
    if (token.empty()) makeNewIfBehind(window);
    if (!window.isVisible()) noteShown(window);
    window.show();
    window.raise();
    // Qt itself would take the token only from the environment, which must not change while other
    // threads may be reading it.
    if (token.empty() || !isOnWayland() || !activateOnWayland(window, token)) {
      window.activateWindow();
    }
    return;
  }
  const X11 server(x11->connection());
  const auto id = static_cast<xcb_window_t>(window.winId());
  server.setStartupId(id, token);
  window.show();
  window.raise();
  server.activate(id, timeOf(token));
  server.completeStartup(id, token);
  server.flush();
}

}  // namespace linux_host
