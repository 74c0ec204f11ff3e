// SPDX-License-Identifier: MIT
#pragma once

#include <glib.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "hosts/linux/power/session_end.h"
#include "hosts/linux/power/xsmp_module.h"
#include "platform/dispatch.h"
#include "platform/mutex.h"
#include "platform/thread_role.h"

namespace linux_host {

// Makes the program a client of a session manager that speaks the X session management protocol,
// for desktops whose manager is not on the bus. Main thread. A separate thread connects; if the
// manager never answers, that thread waits forever.
class XsmpClient {
 public:
  // Searches `folders` for the module in order.
  XsmpClient(SessionEnd end, std::shared_ptr<platform::DispatchQueue> mainQueue,
             std::vector<std::string> folders);
  ~XsmpClient();
  XsmpClient(const XsmpClient&) = delete;
  XsmpClient& operator=(const XsmpClient&) = delete;

  // Connects, unless the environment names no manager or this was tried before.
  void connect();

 private:
  // Shared with the thread, which may outlive the client.
  struct Shared {
    platform::Mutex mutex;
    XsmpClient* client RA_GUARDED_BY(mutex) = nullptr;  // null when it is gone
    std::unique_ptr<XsmpConnection> connection RA_GUARDED_BY(mutex);
    bool done RA_GUARDED_BY(mutex) = false;
  };

  static void open(const std::shared_ptr<Shared>& shared, const std::vector<std::string>& folders,
                   const XsmpEvents& events);
  static gboolean onReadable(gint descriptor, GIOCondition condition, gpointer self);
  void watch();

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const SessionEnd end_;
  const std::shared_ptr<platform::DispatchQueue> mainQueue_;
  const std::vector<std::string> folders_;
  const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
  std::thread thread_;
  std::unique_ptr<XsmpConnection> connection_;
  guint source_ = 0;
};

}  // namespace linux_host
