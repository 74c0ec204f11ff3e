#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace loopback {

// Who asks for the device at the moment. A request counts from the moment it is made or changed:
// those found at the start, and those during which the device was lost, were meant for a device
// that is gone, and their askers have to ask anew.
class RequestBook {
 public:
  // The request that a client's properties hold now; empty when they hold none. Anything but the
  // two agreed values counts as none. `isNews`: false for what was already there at the start.
  void requestIs(std::uint32_t client, const std::string& request, bool isNews);
  void clientGone(std::uint32_t client);
  // None of the requests made so far counts any more.
  void forgetAll() { asking_.clear(); }
  [[nodiscard]] bool anyoneAsks() const { return !asking_.empty(); }

 private:
  std::map<std::uint32_t, std::string> requests_;
  std::set<std::uint32_t> asking_;
};

}  // namespace loopback
