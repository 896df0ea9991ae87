/// What must be true of a container at any time, whatever happened to it.
#pragma once

#include <gtest/gtest.h>

#include "containers/aholder.h"
#include "containers/amap.h"
#include "containers/omap.h"

namespace test {

/// Every object stands under its own id, every id that is given out belongs to an object, dynamic
/// marks belong to objects, and writes are put off only when there is a store and they are not made
/// at once.
testing::AssertionResult verify(const AMap& map);
/// The same, and every object is linked once, in both directions.
testing::AssertionResult verify(const AOmap& map);
/// A write is put off only when there is a store and it is not made at once.
testing::AssertionResult verify(const AHolder& holder);

}  // namespace test
