// SPDX-License-Identifier: MIT
#include "hosts/linux/notifications/notification_center.h"

#include <algorithm>
#include <utility>

#include "hosts/linux/base/bundle.h"
#include "hosts/linux/base/glib_owners.h"
#include "hosts/linux/base/log.h"

namespace linux_host {
namespace {

using platform::UserNotification;
using platform::UserNotificationPtr;

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
  const TextPtr valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  const TextPtr escaped(g_markup_escape_text(valid.get(), -1));
  return escaped.get();
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

DesktopNotificationCenter::DesktopNotificationCenter(
    GDBusConnection* bus, const platform::Bundle& bundle,
    std::function<void(const std::string& token)> onToken)
    : bundle_(bundle),
      onToken_(std::move(onToken)),
      server_(bus,
              {.onAction = [this](guint32 id, const std::string& action) { activated(id, action); },
               .onClosed = [this](guint32 id) { closed(id); },
               .onGone = [this](bool) { serverIsGone(); },
               .onToken =
                   [this](guint32 id, const std::string& token) {
                     if (shows(id)) onToken_(token);
                   }}) {}

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
  if (!server_.hasBus()) return;
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
  if (delivered->id) server_.close(*delivered->id);
  forget(notification);
}

void DesktopNotificationCenter::askCapabilities(const UserNotificationPtr& notification) {
  server_.askCapabilities([this, notification](const auto& names) {
    if (!names) return isNotShown(notification, names.error());
    capabilities_ = Capabilities{.actions = names->contains("actions"),
                                 .body = names->contains("body"),
                                 .bodyMarkup = names->contains("body-markup"),
                                 .list = names->contains("persistence")};
    // If it was removed in the meantime, it is not shown at all.
    if (find(notification) != nullptr) notify(notification);
  });
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
  server_.notify(parametersOf(*notification), [this, notification](const auto& id) {
    if (!id) return isNotShown(notification, id.error());
    isShownAs(*id, notification);
  });
}

void DesktopNotificationCenter::isShownAs(guint32 id, const UserNotificationPtr& notification) {
  if (Delivered* delivered = find(notification)) {
    delivered->id = id;
  } else {
    server_.close(id);
  }
}

void DesktopNotificationCenter::isNotShown(const UserNotificationPtr& notification,
                                           const std::string& why) {
  logOnce(LogLevel::kWarning, "notifications", "Notifications are not shown: " + why);
  forget(notification);
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
  if (isSpent) server_.close(id);
}

void DesktopNotificationCenter::closed(guint32 id) {
  std::erase_if(delivered_, [id](const Delivered& one) { return one.id == id; });
}

// The ids and capabilities were those of the old server.
void DesktopNotificationCenter::serverIsGone() {
  capabilities_.reset();
  std::erase_if(delivered_, [](const Delivered& one) { return one.id.has_value(); });
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
