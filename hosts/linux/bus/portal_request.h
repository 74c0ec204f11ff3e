// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

#include "hosts/linux/bus/dbus_support.h"
#include "platform/thread_role.h"

namespace linux_host {

inline constexpr const char* kPortalName = "org.freedesktop.portal.Desktop";
inline constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";

// Tells the portal which application uses `bus`. Must come before any other request, as the portal
// refuses it later. In portals that support this, a program outside a sandbox has no name
// otherwise; other portals find the name in their own way, or not at all. Waits for the answer.
void introduceToPortal(GDBusConnection* bus, int timeout_ms);

// One question that the desktop's portal asks the user, until it is answered or the portal is gone.
// Starts the portal if that is possible. Lives in GLib's default context, where every pending call
// holds a reference. Main thread.
class PortalRequest : public std::enable_shared_from_this<PortalRequest> {
 public:
  enum class Outcome {
    kAgreed,
    kDeclined,  // the user declined
    kFailed,    // there is no portal, it is gone, or it could not ask
  };
  // `results` is the portal's dictionary, valid during the call and null unless the user agreed;
  // `error` says why the portal could not be asked.
  using Handler = std::function<void(Outcome outcome, GVariant* results, const std::string& error)>;
  // Builds the method's arguments, with the portal's `options`, a dictionary builder, among them.
  using Arguments = std::function<GVariant*(GVariantBuilder* options)>;

  // `handler` is called once, later, from the main loop. The names must be literals.
  static std::shared_ptr<PortalRequest> ask(GDBusConnection* bus, const char* interface,
                                            const char* method, const Arguments& arguments,
                                            Handler handler);
  ~PortalRequest();
  PortalRequest(const PortalRequest&) = delete;
  PortalRequest& operator=(const PortalRequest&) = delete;

  // Cancels: the handler is not called, and the portal closes its dialog.
  void cancel();

 private:
  using Self = std::shared_ptr<PortalRequest>;

  PortalRequest(GDBusConnection* bus, const char* interface, const char* method, Handler handler);

  static void onIntroduced(GObject* bus, GAsyncResult* result, gpointer self);
  static void onCalled(GObject* bus, GAsyncResult* result, gpointer self);
  static void onResponse(GDBusConnection* bus, const gchar* sender, const gchar* path,
                         const gchar* interface, const gchar* signal, GVariant* parameters,
                         gpointer self);
  static void onPortalGone(GDBusConnection* bus, const gchar* name, gpointer self);
  static gpointer reference(const Self& self) { return new Self(self); }
  static void release(gpointer self) { delete static_cast<Self*>(self); }

  // The object path of the portal's answer.
  [[nodiscard]] std::string requestPath() const;
  void listen(const std::string& path);
  void stopListening();
  void answer(Outcome outcome, GVariant* results = nullptr, const std::string& error = {});

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const ConnectionPtr bus_;
  const std::string token_;
  const char* const interface_;
  const char* const method_;
  VariantPtr arguments_;  // until the method is called
  Handler handler_;
  std::string path_;
  guint subscription_ = 0;
  guint watch_ = 0;
};

}  // namespace linux_host
