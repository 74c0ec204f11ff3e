// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "platform/foundation.h"
#include "platform/thread_role.h"

namespace linux_host {

// Main thread only. Handlers may register, remove and post while they run: a handler registered
// during a post is not called by it, and a removed one is not called any more.
class LinuxNotificationCenter : public platform::NotificationCenter {
 public:
  void addObserver(Observer observer, const std::string& name, Handler handler) override;
  void removeObserver(Observer observer) override;
  void post(const platform::Notification& notification) override;

 private:
  struct Registration {
    Observer observer;
    std::string name;
    Handler handler;
    bool removed = false;
  };

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  std::vector<std::shared_ptr<Registration>> registrations_;
};

}  // namespace linux_host
