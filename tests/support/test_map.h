/// An object map whose hooks a test sets, and which writes their calls into the test's log.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "containers/amap.h"
#include "testing/recorder.h"
#include "tests/support/test_element.h"

namespace test {

/// Hooks that are not set accept and do nothing. Everybody is allowed everything: what rights mean
/// to the map is tested, not what they mean to the bus.
class TestMap : public AMap {
 public:
  TestMap(nv::testkit::Recorder& seen, std::string_view storeName, std::uint32_t minId,
          std::uint32_t maxId)
      : AMap(storeName, minId, maxId), seen_(seen) {}

  using Check = std::function<nv::message(Object*)>;
  using Tell = std::function<void(Object*)>;
  Check onCheckRestore, onCheckAdd, onCheckRemove;
  std::function<nv::message(Object* old, Object* obj)> onCheckChange;
  Tell onAdded, onRemoved;
  std::function<void(Object* old, Object* obj)> onChanged;
  std::function<std::uint32_t(std::uint32_t)> onAllocate;
  bool merges = false;
  bool managed = false;

  Object* newObject() override { return new Item; }
  void copyObject(Object* dst, Object* src) override {
    dst->id = src->id;
    item(dst).config = item(src).config;
  }
  nv::message checkRestore(Object* obj) override {
    return check("checkRestore", onCheckRestore, obj);
  }
  nv::message checkAdd(Object* obj) override { return check("checkAdd", onCheckAdd, obj); }
  nv::message checkRemove(Object* obj) override { return check("checkRemove", onCheckRemove, obj); }
  nv::message checkChange(Object* old, Object* obj) override {
    note("checkChange", obj);
    return onCheckChange ? onCheckChange(old, obj) : nv::message();
  }
  void objAdded(Object* obj) override { tell("objAdded", onAdded, obj); }
  void objRemoved(Object* obj) override { tell("objRemoved", onRemoved, obj); }
  void objChanged(Object* old, Object* obj) override {
    note("objChanged", obj);
    if (onChanged) onChanged(old, obj);
  }
  using AMap::allocateId;
  std::uint32_t allocateId(std::uint32_t id) override {
    return onAllocate ? onAllocate(id) : AMap::allocateId(id);
  }
  bool mergeOnSet() override { return merges; }
  bool acceptsManaged() override { return managed; }
  bool isAllowed(const nv::message&) const override { return true; }

 private:
  void note(std::string_view hook, const Object* obj) {
    seen_.log.push_back(std::string(hook) + " " + std::to_string(obj->id));
  }
  nv::message check(std::string_view hook, const Check& say, Object* obj) {
    note(hook, obj);
    return say ? say(obj) : nv::message();
  }
  void tell(std::string_view hook, const Tell& say, Object* obj) {
    note(hook, obj);
    if (say) say(obj);
  }

  nv::testkit::Recorder& seen_;
};

}  // namespace test
