// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace platform {

// A queue that runs its work items one at a time, in the order they came.
class DispatchQueue {
 public:
  virtual ~DispatchQueue() = default;
  // Never blocks on the work itself, and never runs it during the call. An empty item is dropped.
  // Any thread except an audio callback: it may allocate.
  virtual void async(std::function<void()> work) = 0;
  [[nodiscard]] virtual const std::string& label() const = 0;
};

class Dispatch {
 public:
  virtual ~Dispatch() = default;
  // Runs its items from the main run loop.
  virtual std::shared_ptr<DispatchQueue> mainQueue() = 0;
  // A new queue with a thread of its own, also where another has the same label. Items queued
  // before the last reference went still run; the process does not end before they have. Null when
  // the system has no thread to spare; free for the host: when that is.
  virtual std::shared_ptr<DispatchQueue> createSerialQueue(const std::string& label) = 0;
};

}  // namespace platform
