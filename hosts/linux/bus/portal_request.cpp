// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/portal_request.h"

#include <utility>

#include "hosts/linux/base/bundle.h"

namespace linux_host {
namespace {

constexpr const char* kRequestInterface = "org.freedesktop.portal.Request";
constexpr const char* kRegistry = "org.freedesktop.host.portal.Registry";

GVariant* introduction() {
  return g_variant_new("(sa{sv})", kApplicationId, nullptr);
}

}  // namespace

void introduceToPortal(GDBusConnection* bus, int timeout_ms) {
  // The answer does not matter: nothing more can be done.
  const VariantPtr answer(g_dbus_connection_call_sync(
      bus, kPortalName, kPortalPath, kRegistry, "Register", introduction(), nullptr,
      G_DBUS_CALL_FLAGS_NONE, timeout_ms, nullptr, nullptr));
}

PortalRequest::PortalRequest(GDBusConnection* bus, const char* interface, const char* method,
                             Handler handler)
    : bus_(G_DBUS_CONNECTION(g_object_ref(bus))),
      // Unique among the requests of this process.
      token_("record_audio_" + std::to_string(g_random_int())),
      interface_(interface),
      method_(method),
      handler_(std::move(handler)) {}

PortalRequest::~PortalRequest() {
  stopListening();
}

std::shared_ptr<PortalRequest> PortalRequest::ask(GDBusConnection* bus, const char* interface,
                                                  const char* method, const Arguments& arguments,
                                                  Handler handler) {
  Self request(new PortalRequest(bus, interface, method, std::move(handler)));
  request->listen(request->requestPath());
  request->watch_ =
      g_bus_watch_name_on_connection(bus, kPortalName, G_BUS_NAME_WATCHER_FLAGS_AUTO_START, nullptr,
                                     onPortalGone, reference(request), release);
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&options, "{sv}", "handle_token",
                        g_variant_new_string(request->token_.c_str()));
  request->arguments_.reset(g_variant_ref_sink(arguments(&options)));
  g_dbus_connection_call(bus, kPortalName, kPortalPath, kRegistry, "Register", introduction(),
                         nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, onIntroduced,
                         reference(request));
  return request;
}

void PortalRequest::onIntroduced(GObject* bus, GAsyncResult* result, gpointer data) {
  const std::unique_ptr<Self> reference(static_cast<Self*>(data));
  PortalRequest& self = **reference;
  const VariantPtr answer(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, nullptr));
  const VariantPtr arguments = std::move(self.arguments_);
  if (self.handler_ == nullptr) return;
  g_dbus_connection_call(self.bus_.get(), kPortalName, kPortalPath, self.interface_, self.method_,
                         arguments.get(), G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, -1,
                         nullptr, onCalled, PortalRequest::reference(*reference));
}

void PortalRequest::cancel() {
  mainThread_.assertHeld();
  if (std::exchange(handler_, nullptr) == nullptr) return;
  stopListening();
  g_dbus_connection_call(bus_.get(), kPortalName, path_.c_str(), kRequestInterface, "Close",
                         nullptr, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr,
                         nullptr);
}

std::string PortalRequest::requestPath() const {
  const gchar* uniqueName = g_dbus_connection_get_unique_name(bus_.get());
  std::string sender = uniqueName == nullptr ? "" : uniqueName + 1;  // without the colon
  for (char& letter : sender) letter = letter == '.' ? '_' : letter;
  return std::string(kPortalPath) + "/request/" + sender + "/" + token_;
}

void PortalRequest::listen(const std::string& path) {
  mainThread_.assertHeld();
  if (path == path_) return;
  if (subscription_ != 0) g_dbus_connection_signal_unsubscribe(bus_.get(), subscription_);
  path_ = path;
  subscription_ = g_dbus_connection_signal_subscribe(
      bus_.get(), kPortalName, kRequestInterface, "Response", path_.c_str(), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE, onResponse, reference(shared_from_this()), release);
}

void PortalRequest::stopListening() {
  if (const guint subscription = std::exchange(subscription_, 0); subscription != 0) {
    g_dbus_connection_signal_unsubscribe(bus_.get(), subscription);
  }
  if (const guint watch = std::exchange(watch_, 0); watch != 0) g_bus_unwatch_name(watch);
}

void PortalRequest::answer(Outcome outcome, GVariant* results, const std::string& error) {
  mainThread_.assertHeld();
  const Self self = shared_from_this();  // the subscription may hold the last reference
  stopListening();
  if (auto handler = std::exchange(handler_, nullptr)) handler(outcome, results, error);
}

void PortalRequest::onCalled(GObject* bus, GAsyncResult* result, gpointer data) {
  const std::unique_ptr<Self> reference(static_cast<Self*>(data));
  PortalRequest& self = **reference;
  GError* rawError = nullptr;
  const VariantPtr reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &rawError));
  const ErrorPtr error(rawError);
  if (reply == nullptr) {
    self.answer(Outcome::kFailed, nullptr, error->message);
    return;
  }
  const gchar* path = nullptr;
  g_variant_get(reply.get(), "(&o)", &path);
  if (self.handler_) self.listen(path);  // old portals choose the path themselves
}

void PortalRequest::onResponse(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                               const gchar*, GVariant* parameters, gpointer self) {
  constexpr guint32 kSuccess = 0;
  constexpr guint32 kCancelled = 1;
  if (!areOfType(parameters, "(ua{sv})", "Response")) return;
  guint32 response = kCancelled;
  g_variant_get_child(parameters, 0, "u", &response);
  PortalRequest& request = **static_cast<Self*>(self);
  if (response == kSuccess) {
    const VariantPtr results(g_variant_get_child_value(parameters, 1));
    request.answer(Outcome::kAgreed, results.get());
  } else {
    request.answer(response == kCancelled ? Outcome::kDeclined : Outcome::kFailed);
  }
}

void PortalRequest::onPortalGone(GDBusConnection*, const gchar*, gpointer self) {
  (*static_cast<Self*>(self))->answer(Outcome::kFailed);
}

}  // namespace linux_host
