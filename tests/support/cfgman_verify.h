/// `faultOf` as an assertion.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/cfgman_faults.h"

namespace test {

inline testing::AssertionResult verify(const CfgMan& manager) {
  const auto fault = faultOf(manager);
  return fault.empty() ? testing::AssertionSuccess() : testing::AssertionFailure() << fault;
}

}  // namespace test
