// SPDX-License-Identifier: MIT
#include "hosts/linux/base/notification_center.h"

#include <utility>

namespace linux_host {

void LinuxNotificationCenter::addObserver(Observer observer, const std::string& name,
                                          Handler handler) {
  mainThread_.assertHeld();
  registrations_.push_back(
      std::make_shared<Registration>(Registration{observer, name, std::move(handler)}));
}

void LinuxNotificationCenter::removeObserver(Observer observer) {
  mainThread_.assertHeld();
  std::erase_if(registrations_, [observer](const std::shared_ptr<Registration>& registration) {
    if (registration->observer != observer) return false;
    registration->removed = true;
    return true;
  });
}

void LinuxNotificationCenter::post(const platform::Notification& notification) {
  mainThread_.assertHeld();
  const auto registrations = registrations_;
  for (const auto& registration : registrations) {
    if (registration->removed || registration->name != notification.name) continue;
    registration->handler(notification);
  }
}

}  // namespace linux_host
