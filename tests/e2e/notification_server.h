// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex.h"

namespace e2e {

// The desktop's notification service, which records what programs ask it to show. It answers on a
// separate thread.
class NotificationServer {
 public:
  // Throws std::runtime_error when the bus refuses the name.
  explicit NotificationServer(const std::string& busAddress);
  ~NotificationServer();
  NotificationServer(const NotificationServer&) = delete;
  NotificationServer& operator=(const NotificationServer&) = delete;

  // Summary and body of each in one line, oldest first.
  [[nodiscard]] std::vector<std::string> shown() const;

 private:
  static void onCall(GDBusConnection* connection, const gchar* sender, const gchar* path,
                     const gchar* interface, const gchar* method, GVariant* arguments,
                     GDBusMethodInvocation* invocation, gpointer self);
  std::uint32_t show(GVariant* notification);

  GMainContext* context_;
  GMainLoop* loop_;
  GDBusConnection* connection_ = nullptr;
  GDBusNodeInfo* node_ = nullptr;
  std::thread thread_;
  mutable platform::Mutex mutex_;
  std::vector<std::string> shown_ RA_GUARDED_BY(mutex_);
};

}  // namespace e2e
