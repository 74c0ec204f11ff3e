// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/host.h"
#include "shared/loopback_device.h"

namespace record_audio {

// One capture device as the user sees it, and the list of all of them. Main thread.
class CaptureDevice {
 public:
  CaptureDevice(std::string uniqueId, std::string name)
      : _name(std::move(name)), _uniqueId(std::move(uniqueId)) {}

  [[nodiscard]] const std::string& name() const { return _name; }
  void setName(std::string name) { _name = std::move(name); }
  [[nodiscard]] const std::string& uniqueId() const { return _uniqueId; }
  void setUniqueId(std::string uniqueId) { _uniqueId = std::move(uniqueId); }

  // `name` in lower case.
  static bool isFaceTime(const std::string& name);
  static bool isBuiltInMic(const platform::CaptureDevice& device);
  // The device's name, with its active input source in parentheses if it has one.
  static std::string getMicName(const platform::CaptureDevice& device);

  // Built-in devices first, each group in the system's order. The loopback device is left out.
  static std::vector<CaptureDevice> enumerateMics(const platform::Host& host);
  // Empty, without asking the system, when cameras are blocked. Part of the suite's interface; this
  // tool does not call it.
  static std::vector<CaptureDevice> enumerateCameras(const platform::Host& host);

 private:
  std::string _name;
  std::string _uniqueId;
};

}  // namespace record_audio
