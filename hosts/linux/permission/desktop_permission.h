// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/linux/bus/portal_request.h"
#include "hosts/linux/permission/microphone_permission.h"

namespace linux_host {

// The desktop's answer, from two places: its microphone switch for all programs (a setting), and
// its permission store's entry for this program. Where there is neither, or the store has no entry
// for us, microphones are permitted.
//
// Looks only at services that run already and waits for none of them longer than kAnswerLimit_ms.
// The user is asked by the desktop's portal; where there is none nobody can permit, and the answer
// is no.
class DesktopMicrophonePermission : public MicrophonePermission {
 public:
  static constexpr int kAnswerLimit_ms = 300;

  // Gives the session bus, or null when there is none; the reference stays the giver's, who keeps
  // it as long as this object lives. Called when an answer is first needed.
  using SessionBus = std::function<GDBusConnection*()>;

  explicit DesktopMicrophonePermission(SessionBus sessionBus);
  ~DesktopMicrophonePermission() override;
  DesktopMicrophonePermission(const DesktopMicrophonePermission&) = delete;
  DesktopMicrophonePermission& operator=(const DesktopMicrophonePermission&) = delete;

  bool isKnown() override;
  platform::AuthorizationStatus status() override;
  // The answer comes on the main thread, from GLib's default context.
  void request(std::function<void(bool isGranted)> handler) override;

 private:
  // What the store says about this program.
  struct StoreAnswer {
    bool isThere = false;  // a store runs
    std::string entry;     // "yes", "no", "ask", or empty for none
  };

  [[nodiscard]] StoreAnswer askStore();
  // Null when the desktop has no such switch.
  [[nodiscard]] static std::optional<bool> isSwitchedOff();

  const SessionBus sessionBus_;
  std::vector<std::weak_ptr<PortalRequest>> questions_;
};

}  // namespace linux_host
