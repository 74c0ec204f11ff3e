// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace linux_host {

// What is known of the loopback driver, and of what this program has asked it for; see
// driver/loopback_protocol.h. A plain record of the picture that it is a part of.
class LoopbackState {
 public:
  // A client that the daemon vouches for is a driver. `granted`: its answers; null of one that is
  // too old to answer. Any text is safe.
  void driverIs(std::uint32_t client, const std::string& version,
                const std::optional<std::string>& granted);
  void driverGone(std::uint32_t client) { drivers_.erase(client); }
  // Null when no driver runs.
  [[nodiscard]] std::optional<std::string> driverVersion() const;

  void ownClientIs(std::uint32_t client) { ownClient_ = client; }
  // This program asks for the device, or has taken that back. No two requests have one number.
  void request(bool isShow, std::uint64_t number);

  // Whether the device, if it is there, is there for this program and stays. Also true where nobody
  // can say: without a request of this program's, or a driver that answers.
  [[nodiscard]] bool isGranted() const;
  // Whether nobody has the device, as far as the driver and this program know: what is still seen
  // of it is on its way out.
  [[nodiscard]] bool isLeaving() const;

 private:
  enum class Asked { kNothing, kShow, kHide };
  struct Driver {
    std::string version;
    std::optional<std::string> granted;
  };
  // Null when there is none that answers.
  [[nodiscard]] const std::string* answers() const;

  std::map<std::uint32_t, Driver> drivers_;  // by client; the oldest serves
  std::uint32_t ownClient_ = 0;
  Asked asked_ = Asked::kNothing;
  std::uint64_t number_ = 0;
};

}  // namespace linux_host
