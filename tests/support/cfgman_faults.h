/// What must be true of a configuration manager between updates, whatever happened to it.
#pragma once

#include <string>

#include "cfgman/cfgman.h"

namespace test {

/// What is wrong with `manager`, in a few words; empty when this is true:
///
/// Every item stands under its own id, which is claimed, and its configuration says so once it
/// exists. The order leads from item to item and back, through those alone that exist, and the
/// stored order through the stored ones among them, in the same order. Positions that count as
/// valid ascend.
///
/// The allocator must be the one that the manager had when its items came.
std::string faultOf(const CfgMan& manager);

}  // namespace test
