// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace loopback {

// What a client's properties ask for. Any text is possible: it is the client's own.
struct Request {
  std::string value;   // kLoopbackRequestKey; empty when there is none
  std::string number;  // kLoopbackRequestNumberKey; empty when there is none
  friend bool operator==(const Request&, const Request&) = default;
};

// Who asks for the device at the moment. A request counts from the moment it is made or changed:
// those found at the start, and those during which the device was lost, were meant for a device
// that is gone, and their askers have to ask anew.
class RequestBook {
 public:
  // The request that a client's properties hold now. Any value but the two agreed ones counts as
  // none. `isNews`: false for what was already there at the start.
  void requestIs(std::uint32_t client, const Request& request, bool isNews);
  void clientGone(std::uint32_t client);
  // None of the requests made so far counts any more.
  void forgetAll() { asking_.clear(); }
  // None counts any more at all.
  void close() { isClosed_ = true; }

  [[nodiscard]] bool isClosed() const { return isClosed_; }
  [[nodiscard]] bool anyoneAsks() const { return !isClosed_ && !asking_.empty(); }
  // The requests that count, as kLoopbackGrantedKey names them.
  [[nodiscard]] std::string askers() const;

 private:
  std::map<std::uint32_t, Request> requests_;
  std::set<std::uint32_t> asking_;
  bool isClosed_ = false;
};

// One entry of kLoopbackGrantedKey. A number that is none is left out.
[[nodiscard]] std::string grantOf(std::uint32_t client, const std::string& number);

}  // namespace loopback
