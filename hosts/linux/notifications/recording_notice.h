// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <optional>
#include <string>

#include "hosts/linux/bus/requests.h"
#include "hosts/linux/notifications/notification_server.h"
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
    kGone,    // -> kComing when a recording runs and there is no tray
    kComing,  // the server has been asked and has not answered: -> kShown, kGone on failure
    kShown,   // -> kDismissed by the user; kGone at the recording's end, with a tray, or when the
              //    server goes
    kDismissed,  // -> kGone at the recording's end
  };

  // The only function that changes the phase.
  void enter(Phase next);
  void refresh();
  void show();
  void close();
  // The server's answers: to the question what it can do, and to a Notify.
  void serverCan(const Expected<NotificationServer::Capabilities>& names);
  void isShownAs(const Expected<guint32>& id);
  // The server's events.
  void clicked(guint32 id, const std::string& action);
  void dismissed(guint32 id);
  void serverIsGone(bool hasSuccessor);
  [[nodiscard]] std::string body() const;
  [[nodiscard]] std::string text(const char* key) const { return strings_.localizedString(key); }

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  Requests& requests_;
  const platform::Bundle& strings_;
  Phase phase_ = Phase::kGone;
  guint32 id_ = 0;                 // the server's; 0 until it has answered
  std::optional<bool> keepsList_;  // whether a click on the text triggers the default action
  std::string shownBody_;
  bool needed_ = false;
  bool recording_ = false;
  std::string since_;  // the time of day at which the recording began
  std::string remark_;
  guint refreshSource_ = 0;
  NotificationServer server_;
};

}  // namespace linux_host
