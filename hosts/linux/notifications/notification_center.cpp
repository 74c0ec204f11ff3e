// SPDX-License-Identifier: MIT
#include "hosts/linux/notifications/notification_center.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

using platform::UserNotification;
using platform::UserNotificationPtr;

constexpr const char* kService = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kDefaultAction = "default";
constexpr const char* kButtonAction = "button";
constexpr guchar kNormalUrgency = 1;
// As long as the program keeps them; it then removes those that the server has not.
constexpr int kLife_ms = 10'000;

std::string displayName(const platform::Bundle& bundle) {
  const auto info = bundle.localizedInfoDictionary();
  if (info) {
    const auto name = info->find("CFBundleDisplayName");
    if (name != info->end()) {
      if (const auto* text = name->second.as<std::string>()) return *text;
    }
  }
  return "Record Audio";
}

GVariant* textVariant(const std::string& text) {
  return g_variant_new_take_string(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
}

std::string escapedMarkup(const std::string& text) {
  gchar* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  gchar* escaped = g_markup_escape_text(valid, -1);
  std::string result(escaped);
  g_free(escaped);
  g_free(valid);
  return result;
}

// The desktop's categories: a completed file, an error, anything else.
const char* categoryOf(const UserNotification& notification) {
  if (notification.userInfo.contains("OpenPath")) return "transfer.complete";
  if (!notification.hasActionButton) return "transfer.error";
  return "transfer";
}

// Silent ones say so: a sound would get into the recording.
GVariant* hintsOf(const UserNotification& notification, bool isTransient) {
  GVariantBuilder hints;
  g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
  const auto add = [&](const char* name, GVariant* value) {
    g_variant_builder_add(&hints, "{sv}", name, value);
  };
  add("desktop-entry", g_variant_new_string(kApplicationId));
  add("category", g_variant_new_string(categoryOf(notification)));
  add("urgency", g_variant_new_byte(kNormalUrgency));
  if (isTransient) add("transient", g_variant_new_boolean(TRUE));
  // A click does not close the notification and its button.
  if (notification.hasActionButton) add("resident", g_variant_new_boolean(TRUE));
  if (!notification.soundName) {
    add("suppress-sound", g_variant_new_boolean(TRUE));
  } else if (*notification.soundName == platform::kUserNotificationDefaultSoundName) {
    add("sound-name", g_variant_new_string("message-new-instant"));
  } else {
    add("sound-name", textVariant(*notification.soundName));
  }
  return g_variant_builder_end(&hints);
}

}  // namespace

// Travels with an asynchronous call, which may outlive the center.
struct DesktopNotificationCenter::Call {
  std::weak_ptr<DesktopNotificationCenter*> center;
  UserNotificationPtr notification;
};

struct DesktopNotificationCenter::Answered {
  DesktopNotificationCenter& center;
  UserNotificationPtr notification;
  VariantPtr value;
};

DesktopNotificationCenter::DesktopNotificationCenter(
    GDBusConnection* bus, const platform::Bundle& bundle,
    std::function<void(const std::string& token)> onToken)
    : bus_(bus),
      bundle_(bundle),
      self_(std::make_shared<DesktopNotificationCenter*>(this)),
      onToken_(std::move(onToken)) {
  if (bus_ == nullptr) return;
  for (const char* signal : {"ActivationToken", "ActionInvoked", "NotificationClosed"}) {
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        bus_, kService, kService, signal, kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        &DesktopNotificationCenter::onSignal, this, nullptr));
  }
  subscriptions_.push_back(g_dbus_connection_signal_subscribe(
      bus_, "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      "/org/freedesktop/DBus", kService, G_DBUS_SIGNAL_FLAGS_NONE,
      &DesktopNotificationCenter::onServerChanged, this, nullptr));
}

DesktopNotificationCenter::~DesktopNotificationCenter() {
  for (const guint subscription : subscriptions_) {
    g_dbus_connection_signal_unsubscribe(bus_, subscription);
  }
}

