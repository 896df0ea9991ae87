/// Object maps, with and without an order, whose hooks a test sets, and which write their calls
/// into the test's log.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "containers/amap.h"
#include "containers/omap.h"
#include "testing/recorder.h"
#include "tests/support/test_element.h"

namespace test {

/// Hooks that are not set accept and do nothing. Everybody is allowed everything: what rights mean
/// to the map is tested, not what they mean to the bus.
template <class Map, class Obj>
class HookedMap : public Map {
 public:
  HookedMap(nv::testkit::Recorder& seen, std::string_view storeName, std::uint32_t minId,
            std::uint32_t maxId)
      : Map(std::string(storeName), minId, maxId), seen_(seen) {}

  using Check = std::function<nv::message(Obj*)>;
  using Tell = std::function<void(Obj*)>;
  Check onCheckRestore, onCheckAdd, onCheckRemove;
  std::function<nv::message(Obj* old, Obj* obj)> onCheckChange;
  Tell onAdded, onRemoved;
  std::function<void(Obj* old, Obj* obj)> onChanged;
  std::function<std::uint32_t(std::uint32_t)> onAllocate;
  bool merges = false;

  static Obj* newItem() { return new TestElement<Obj>; }
  Obj* newObject() override { return newItem(); }
  void copyObject(Obj* dst, Obj* src) override {
    dst->id = src->id;
    item(dst).config = item(src).config;
  }
  nv::message checkRestore(Obj* obj) override { return check("checkRestore", onCheckRestore, obj); }
  void objAdded(Obj* obj) override { tell("objAdded", onAdded, obj); }
  void objRemoved(Obj* obj) override { tell("objRemoved", onRemoved, obj); }
  void objChanged(Obj* old, Obj* obj) override {
    note("objChanged", obj);
    if (onChanged) onChanged(old, obj);
  }
  using Map::allocateId;
  std::uint32_t allocateId(std::uint32_t id) override {
    return onAllocate ? onAllocate(id) : Map::allocateId(id);
  }
  bool mergeOnSet() override { return merges; }
  bool isAllowed(const nv::message&) const override { return true; }

 protected:
  void note(std::string_view hook, const Obj* obj, const std::string& more = "") {
    seen_.log.push_back(std::string(hook) + ' ' + std::to_string(obj->id) + more);
  }
  nv::message check(std::string_view hook, const Check& say, Obj* obj,
                    const std::string& more = "") {
    note(hook, obj, more);
    return say ? say(obj) : nv::message();
  }
  nv::message checkSet(Obj* old, Obj* obj, const std::string& more = "") {
    note("checkChange", obj, more);
    return onCheckChange ? onCheckChange(old, obj) : nv::message();
  }
  void tell(std::string_view hook, const Tell& say, Obj* obj) {
    note(hook, obj);
    if (say) say(obj);
  }

 private:
  nv::testkit::Recorder& seen_;
};

class TestMap : public HookedMap<AMap, Object> {
 public:
  using HookedMap::HookedMap;
  bool managed = false;

  nv::message checkAdd(Object* obj) override { return check("checkAdd", onCheckAdd, obj); }
  nv::message checkChange(Object* old, Object* obj) override { return checkSet(old, obj); }
  nv::message checkRemove(Object* obj) override { return check("checkRemove", onCheckRemove, obj); }
  bool acceptsManaged() override { return managed; }
};

/// The log names the place that a hook is told of: "checkAdd 7>3" for before 3, "checkMove 7>end to
/// 3".
class TestOmap : public HookedMap<AOmap, OObject> {
 public:
  using HookedMap::HookedMap;
  std::function<nv::message(OObject*, OObject* oldNext, OObject* newNext)> onCheckMove;
  Tell onMoved;
  std::uint32_t front = 0;

  nv::message checkAdd(OObject* obj, OObject* next) override {
    return check("checkAdd", onCheckAdd, obj, before(next));
  }
  nv::message checkChange(OObject* old, OObject* obj, OObject* next) override {
    return checkSet(old, obj, before(next));
  }
  nv::message checkRemove(OObject* obj, OObject* next) override {
    return check("checkRemove", onCheckRemove, obj, before(next));
  }
  nv::message checkMove(OObject* obj, OObject* oldNext, OObject* newNext) override {
    note("checkMove", obj, before(oldNext) + " to " + before(newNext).substr(1));
    return onCheckMove ? onCheckMove(obj, oldNext, newNext) : nv::message();
  }
  void objMoved(OObject* obj) override { tell("objMoved", onMoved, obj); }
  std::uint32_t frontId() override { return front; }

 private:
  static std::string before(const OObject* next) {
    return '>' + (next == nullptr ? "end" : std::to_string(next->id));
  }
};

}  // namespace test
