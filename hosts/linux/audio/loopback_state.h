// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace linux_host {

// What is known of the loopback driver and of this program's requests to it; see
// driver/loopback_protocol.h. A plain record, part of the picture.
class LoopbackState {
 public:
  // Reports a driver: a client that has been verified through the daemon. `granted`: its answers;
  // null if it is too old to answer. Safe for arbitrary text.
  void driverIs(std::uint32_t client, const std::string& version,
                const std::optional<std::string>& granted);
  void driverGone(std::uint32_t client) { drivers_.erase(client); }
  // Null when no driver runs.
  [[nodiscard]] std::optional<std::string> driverVersion() const;

  void ownClientIs(std::uint32_t client) { ownClient_ = client; }
  // Records this program's request for the device, or its withdrawal. Every request has a different
  // number.
  void request(bool isShow, std::uint64_t number);

  // Whether the device, if it is there, stays for this program. Also true when that is unknown:
  // without a request of this program, or without a driver that answers.
  [[nodiscard]] bool isGranted() const;
  // Whether no client has the device, as far as the driver and this program know: a device that is
  // still visible is being removed.
  [[nodiscard]] bool isLeaving() const;

 private:
  enum class Asked { kNothing, kShow, kHide };
  struct Driver {
    std::string version;
    std::optional<std::string> granted;
  };
  // Null without a driver that answers.
  [[nodiscard]] const std::string* answers() const;

  std::map<std::uint32_t, Driver> drivers_;  // by client; the oldest one serves
  std::uint32_t ownClient_ = 0;
  Asked asked_ = Asked::kNothing;
  std::uint64_t number_ = 0;
};

}  // namespace linux_host
