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
#include "platform/thread_role.h"

namespace linux_host {

// The desktop's answer, from two sources: its microphone switch for all programs (a setting), and
// this program's entry in its permission store. If there is neither, or the store has no entry for
// us, microphones are permitted.
//
// Asks only services that are already running, and waits for none of them longer than
// kAnswerLimit_ms. The desktop's portal asks the user; without a portal the answer is no.
class DesktopMicrophonePermission : public MicrophonePermission {
 public:
  static constexpr int kAnswerLimit_ms = 300;

  // Returns the session bus, or null when there is none. The callee keeps the reference, for as
  // long as this object lives. Called when an answer is first needed.
  using SessionBus = std::function<GDBusConnection*()>;

  explicit DesktopMicrophonePermission(SessionBus sessionBus);
  ~DesktopMicrophonePermission() override;
  DesktopMicrophonePermission(const DesktopMicrophonePermission&) = delete;
  DesktopMicrophonePermission& operator=(const DesktopMicrophonePermission&) = delete;

  bool isKnown() override;
  platform::AuthorizationStatus status() override;
  // `handler` is called on the main thread, from GLib's default context.
  void request(std::function<void(bool isGranted)> handler) override;

 private:
  // What the store says about this program.
  struct StoreAnswer {
    bool isThere = false;  // a store is running
    std::string entry;     // "yes", "no", "ask", or empty for none
  };

  [[nodiscard]] StoreAnswer askStore();
  // Null when the desktop has no such switch.
  [[nodiscard]] static std::optional<bool> isSwitchedOff();

  platform::ThreadRole mainThread_{platform::ThreadRole::Holder::kMaker};
  const SessionBus sessionBus_;
  std::vector<std::weak_ptr<PortalRequest>> questions_;
};

}  // namespace linux_host
