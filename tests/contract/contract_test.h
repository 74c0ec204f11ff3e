// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/contract/contract_rig.h"

namespace contract {

class ContractTest : public testing::Test {
 protected:
  platform::Host& host() { return rig->environment().host; }
  [[nodiscard]] double now_s() {
    const platform::TimebaseInfo timebase = host().hostClock.timebaseInfo();
    return static_cast<double>(host().hostClock.absoluteTime()) * timebase.numerator /
           timebase.denominator / 1e9;
  }

  std::unique_ptr<ContractRig> rig = makeRig();
};

}  // namespace contract
