// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace linux_host {

// Where the thing lies on this system that the core knows by a path of its own: the suite
// application and the folder of installed audio plug-ins, and whatever is in them. Any other path
// is returned as it is. Any thread.
[[nodiscard]] std::string mappedSystemPath(const std::string& path);

}  // namespace linux_host
