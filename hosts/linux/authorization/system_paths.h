// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace linux_host {

// Maps the paths that the core knows to this system's: the suite application, the folder of
// installed audio plug-ins, and everything in them. Other paths are returned unchanged. Any thread.
[[nodiscard]] std::string mappedSystemPath(const std::string& path);

}  // namespace linux_host
