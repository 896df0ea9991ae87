/// An ordered map whose hooks a test sets, and which writes their calls into the test's log.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "containers/omap.h"
#include "testing/recorder.h"
#include "tests/support/test_element.h"

namespace test {

/// Hooks that are not set accept and do nothing. The log names the place that a hook is told of:
/// "checkAdd 7>3" for before 3, "checkMove 7>end to 3". Everybody is allowed everything.
class TestOmap : public AOmap {
 public:
  TestOmap(nv::testkit::Recorder& seen, std::string_view storeName, std::uint32_t minId,
           std::uint32_t maxId)
      : AOmap(std::string(storeName), minId, maxId), seen_(seen) {}

  using Tell = std::function<void(OObject*)>;
  std::function<nv::message(OObject*)> onCheckRestore, onCheckRemove;
  std::function<nv::message(OObject*, OObject* next)> onCheckAdd;
  std::function<nv::message(OObject* old, OObject* obj)> onCheckChange;
  std::function<nv::message(OObject*, OObject* oldNext, OObject* newNext)> onCheckMove;
  Tell onAdded, onRemoved, onMoved;
  std::function<void(OObject* old, OObject* obj)> onChanged;
  std::function<std::uint32_t(std::uint32_t)> onAllocate;
  std::function<void(std::uint32_t)> onFree;
  bool merges = false;
  std::uint32_t front = 0;

  OObject* newObject() override { return new OItem; }
  void copyObject(OObject* dst, OObject* src) override {
    dst->id = src->id;
    item(dst).config = item(src).config;
  }
  nv::message checkRestore(OObject* obj) override {
    note("checkRestore", obj);
    return onCheckRestore ? onCheckRestore(obj) : nv::message();
  }
  nv::message checkAdd(OObject* obj, OObject* next) override {
    note("checkAdd", obj, '>' + place(next));
    return onCheckAdd ? onCheckAdd(obj, next) : nv::message();
  }
  nv::message checkChange(OObject* old, OObject* obj, OObject* next) override {
    note("checkChange", obj, '>' + place(next));
    return onCheckChange ? onCheckChange(old, obj) : nv::message();
  }
  nv::message checkRemove(OObject* obj, OObject* next) override {
    note("checkRemove", obj, '>' + place(next));
    return onCheckRemove ? onCheckRemove(obj) : nv::message();
  }
  nv::message checkMove(OObject* obj, OObject* oldNext, OObject* newNext) override {
    note("checkMove", obj, '>' + place(oldNext) + " to " + place(newNext));
    return onCheckMove ? onCheckMove(obj, oldNext, newNext) : nv::message();
  }
  void objAdded(OObject* obj) override { tell("objAdded", onAdded, obj); }
  void objRemoved(OObject* obj) override { tell("objRemoved", onRemoved, obj); }
  void objMoved(OObject* obj) override { tell("objMoved", onMoved, obj); }
  void objChanged(OObject* old, OObject* obj) override {
    note("objChanged", obj);
    if (onChanged) onChanged(old, obj);
  }
  using AOmap::allocateId;
  std::uint32_t allocateId(std::uint32_t id) override {
    return onAllocate ? onAllocate(id) : AOmap::allocateId(id);
  }
  void freeId(std::uint32_t id) override {
    AOmap::freeId(id);
    if (onFree) onFree(id);
  }
  bool mergeOnSet() override { return merges; }
  std::uint32_t frontId() override { return front; }
  bool isAllowed(const nv::message&) const override { return true; }

 private:
  static std::string place(const OObject* next) {
    return next == nullptr ? "end" : std::to_string(next->id);
  }
  void note(std::string_view hook, const OObject* obj, const std::string& more = "") {
    seen_.log.push_back(std::string(hook) + ' ' + std::to_string(obj->id) + more);
  }
  void tell(std::string_view hook, const Tell& say, OObject* obj) {
    note(hook, obj);
    if (say) say(obj);
  }

  nv::testkit::Recorder& seen_;
};

}  // namespace test
