// SPDX-License-Identifier: MIT
#include "hosts/linux/notifications/lone_notice.h"

#include <memory>

#include "hosts/linux/notifications/notification_center.h"

namespace linux_host {

void showLoneNotice(GDBusConnection* bus, const platform::Bundle& bundle, const std::string& text) {
  DesktopNotificationCenter center(bus, bundle);
  center.setTransient();
  const auto notification = std::make_shared<platform::UserNotification>();
  notification->informativeText = text;
  center.deliverNotification(notification);
  while (center.isDelivering()) g_main_context_iteration(nullptr, TRUE);
}

}  // namespace linux_host
