/// An ordered map that takes whatever it is asked to do.
#pragma once

#include "containers/omap.h"

class AnyOmap : public AOmap {
 public:
  using AOmap::AOmap;
  nv::message checkRestore(OObject*) override { return {}; }
  nv::message checkAdd(OObject*, OObject*) override { return {}; }
  nv::message checkChange(OObject*, OObject*, OObject*) override { return {}; }
  nv::message checkRemove(OObject*, OObject*) override { return {}; }
  nv::message checkMove(OObject*, OObject*, OObject*) override { return {}; }
  void objAdded(OObject*) override {}
  void objChanged(OObject*, OObject*) override {}
  void objRemoved(OObject*) override {}
  void objMoved(OObject*) override {}
};
