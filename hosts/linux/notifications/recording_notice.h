// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/bus/requests.h"
#include "platform/foundation.h"
#include "platform/thread_role.h"
#include "suite/embedded_suite.h"

namespace linux_host {

// Shows a running recording where the desktop has no tray: one notification that stays while it
// runs. A click on it stops the recording, and it has buttons to stop and to cancel. It never pops
// up over the user's work, because the start has already been announced. If the user dismisses it,
// it does not return during that recording. The server removes it when the process ends. Main
// thread.
class RecordingNotice : public suite::ToolDataObserver {
 public:
  // The three outlive the notice.
  RecordingNotice(GDBusConnection* bus, Requests& requests, const platform::Bundle& strings);
  ~RecordingNotice() override;
  RecordingNotice(const RecordingNotice&) = delete;
  RecordingNotice& operator=(const RecordingNotice&) = delete;

  // Whether there is no tray.
  void setNeeded(bool needed);
  // An extra line that warns the user; empty: none.
  void setRemark(const std::string& remark);
  void toolDataDidChange(const suite::ToolData& data) override;

 private:
  enum class Phase {
    kGone,       // -> kComing when a recording runs and there is no tray
    kComing,     // the server has been asked and has not answered: -> kShown, kGone on failure
    kShown,      // -> kGone at the recording's end or with a tray, kDismissed by the user
    kDismissed,  // -> kGone at the recording's end
  };
  struct Call;

  static RecordingNotice* answered(GObject* source, GAsyncResult* result, gpointer call,
                                   GVariant** value);
  static void onCapabilities(GObject* source, GAsyncResult* result, gpointer call);
  static void onNotified(GObject* source, GAsyncResult* result, gpointer call);
  static void onSignal(GDBusConnection* bus, const gchar* sender, const gchar* path,
                       const gchar* interfaceName, const gchar* signal, GVariant* parameters,
                       gpointer self);
  static void onServerChanged(GDBusConnection* bus, const gchar* sender, const gchar* path,
                              const gchar* interfaceName, const gchar* signal, GVariant* parameters,
                              gpointer self);

  void refresh();
  void show();
  void close();
  void call(const char* method, GVariant* parameters, const GVariantType* answer,
            GAsyncReadyCallback done);
  [[nodiscard]] std::string body() const;
  [[nodiscard]] std::string text(const char* key) const { return strings_.localizedString(key); }

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  GDBusConnection* const bus_;
  Requests& requests_;
  const platform::Bundle& strings_;
  // Tells pending calls whether the notice still exists.
  const std::shared_ptr<RecordingNotice*> self_;
  std::vector<guint> subscriptions_;
  Phase phase_ = Phase::kGone;
  guint32 id_ = 0;                 // the server's; 0 until it has answered
  std::optional<bool> keepsList_;  // whether a click on the text triggers the default action
  std::string shownBody_;
  bool needed_ = false;
  bool recording_ = false;
  std::string since_;  // the time of day at which the recording began
  std::string remark_;
  guint refreshSource_ = 0;
};

}  // namespace linux_host
