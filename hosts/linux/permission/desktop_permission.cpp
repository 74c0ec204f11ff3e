// SPDX-License-Identifier: MIT
#include "hosts/linux/permission/desktop_permission.h"

#include <unistd.h>

#include <utility>

#include "hosts/linux/base/log.h"
#include "hosts/linux/bus/dbus_support.h"
#include "hosts/linux/bus/desktop_setting.h"

namespace linux_host {
namespace {

using platform::AuthorizationStatus;

constexpr const char* kApplicationId = "com.vantrel.korvel.RecordAudio";

constexpr const char* kStoreName = "org.freedesktop.impl.portal.PermissionStore";
constexpr const char* kStorePath = "/org/freedesktop/impl/portal/PermissionStore";

constexpr const char* kPrivacySchema = "org.gnome.desktop.privacy";
constexpr const char* kPrivacyKey = "disable-microphone";

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
  mainThread_.assertHeld();
  if (isSwitchedOff().value_or(false)) return AuthorizationStatus::kDenied;
  const StoreAnswer answer = askStore();
  if (answer.entry == "no") return AuthorizationStatus::kDenied;
  if (answer.entry == "ask") return AuthorizationStatus::kNotDetermined;
  return AuthorizationStatus::kAuthorized;
}

void DesktopMicrophonePermission::request(std::function<void(bool)> handler) {
  mainThread_.assertHeld();
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
  const VariantPtr reply(g_dbus_connection_call_sync(
      bus, kStoreName, kStorePath, kStoreName, "Lookup",
      g_variant_new("(ss)", "devices", "microphone"), G_VARIANT_TYPE("(a{sas}v)"),
      G_DBUS_CALL_FLAGS_NO_AUTO_START, kAnswerLimit_ms, nullptr, &rawError));
  const ErrorPtr error(rawError);
  if (reply == nullptr) {
    // "Not found" is an answer too: there is no entry yet.
    answer.isThere =
        g_dbus_error_is_remote_error(error.get()) != FALSE && error->domain != G_DBUS_ERROR;
    return answer;
  }
  answer.isThere = true;
  const VariantPtr entries(g_variant_get_child_value(reply.get(), 0));
  GVariantIter each;
  g_variant_iter_init(&each, entries.get());
  const gchar* application = nullptr;
  GVariant* rawPermissions = nullptr;
  while (g_variant_iter_next(&each, "{&s@as}", &application, &rawPermissions) != FALSE) {
    const VariantPtr permissions(rawPermissions);
    if (std::string(application) != kApplicationId) continue;
    if (g_variant_n_children(permissions.get()) == 0) continue;
    const gchar* permission = nullptr;
    g_variant_get_child(permissions.get(), 0, "&s", &permission);
    answer.entry = permission;
  }
  return answer;
}

std::optional<bool> DesktopMicrophonePermission::isSwitchedOff() {
  const VariantPtr flag = desktopSetting(kPrivacySchema, kPrivacyKey, G_VARIANT_TYPE_BOOLEAN);
  if (flag == nullptr) return std::nullopt;
  return g_variant_get_boolean(flag.get()) != FALSE;
}

}  // namespace linux_host
