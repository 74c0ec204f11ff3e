// SPDX-License-Identifier: MIT
#pragma once

#include "platform/host.h"
#include "suite/suite.h"

namespace suite {

// All that the core knows of its surroundings. Copied freely; what it refers to outlives the core.
struct Environment {
  platform::Host& host;
  Suite& suite;
};

}  // namespace suite
