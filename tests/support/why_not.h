// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "hosts/linux/base/expected.h"

namespace test_support {

// Why something failed; empty where it did not. A test that expects the empty text shows the
// reason.
template <typename Value>
std::string whyNot(const linux_host::Expected<Value>& result) {
  return result ? std::string() : result.error();
}

}  // namespace test_support
