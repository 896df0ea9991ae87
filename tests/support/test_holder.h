/// A holder whose hooks a test sets, and which writes their calls into the test's log.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "containers/aholder.h"
#include "testing/recorder.h"
#include "tests/support/test_element.h"

namespace test {

/// A test element that keeps the managed configurations too, where a complete configuration is
/// handed over and wanted.
class HeldItem : public Item {
 public:
  void getConfig(nv::message& out, std::uint32_t flags) override {
    Item::getConfig(out, flags);
    if (!managed.empty() && (flags & nv::kStoreBit) != 0)
      out.insert(nv::key::managedConfigs, managed);
  }
  void setConfig(const nv::message& in, std::uint32_t flags) override {
    Item::setConfig(in, flags);
    managed = in.get(nv::key::managedConfigs);
  }
  std::vector<nv::flat_message> managed;
};

inline HeldItem& held(Object* obj) { return static_cast<HeldItem&>(*obj); }

/// Hooks that are not set accept and do nothing. The log says "checkLoad" and "loaded" where there
/// is nothing before. Everybody is allowed everything.
class TestHolder : public AHolder {
 public:
  TestHolder(nv::testkit::Recorder& seen, std::string_view storeName)
      : AHolder(std::string(storeName)), seen_(seen) {}

  std::function<nv::message(Object* old, Object* obj)> onCheckChange;
  std::function<void(Object* old, Object* obj)> onChanged;
  bool merges = false;
  bool takesManaged = false;

  Object* newObject() override { return new HeldItem; }
  void copyObject(Object* dst, Object* src) override {
    held(dst).config = held(src).config;
    held(dst).managed = held(src).managed;
  }
  nv::message checkChange(Object* old, Object* obj) override {
    seen_.log.emplace_back(old == nullptr ? "checkLoad" : "checkChange");
    return onCheckChange ? onCheckChange(old, obj) : nv::message();
  }
  void objChanged(Object* old, Object* obj) override {
    seen_.log.emplace_back(old == nullptr ? "loaded" : "objChanged");
    if (onChanged) onChanged(old, obj);
  }
  bool mergeOnSet() override { return merges; }
  bool acceptsManaged() override { return takesManaged; }
  bool isAllowed(const nv::message&) const override { return true; }

 private:
  nv::testkit::Recorder& seen_;
};

}  // namespace test
