// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace memory_host {

// What several parts of one in-memory machine were asked to do, in order.
class Timeline {
 public:
  void add(std::string entry) { entries.push_back(std::move(entry)); }
  std::vector<std::string> entries;
};

}  // namespace memory_host
