// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "platform/capture.h"

namespace linux_host {

// Whether this program may use microphones, as the desktop decides it. Main thread.
class MicrophonePermission {
 public:
  virtual ~MicrophonePermission() = default;

  // Whether this system controls microphone access at all; if not, everything is permitted.
  [[nodiscard]] virtual bool isKnown() = 0;
  // The current answer. Never asks the user.
  [[nodiscard]] virtual platform::AuthorizationStatus status() = 0;
  // Asks the user. `handler` is called once, on any thread, possibly before the return.
  virtual void request(std::function<void(bool isGranted)> handler) = 0;
};

}  // namespace linux_host
