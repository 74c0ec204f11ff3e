// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/trust_check.h"

#include "driver/installer/trusted_path.h"

namespace linux_host {

std::string refusalBySystem(const std::string& path) {
  return loopback::openTrustedBySystem(path).refusal;
}

}  // namespace linux_host
