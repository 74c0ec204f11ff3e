// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace loopback {

// A request from a client's properties. May contain any text, as the client writes it.
struct Request {
  std::string value;   // kLoopbackRequestKey; empty when there is none
  std::string number;  // kLoopbackRequestNumberKey; empty when there is none
  friend bool operator==(const Request&, const Request&) = default;
};

// The clients that currently ask for the device. A request counts from the moment at which it is
// made or changed. Requests found at the start, and those made before the device was lost, were
// meant for a device that is gone; those clients have to ask again.
class RequestBook {
 public:
  // Reports a client's current request. Any value except the two agreed ones counts as none.
  // `isNews`: false for requests that were already there at the start.
  void requestIs(std::uint32_t client, const Request& request, bool isNews);
  void clientGone(std::uint32_t client);
  // The requests made so far no longer count.
  void forgetAll() { asking_.clear(); }
  // No request counts from now on.
  void close() { isClosed_ = true; }

  [[nodiscard]] bool isClosed() const { return isClosed_; }
  [[nodiscard]] bool anyoneAsks() const { return !isClosed_ && !asking_.empty(); }
  // The requests that count, in the format of kLoopbackGrantedKey.
  [[nodiscard]] std::string askers() const;

 private:
  std::map<std::uint32_t, Request> requests_;
  std::set<std::uint32_t> asking_;
  bool isClosed_ = false;
};

// One entry of kLoopbackGrantedKey. An invalid number is left out.
[[nodiscard]] std::string grantOf(std::uint32_t client, const std::string& number);

}  // namespace loopback
