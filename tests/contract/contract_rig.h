// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/host.h"

namespace contract {

// A host under the contract suite, and the world around it: what a port promises to notice or to
// survive is made to happen here. Each host implements it once (memory_rig.cpp, linux_rig.cpp). One
// for each test. Main thread.
class ContractRig {
 public:
  virtual ~ContractRig() = default;
  virtual platform::Host& host() = 0;

  // Runs the main loop until `condition` holds. False when it does not within ten seconds of the
  // host's own time.
  virtual bool runUntil(const std::function<bool()>& condition) = 0;
  // Runs the main loop for so long, of the host's own time.
  virtual void pass(double seconds) = 0;
  // So much of the host's time goes by while the main loop gets no turn.
  virtual void keepBusy(double seconds) = 0;

  // A folder of the test's own, empty at first, without a trailing slash.
  virtual std::string folder() = 0;
  // What a file holds; null when there is none.
  virtual std::optional<std::string> contents(const std::string& path) = 0;
  // From now on a file of the test's cannot grow beyond so many bytes; null: it can.
  virtual void limitFiles(std::optional<std::size_t> bytes) = 0;

  // Plugs in a microphone of two channels at 48 kHz that sends samples (of whatever sound), under
  // that display name. Returns its unique id, when the host lists the device.
  virtual std::string plugInMicrophone(const std::string& name) = 0;
  // Plugs in a stereo output device. Returns its unique id, when the host lists the device.
  virtual std::string plugInSpeakers(const std::string& name) = 0;
  // Returns at once; the host hears of it.
  virtual void unplug(const std::string& uniqueID) = 0;
};

// The rig of the host that this program tests.
std::unique_ptr<ContractRig> makeRig();

}  // namespace contract
