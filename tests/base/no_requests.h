// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "hosts/linux/bus/requests.h"

namespace base_test {

// For tests of objects on a bus that ignore the requests.
class NoRequests : public linux_host::Requests {
 public:
  void activate() override {}
  void open(const std::vector<std::string>&) override {}
  void action(const std::string&, std::function<void(linux_host::RequestResult)>) override {}
  void status(std::function<void(const std::string&)>) override {}
};

}  // namespace base_test
