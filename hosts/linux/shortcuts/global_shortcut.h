// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "hosts/linux/bus/portal_request.h"
#include "hosts/linux/shortcuts/shortcut_phase.h"
#include "hosts/linux/shortcuts/shortcut_wish.h"
#include "hosts/linux/windows/windows_module.h"
#include "platform/thread_role.h"

namespace linux_host {

// The desktop-wide key that starts and stops a recording: one shortcut in a session of the
// desktop's GlobalShortcuts portal, where there is one. It is requested when the user asks for it,
// and restored at later starts. It lasts as long as the session, so at most as long as the process.
// All answers come from GLib's default context; nothing waits for them. Main thread.
class GlobalShortcut {
 public:
  // Called when the key was pressed, with the desktop's permission to bring a window forward (may
  // be empty).
  using Pressed = std::function<void(const std::string& activationToken)>;
  using Clock = std::function<gint64()>;  // microseconds

  // `bus` may be null; it and `wish` outlive this object. The user sees `description`.
  GlobalShortcut(GDBusConnection* bus, std::string description, ShortcutWish& wish, Pressed pressed,
                 Clock now_us = g_get_monotonic_time);
  // Ends the session.
  ~GlobalShortcut();
  GlobalShortcut(const GlobalShortcut&) = delete;
  GlobalShortcut& operator=(const GlobalShortcut&) = delete;

  // A held key repeats within this time. A press that comes sooner after the last one is such a
  // repetition.
  static constexpr gint64 kRepeat_us = 800'000;

  // Restores the key that the user has chosen before. Without one, sends nothing on the bus.
  void resume();
  // As WindowsServices::followShortcut. The first follower triggers a query to the desktop.
  void follow(std::function<void(const Shortcut&)> onChange);
  // As WindowsServices::chooseShortcut.
  void choose(const std::string& parentWindow, std::function<void(const ShortcutChoice&)> done);
  // The program ends: gives up the key.
  void leave();

 private:
  using Self = std::weak_ptr<GlobalShortcut*>;
  using Done = std::function<void(const ShortcutChoice&)>;
  // Handles an answer of the portal.
  using Answer = void (GlobalShortcut::*)(GVariant* results);
  using Reply = void (GlobalShortcut::*)(GVariant* reply);
  struct Call;

  void enter(ShortcutPhase phase);
  void tell() const;

  void watch();
  static void onPortalCame(GDBusConnection*, const gchar*, const gchar*, gpointer self);
  static void onPortalLeft(GDBusConnection*, const gchar*, gpointer self);

  // Calls a method of the portal's object, or of the session's, without a request.
  void call(const char* path, const char* interface, const char* method, GVariant* arguments,
            Reply reply);
  static void onReply(GObject* bus, GAsyncResult* result, gpointer call);
  void ask(const char* method, const PortalRequest::Arguments& arguments, Answer answer);

  void look();
  void onVersion(GVariant* reply);
  void open();
  void onClosedByUs(GVariant* reply);
  void onOpened(GVariant* results);
  void onListed(GVariant* results);
  void bind();
  void onBound(GVariant* results);
  void onChecked(GVariant* results);
  void configure();
  void onConfiguring(GVariant* reply);
  void bound(const std::optional<std::string>& trigger);
  // Ends the pending request without a key.
  void giveUp(ShortcutChoice::Outcome outcome, const std::string& reason);
  void finish(const ShortcutChoice& choice);
  void forgetSession(bool isClosed);

  static void onSignal(GDBusConnection* bus, const gchar* sender, const gchar* path,
                       const gchar* interface, const gchar* signal, GVariant* parameters,
                       gpointer self);
  void onActivated(GVariant* parameters);
  void onChanged(GVariant* parameters);
  [[nodiscard]] bool concernsUs(GVariant* parameters) const;
  [[nodiscard]] GVariant* ourShortcuts() const;

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const bus_;
  const std::string description_;
  ShortcutWish& wish_;
  const Pressed pressed_;
  const Clock now_us_;
  // Tells pending calls whether this object still exists.
  const std::shared_ptr<GlobalShortcut*> self_ = std::make_shared<GlobalShortcut*>(this);

  ShortcutPhase phase_ = ShortcutPhase::kUnknown;
  bool isWanted_ = false;               // request the key as soon as the desktop offers any
  guint32 version_ = 0;                 // of the portal's interface
  std::string session_;                 // the object's path; empty: none
  std::optional<std::string> trigger_;  // in the desktop's words; null: no key
  std::optional<gint64> lastPress_us_;
  std::string parentWindow_;
  Done done_;  // of the pending choice; null: the user did not ask
  std::function<void(const Shortcut&)> onChange_;
  std::weak_ptr<PortalRequest> request_;
  guint watch_ = 0;
  guint signals_ = 0;
  guint sessionSignals_ = 0;
};

}  // namespace linux_host
