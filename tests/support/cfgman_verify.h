/// What must be true of a configuration manager between updates, whatever happened to it.
#pragma once

#include <gtest/gtest.h>

#include "cfgman/cfgman.h"

namespace test {

/// Every item stands under its own id, which is claimed, and its configuration says so once it
/// exists. The order leads from item to item and back, through those alone that exist, and the
/// stored order through the stored ones among them, in the same order. Positions that count as
/// valid ascend. The allocator is the one that the manager had when its items came.
testing::AssertionResult verify(const CfgMan& manager);

}  // namespace test
