// SPDX-License-Identifier: MIT
#include "hosts/linux/windows_gtk/alerts.h"

#include <algorithm>
#include <optional>

#include "hosts/linux/windows_gtk/activation.h"
#include "hosts/linux/windows_gtk/message_dialog.h"

namespace linux_host {

int WaitingAlerts::run(const platform::Alert& alert) {
  std::optional<int> answer;
  GtkWindow* shown =
      newMessage(frontWindow(), alert, services_, [&answer](int given) { answer = given; });
  waiting_.push_back(shown);
  bringForward(shown, services_.takeActivationToken());
  // The port waits here for the answer.
  while (!answer) g_main_context_iteration(nullptr, TRUE);
  waiting_.erase(std::find(waiting_.begin(), waiting_.end(), shown));
  return *answer == platform::kAlertExtraButtonReturn ? *answer
                                                      : platform::kAlertFirstButtonReturn + *answer;
}

void WaitingAlerts::raise() {
  if (!waiting_.empty()) bringForward(waiting_.back(), services_.takeActivationToken());
}

void WaitingAlerts::decline() {
  const auto waiting = waiting_;
  for (GtkWindow* alert : waiting) declineMessage(alert);
}

}  // namespace linux_host
