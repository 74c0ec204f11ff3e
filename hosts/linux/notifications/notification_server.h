// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "hosts/linux/base/expected.h"
#include "hosts/linux/bus/dbus_support.h"
#include "platform/thread_role.h"

namespace linux_host {

// The desktop's notification server, org.freedesktop.Notifications. No call waits: the answer comes
// later, on the main loop, and not at all after the destructor. A failure is the bus's own text.
// Main thread.
class NotificationServer {
 public:
  // What the server says, also about other programs' notifications: the id tells whose it is. Each
  // may be null.
  struct Events {
    // The user has clicked on a notification or on one of its buttons.
    std::function<void(guint32 id, const std::string& action)> onAction;
    // A notification is gone: closed by the user, by the server or by close().
    std::function<void(guint32 id)> onClosed;
    // The server is gone, and with it all ids and what it could do. `hasSuccessor`: another one is
    // there already.
    std::function<void(bool hasSuccessor)> onGone;
    // The desktop's permission to bring a window forward, before the action that it came with.
    std::function<void(guint32 id, const std::string& token)> onToken;
  };

  // `bus` may be null: no call may be made then. It outlives the server.
  NotificationServer(GDBusConnection* bus, Events events);
  ~NotificationServer();
  NotificationServer(const NotificationServer&) = delete;
  NotificationServer& operator=(const NotificationServer&) = delete;

  [[nodiscard]] bool hasBus() const { return bus_ != nullptr; }

  // What the server says it can do, in its own words, such as "actions".
  using Capabilities = std::set<std::string>;
  void askCapabilities(std::function<void(Expected<Capabilities>)> answer);
  // `parameters`: those of the method Notify; takes ownership of a floating reference. The answer
  // is the notification's id.
  void notify(GVariant* parameters, std::function<void(Expected<guint32>)> answer);
  // Never starts a server just for that.
  void close(guint32 id);

 private:
  struct Call;
  using Answer = std::function<void(Expected<VariantPtr>)>;

  static void onAnswer(GObject* source, GAsyncResult* result, gpointer call);
  static void onSignal(GDBusConnection* bus, const gchar* sender, const gchar* path,
                       const gchar* interfaceName, const gchar* signal, GVariant* parameters,
                       gpointer self);
  static void onOwnerChanged(GDBusConnection* bus, const gchar* sender, const gchar* path,
                             const gchar* interfaceName, const gchar* signal, GVariant* parameters,
                             gpointer self);
  void call(const char* method, GVariant* parameters, const char* answerType, Answer answer);
  void listenTo(const char* signal);

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const bus_;
  const Events events_;
  // Tells pending calls whether the server still exists.
  const std::shared_ptr<int> life_ = std::make_shared<int>();
  std::vector<guint> subscriptions_;
};

}  // namespace linux_host
