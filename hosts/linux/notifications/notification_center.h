// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/notifications/notification_server.h"
#include "platform/foundation.h"
#include "platform/thread_role.h"
#include "platform/user_notifications.h"

namespace linux_host {

// Notifications through org.freedesktop.Notifications. All calls to the server are asynchronous: if
// it is missing, dead or hangs, nothing is shown and nothing is held up. The user can act on a
// notification as long as the server shows it. Main thread.
class DesktopNotificationCenter : public platform::UserNotificationCenter {
 public:
  // `bus` may be null: nothing is shown then. It and the bundle outlive the center. `onToken` gets
  // the desktop's permission to bring a window forward, before the activation that it came with.
  DesktopNotificationCenter(
      GDBusConnection* bus, const platform::Bundle& bundle,
      std::function<void(const std::string& token)> onToken = [](const std::string&) {});
  DesktopNotificationCenter(const DesktopNotificationCenter&) = delete;
  DesktopNotificationCenter& operator=(const DesktopNotificationCenter&) = delete;

  // An extra line for the start notification: how to stop where there is no tray.
  void setStartAdvice(const std::string& advice) { startAdvice_ = advice; }

  // Notifications are shown once and kept in no list: the program ends too soon to remove them.
  void setTransient() { isTransient_ = true; }

  void setDelegate(std::weak_ptr<platform::UserNotificationCenterDelegate> delegate) override;
  void deliverNotification(const platform::UserNotificationPtr& notification) override;
  void removeDeliveredNotification(const platform::UserNotificationPtr& notification) override;

  // Whether a notification has been sent that the server has not confirmed yet.
  [[nodiscard]] bool isDelivering() const;

 private:
  // What the server says it can do.
  struct Capabilities {
    bool actions = false;
    bool body = false;
    bool bodyMarkup = false;
    bool list = false;  // keeps notifications in a list for later
  };
  // One notification, sent to the server or on the screen.
  struct Delivered {
    platform::UserNotificationPtr notification;
    std::optional<guint32> id;  // the server's, once it has answered
  };

  void serverIsGone();
  void askCapabilities(const platform::UserNotificationPtr& notification);
  void notify(const platform::UserNotificationPtr& notification);
  // The server has answered a Notify with this id.
  void isShownAs(guint32 id, const platform::UserNotificationPtr& notification);
  // The server has failed to answer.
  void isNotShown(const platform::UserNotificationPtr& notification, const std::string& why);
  [[nodiscard]] bool shows(guint32 id) const;
  void activated(guint32 id, const std::string& action);
  void closed(guint32 id);
  [[nodiscard]] GVariant* parametersOf(const platform::UserNotification& notification) const;
  // Whether a click on the notification itself reaches the program.
  [[nodiscard]] bool takesClicks() const;
  [[nodiscard]] std::string textOf(const platform::UserNotification& notification) const;
  [[nodiscard]] Delivered* find(const platform::UserNotificationPtr& notification);
  void forget(const platform::UserNotificationPtr& notification);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const platform::Bundle& bundle_;
  const std::function<void(const std::string& token)> onToken_;
  std::string startAdvice_;
  bool isTransient_ = false;
  std::weak_ptr<platform::UserNotificationCenterDelegate> delegate_;
  std::optional<Capabilities> capabilities_;
  std::vector<Delivered> delivered_;
  NotificationServer server_;
};

}  // namespace linux_host
