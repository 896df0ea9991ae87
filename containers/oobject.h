/// The element of an ordered container.
#pragma once

#include "containers/object.h"

/// An element with a place in the user's order. All that `Object` says holds here too, but nobody
/// manages such an element.
class CONFKIT_API OObject : public Object {
 public:
  ~OObject() override;

  /// The elements beside it; the container's head at the ends. Changed by the container alone.
  OObject* prev = nullptr;
  OObject* next = nullptr;
};
