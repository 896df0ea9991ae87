/// What must be true of a container at any time, whatever happened to it.
#pragma once

#include <gtest/gtest.h>

#include "containers/amap.h"

namespace test {

/// Every object stands under its own id, every id that is given out belongs to an object, dynamic
/// marks belong to objects, and writes are put off only when there is a store and they are not made
/// at once.
testing::AssertionResult verify(const AMap& map);

}  // namespace test
