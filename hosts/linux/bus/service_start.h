// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace linux_host {

// Whether the bus has started this program, by its service file, on behalf of a request that
// follows. Takes the option that says so out of `arguments` (without the program's path): nobody
// else knows it. What follows "--" is no option. Pure.
bool takeServiceStart(std::vector<std::string>* arguments);

}  // namespace linux_host