void DesktopNotificationCenter::setDelegate(
    std::weak_ptr<platform::UserNotificationCenterDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void DesktopNotificationCenter::deliverNotification(const UserNotificationPtr& notification) {
  mainThread_.assertHeld();
  const auto delegate = delegate_.lock();
  if (delegate != nullptr &&
      !delegate->userNotificationCenterShouldPresentNotification(*this, notification)) {
    return;
  }
  if (bus_ == nullptr) return;
  delivered_.push_back({notification, std::nullopt});
  if (capabilities_) {
    notify(notification);
  } else {
    askCapabilities(notification);
  }
}

void DesktopNotificationCenter::removeDeliveredNotification(
    const UserNotificationPtr& notification) {
  mainThread_.assertHeld();
  const Delivered* delivered = find(notification);
  if (delivered == nullptr) return;
  // If the server has not answered with an id yet, it is closed as soon as it does.
  if (delivered->id) close(*delivered->id);
  forget(notification);
}

void DesktopNotificationCenter::call(const char* method, GVariant* parameters,
                                     const GVariantType* answer, GAsyncReadyCallback done,
                                     const UserNotificationPtr& notification) {
  g_dbus_connection_call(bus_, kService, kPath, kService, method, parameters, answer,
                         G_DBUS_CALL_FLAGS_NONE, kBusTimeout_ms, nullptr, done,
                         new Call{self_, notification});
}

void DesktopNotificationCenter::askCapabilities(const UserNotificationPtr& notification) {
  call("GetCapabilities", nullptr, G_VARIANT_TYPE("(as)"),
       &DesktopNotificationCenter::onCapabilities, notification);
}

std::optional<DesktopNotificationCenter::Answered> DesktopNotificationCenter::answered(
    GObject* source, GAsyncResult* result, gpointer raw) {
  const std::unique_ptr<Call> call(static_cast<Call*>(raw));
  GError* error = nullptr;
  VariantPtr answer(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error));
  const ErrorPtr failure(error);
  const auto center = call->center.lock();
  if (center == nullptr) return std::nullopt;
  if (answer == nullptr) {
    logOnce(LogLevel::kWarning, "notifications",
            std::string("Notifications are not shown: ") + failure->message);
    (*center)->forget(call->notification);
    return std::nullopt;
  }
  return Answered{**center, call->notification, std::move(answer)};
}

void DesktopNotificationCenter::onCapabilities(GObject* source, GAsyncResult* result,
                                               gpointer call) {
  const auto answer = answered(source, result, call);
  if (!answer) return;
  const auto& [self, notification, value] = *answer;
  const VariantPtr list(g_variant_get_child_value(value.get(), 0));
  Capabilities capabilities;
  for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
    const VariantPtr child(g_variant_get_child_value(list.get(), i));
    const std::string_view name = g_variant_get_string(child.get(), nullptr);
    capabilities.actions |= name == "actions";
    capabilities.body |= name == "body";
    capabilities.bodyMarkup |= name == "body-markup";
    capabilities.list |= name == "persistence";
  }
  self.capabilities_ = capabilities;
  // If it was removed in the meantime, it is not shown at all.
  if (self.find(notification) != nullptr) self.notify(notification);
}

GVariant* DesktopNotificationCenter::parametersOf(const UserNotification& notification) const {
  const std::string name = displayName(bundle_);
  const std::string title = notification.title.value_or(name);
  const std::string text = textOf(notification);
  GVariantBuilder actions;
  g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
  if (capabilities_->actions) {
    if (notification.hasContentsAction || takesClicks()) {
      g_variant_builder_add(&actions, "s", kDefaultAction);
      g_variant_builder_add_value(&actions, textVariant(bundle_.localizedString("Show")));
    }
    if (notification.hasActionButton) {
      g_variant_builder_add(&actions, "s", kButtonAction);
      g_variant_builder_add_value(&actions, textVariant(notification.actionButtonTitle));
    }
  }
  // A server without body support shows one line: the text says more than the title.
  const std::string& summary = capabilities_->body ? title : text;
  const std::string body = !capabilities_->body        ? std::string()
                           : capabilities_->bodyMarkup ? escapedMarkup(text)
                                                       : text;
  return g_variant_new("(@su@s@s@sas@a{sv}i)", textVariant(name), guint32{0},
                       textVariant(kApplicationId), textVariant(summary), textVariant(body),
                       &actions, hintsOf(notification, isTransient_), kLife_ms);
}

// On servers that keep a list, a click on the notification triggers the default action. Without one
// they start the program again, which would end the recording. On other servers the click closes
// the notification, and the default action gets a button.
bool DesktopNotificationCenter::takesClicks() const {
  return capabilities_->actions && capabilities_->list;
}

std::string DesktopNotificationCenter::textOf(const UserNotification& notification) const {
  std::string text = notification.informativeText;
  if (notification.hasContentsAction && !takesClicks())
    text.resize(std::min(text.find('\n'), text.size()));
  if (notification.userInfo.contains("Cancel") && !startAdvice_.empty())
    text += "\n" + startAdvice_;
  if (!notification.details.empty()) text += "\n" + notification.details;
  return text;
}

