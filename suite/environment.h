// SPDX-License-Identifier: MIT
#pragma once

#include "platform/host.h"
#include "suite/suite.h"

namespace suite {

// Everything the core knows of its surroundings. May be copied freely. What it refers to must
// outlive the core.
struct Environment {
  platform::Host& host;
  Suite& suite;
};

}  // namespace suite
