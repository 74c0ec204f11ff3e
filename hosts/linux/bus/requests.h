// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace linux_host {

enum class RequestResult { kDone, kNothingToDo, kUnknown };

// Requests from outside to the running program: over the bus, over the control socket, by a second
// start. Main thread. Each call returns at once; `done` is called exactly once, before the return
// or later, on the main thread.
class Requests {
 public:
  virtual ~Requests() = default;
  // The desktop's permission to bring a window forward, before the request that may show one.
  virtual void useActivationToken(const std::string& token) { (void)token; }
  // The program was started again without arguments, or clicked in a dock.
  virtual void activate() = 0;
  // Paths, or whatever else the caller passed in their place.
  virtual void open(const std::vector<std::string>& paths) = 0;
  // "preferences", "quit", "stop" or "cancel". For the last two, `done` is called when the file is
  // closed.
  virtual void action(const std::string& name, std::function<void(RequestResult)> done) = 0;
  // One line of JSON.
  virtual void status(std::function<void(const std::string& line)> done) = 0;
};

}  // namespace linux_host