bool DesktopNotificationCenter::isDelivering() const {
  return std::any_of(delivered_.begin(), delivered_.end(),
                     [](const Delivered& one) { return !one.id.has_value(); });
}

void DesktopNotificationCenter::notify(const UserNotificationPtr& notification) {
  call("Notify", parametersOf(*notification), G_VARIANT_TYPE("(u)"),
       &DesktopNotificationCenter::onNotified, notification);
}

void DesktopNotificationCenter::onNotified(GObject* source, GAsyncResult* result, gpointer call) {
  const auto answer = answered(source, result, call);
  if (!answer) return;
  const auto& [self, notification, value] = *answer;
  const VariantPtr id(g_variant_get_child_value(value.get(), 0));
  if (Delivered* delivered = self.find(notification)) {
    delivered->id = g_variant_get_uint32(id.get());
  } else {
    self.close(g_variant_get_uint32(id.get()));
  }
}

void DesktopNotificationCenter::close(guint32 id) {
  g_dbus_connection_call(bus_, kService, kPath, kService, "CloseNotification",
                         g_variant_new("(u)", id), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                         kBusTimeout_ms, nullptr, nullptr, nullptr);
}

void DesktopNotificationCenter::onSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                         const gchar* signal, GVariant* parameters, gpointer raw) {
  auto& self = *static_cast<DesktopNotificationCenter*>(raw);
  const std::string_view name = signal;
  const bool isClosed = name == "NotificationClosed";
  if (!areOfType(parameters, isClosed ? "(uu)" : "(us)", signal)) return;
  guint32 id = 0;
  g_variant_get_child(parameters, 0, "u", &id);
  if (isClosed) return self.closed(id);
  const VariantPtr text(g_variant_get_child_value(parameters, 1));
  const gchar* value = g_variant_get_string(text.get(), nullptr);
  if (name == "ActionInvoked") {
    self.activated(id, value);
  } else if (self.shows(id)) {
    self.onToken_(value);
  }
}

bool DesktopNotificationCenter::shows(guint32 id) const {
  return std::any_of(delivered_.begin(), delivered_.end(),
                     [id](const Delivered& one) { return one.id == id; });
}

void DesktopNotificationCenter::activated(guint32 id, const std::string& action) {
  const auto found = std::find_if(delivered_.begin(), delivered_.end(),
                                  [id](const Delivered& one) { return one.id == id; });
  const auto delegate = delegate_.lock();
  if (found == delivered_.end() || delegate == nullptr) return;
  using Type = platform::UserNotificationActivationType;
  if (action != kDefaultAction && action != kButtonAction) return;
  // The delegate may remove it while it is called.
  const UserNotificationPtr notification = found->notification;
  notification->activationType =
      action == kDefaultAction ? Type::kContentsClicked : Type::kActionButtonClicked;
  delegate->userNotificationCenterDidActivateNotification(*this, notification);
  // A file can be shown and opened again; any other button works only once.
  const bool isSpent = action == kButtonAction && !notification->hasContentsAction;
  if (isSpent) close(id);
}

void DesktopNotificationCenter::closed(guint32 id) {
  std::erase_if(delivered_, [id](const Delivered& one) { return one.id == id; });
}

// The ids and capabilities were those of the old server.
void DesktopNotificationCenter::onServerChanged(GDBusConnection*, const gchar*, const gchar*,
                                                const gchar*, const gchar*, GVariant* parameters,
                                                gpointer raw) {
  auto& self = *static_cast<DesktopNotificationCenter*>(raw);
  if (!areOfType(parameters, "(sss)", "NameOwnerChanged")) return;
  const VariantPtr before(g_variant_get_child_value(parameters, 1));
  // A server that our own call has started will answer it.
  if (*g_variant_get_string(before.get(), nullptr) == '\0') return;
  self.capabilities_.reset();
  std::erase_if(self.delivered_, [](const Delivered& one) { return one.id.has_value(); });
}

DesktopNotificationCenter::Delivered* DesktopNotificationCenter::find(
    const UserNotificationPtr& notification) {
  const auto found = std::find_if(delivered_.begin(), delivered_.end(), [&](const Delivered& one) {
    return one.notification == notification;
  });
  return found == delivered_.end() ? nullptr : &*found;
}

void DesktopNotificationCenter::forget(const UserNotificationPtr& notification) {
  std::erase_if(delivered_, [&](const Delivered& one) { return one.notification == notification; });
}

}  // namespace linux_host
