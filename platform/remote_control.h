// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "platform/property_list.h"

namespace platform {

// What scripts and other programs may ask of the running application, beside what every
// application offers. The core answers. Main thread. Free for the host: how it is asked.
class RemoteControl {
 public:
  virtual ~RemoteControl() = default;
  // Ends the recording (or the wait for it) and saves it. False when there is nothing to end.
  virtual bool stop() = 0;
  // Ends it and deletes the file. False when there is nothing to end.
  virtual bool cancel() = 0;
  // "state": idle, waiting, starting, recording or preferences, or "no device" or "refused" while
  // the alert that says so waits for the user; "elapsedSeconds": integer;
  // "source", "format": texts; "outputFile": the file's path, where one is known; "behindSeconds":
  // integer, so much sound waits for its encoder, while that is unusually much.
  [[nodiscard]] virtual Dictionary status() const = 0;
  // `onChange` is called after each change of the state, which status() then tells. One at a time.
  virtual void setOnStateChange(std::function<void()> onChange) = 0;
};

}  // namespace platform
