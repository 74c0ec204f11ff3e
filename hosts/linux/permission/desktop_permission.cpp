#include "hosts/linux/permission/desktop_permission.h"

#include <unistd.h>

#include <memory>
#include <utility>

#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

using platform::AuthorizationStatus;

constexpr const char* kApplicationId = "com.vantrel.korvel.RecordAudio";

constexpr const char* kStoreName = "org.freedesktop.impl.portal.PermissionStore";
constexpr const char* kStorePath = "/org/freedesktop/impl/portal/PermissionStore";

constexpr const char* kPrivacySchema = "org.gnome.desktop.privacy";
constexpr const char* kPrivacyKey = "disable-microphone";

struct Unref {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
  void operator()(GVariantIter* iterator) const { g_variant_iter_free(iterator); }
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(GSettings* settings) const { g_object_unref(settings); }
  void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};
template <typename T>
using Owned = std::unique_ptr<T, Unref>;

}  // namespace

DesktopMicrophonePermission::DesktopMicrophonePermission(SessionBus sessionBus)
    : sessionBus_(std::move(sessionBus)) {}

DesktopMicrophonePermission::~DesktopMicrophonePermission() {
  for (const auto& question : questions_) {
    if (const auto asked = question.lock()) asked->cancel();
  }
}

bool DesktopMicrophonePermission::isKnown() {
  return isSwitchedOff().has_value() || askStore().isThere;
}

AuthorizationStatus DesktopMicrophonePermission::status() {
  if (isSwitchedOff().value_or(false)) return AuthorizationStatus::kDenied;
  const StoreAnswer answer = askStore();
  if (answer.entry == "no") return AuthorizationStatus::kDenied;
  if (answer.entry == "ask") return AuthorizationStatus::kNotDetermined;
  return AuthorizationStatus::kAuthorized;
}

void DesktopMicrophonePermission::request(std::function<void(bool)> handler) {
  GDBusConnection* bus = sessionBus_();
  if (bus == nullptr) {
    handler(status() == AuthorizationStatus::kAuthorized);
    return;
  }
  const auto arguments = [](GVariantBuilder* options) {
    const gchar* devices[] = {"microphone", nullptr};
    return g_variant_new("(u^asa{sv})", static_cast<guint32>(getpid()), devices, options);
  };
  questions_.push_back(PortalRequest::ask(
      bus, "org.freedesktop.portal.Device", "AccessDevice", arguments,
      [handler = std::move(handler)](PortalRequest::Outcome outcome, GVariant*,
                                     const std::string& error) {
        if (!error.empty()) {
          logMessage(LogLevel::kWarning,
                     "The desktop cannot ask for the microphone (" + error + ").");
        }
        handler(outcome == PortalRequest::Outcome::kAgreed);
      }));
}

DesktopMicrophonePermission::StoreAnswer DesktopMicrophonePermission::askStore() {
  StoreAnswer answer;
  GDBusConnection* bus = sessionBus_();
  if (bus == nullptr) return answer;
  GError* rawError = nullptr;
  const Owned<GVariant> reply(g_dbus_connection_call_sync(
      bus, kStoreName, kStorePath, kStoreName, "Lookup",
      g_variant_new("(ss)", "devices", "microphone"), G_VARIANT_TYPE("(a{sas}v)"),
      G_DBUS_CALL_FLAGS_NO_AUTO_START, kAnswerLimit_ms, nullptr, &rawError));
  const Owned<GError> error(rawError);
  if (reply == nullptr) {
    // "Not found" is an answer too: nobody has an entry yet.
    answer.isThere =
        g_dbus_error_is_remote_error(error.get()) != FALSE && error->domain != G_DBUS_ERROR;
    return answer;
  }
  answer.isThere = true;
  GVariantIter* rawEntries = nullptr;
  g_variant_get(reply.get(), "(a{sas}v)", &rawEntries, nullptr);
  const Owned<GVariantIter> entries(rawEntries);
  const gchar* application = nullptr;
  GVariant* rawPermissions = nullptr;
  while (g_variant_iter_next(entries.get(), "{&s@as}", &application, &rawPermissions) != FALSE) {
    const Owned<GVariant> permissions(rawPermissions);
    if (std::string(application) != kApplicationId) continue;
    if (g_variant_n_children(permissions.get()) == 0) continue;
    const gchar* permission = nullptr;
    g_variant_get_child(permissions.get(), 0, "&s", &permission);
    answer.entry = permission;
  }
  return answer;
}

std::optional<bool> DesktopMicrophonePermission::isSwitchedOff() {
  GSettingsSchemaSource* schemas = g_settings_schema_source_get_default();
  if (schemas == nullptr) return std::nullopt;
  const Owned<GSettingsSchema> schema(
      g_settings_schema_source_lookup(schemas, kPrivacySchema, TRUE));
  if (schema == nullptr || g_settings_schema_has_key(schema.get(), kPrivacyKey) == FALSE) {
    return std::nullopt;
  }
  const Owned<GSettings> settings(g_settings_new_full(schema.get(), nullptr, nullptr));
  return g_settings_get_boolean(settings.get(), kPrivacyKey) != FALSE;
}

}  // namespace linux_host
