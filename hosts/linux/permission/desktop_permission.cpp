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

constexpr const char* kPortalName = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kPortalInterface = "org.freedesktop.portal.Device";
constexpr const char* kRequestInterface = "org.freedesktop.portal.Request";

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

// One question to the user, until it is answered or nobody is left to answer it. Lives in GLib's
// default context, which holds a reference through every call under way.
class DesktopMicrophonePermission::Question : public std::enable_shared_from_this<Question> {
 public:
  // `token`: told apart from all other questions of this process.
  Question(GDBusConnection* bus, std::string token, std::function<void(bool)> handler)
      : bus_(G_DBUS_CONNECTION(g_object_ref(bus))),
        token_(std::move(token)),
        handler_(std::move(handler)) {}
  ~Question() {
    stopListening();
    g_object_unref(bus_);
  }
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  void ask();
  // Nobody wants to know any more.
  void cancel() {
    handler_ = nullptr;
    stopListening();
  }

 private:
  using Self = std::shared_ptr<Question>;

  static void onCalled(GObject* bus, GAsyncResult* result, gpointer self);
  static void onResponse(GDBusConnection* bus, const gchar* sender, const gchar* path,
                         const gchar* interface, const gchar* signal, GVariant* parameters,
                         gpointer self);
  static void onPortalGone(GDBusConnection* bus, const gchar* name, gpointer self);

  static gpointer reference(const Self& self) { return new Self(self); }
  static void release(gpointer self) { delete static_cast<Self*>(self); }

  // The object at which the portal will answer.
  [[nodiscard]] std::string requestPath() const;
  void listen(const std::string& path);
  void stopListening();
  void answer(bool isGranted);

  GDBusConnection* bus_;
  const std::string token_;
  std::function<void(bool)> handler_;
  std::string path_;
  guint subscription_ = 0;
  guint watch_ = 0;
};

std::string DesktopMicrophonePermission::Question::requestPath() const {
  const gchar* uniqueName = g_dbus_connection_get_unique_name(bus_);
  std::string sender = uniqueName == nullptr ? "" : uniqueName + 1;  // without the colon
  for (char& letter : sender) letter = letter == '.' ? '_' : letter;
  return std::string(kPortalPath) + "/request/" + sender + "/" + token_;
}

void DesktopMicrophonePermission::Question::ask() {
  listen(requestPath());
  watch_ =
      g_bus_watch_name_on_connection(bus_, kPortalName, G_BUS_NAME_WATCHER_FLAGS_AUTO_START,
                                     nullptr, onPortalGone, reference(shared_from_this()), release);
  const gchar* devices[] = {"microphone", nullptr};
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token_.c_str()));
  g_dbus_connection_call(
      bus_, kPortalName, kPortalPath, kPortalInterface, "AccessDevice",
      g_variant_new("(u^asa{sv})", static_cast<guint32>(getpid()), devices, &options),
      G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, onCalled,
      reference(shared_from_this()));
}

void DesktopMicrophonePermission::Question::listen(const std::string& path) {
  if (path == path_) return;
  if (subscription_ != 0) g_dbus_connection_signal_unsubscribe(bus_, subscription_);
  path_ = path;
  subscription_ = g_dbus_connection_signal_subscribe(
      bus_, kPortalName, kRequestInterface, "Response", path_.c_str(), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE, onResponse, reference(shared_from_this()), release);
}

void DesktopMicrophonePermission::Question::stopListening() {
  if (const guint subscription = std::exchange(subscription_, 0); subscription != 0) {
    g_dbus_connection_signal_unsubscribe(bus_, subscription);
  }
  if (const guint watch = std::exchange(watch_, 0); watch != 0) g_bus_unwatch_name(watch);
}

void DesktopMicrophonePermission::Question::answer(bool isGranted) {
  const Self self = shared_from_this();  // what listened for the answer held the last reference
  stopListening();
  if (auto handler = std::exchange(handler_, nullptr)) handler(isGranted);
}

void DesktopMicrophonePermission::Question::onCalled(GObject* bus, GAsyncResult* result,
                                                     gpointer data) {
  const std::unique_ptr<Self> reference(static_cast<Self*>(data));
  Question& self = **reference;
  GError* rawError = nullptr;
  const Owned<GVariant> reply(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &rawError));
  const Owned<GError> error(rawError);
  if (reply == nullptr) {
    if (self.handler_) {
      logMessage(LogLevel::kWarning, std::string("The desktop cannot ask for the microphone (") +
                                         error->message + ").");
    }
    self.answer(false);
    return;
  }
  const gchar* path = nullptr;
  g_variant_get(reply.get(), "(&o)", &path);
  if (self.handler_) self.listen(path);  // portals of old choose the path themselves
}

void DesktopMicrophonePermission::Question::onResponse(GDBusConnection*, const gchar*, const gchar*,
                                                       const gchar*, const gchar*,
                                                       GVariant* parameters, gpointer self) {
  if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ua{sv})"))) return;
  guint32 response = 1;
  g_variant_get_child(parameters, 0, "u", &response);
  (*static_cast<Self*>(self))->answer(response == 0);
}

void DesktopMicrophonePermission::Question::onPortalGone(GDBusConnection*, const gchar*,
                                                         gpointer self) {
  (*static_cast<Self*>(self))->answer(false);
}

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
  const std::string token = "record_audio_" + std::to_string(questions_.size());
  const auto question = std::make_shared<Question>(bus, token, std::move(handler));
  questions_.push_back(question);
  question->ask();
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
