// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "tests/support/child_process.h"
#include "tests/support/pipewire_control.h"

namespace test_support {

// A player that plays into a microphone and asks for long cycles at another rate: the cycle length
// changes whenever a client that asks for shorter ones comes or goes.
class SlowPlayer {
 public:
  // Noise at half of full scale for ten minutes. `directory`: for its files.
  SlowPlayer(const std::string& directory, PipeWireControl& control, const std::string& microphone);
  ~SlowPlayer() { process_.terminate(); }
  SlowPlayer(const SlowPlayer&) = delete;
  SlowPlayer& operator=(const SlowPlayer&) = delete;

 private:
  ChildProcess process_;
};

}  // namespace test_support
