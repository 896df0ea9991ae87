/// An element for tests of all containers: a few fields, and switches that change how it is
/// treated.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "containers/object.h"
#include "containers/oobject.h"
#include "platform/message.h"

namespace test {

namespace field {
inline constexpr nv::string_id text{0x11};
inline constexpr nv::u32_id number{0x12};
inline constexpr nv::bool_id isVolatile{0x13};  // not storable
inline constexpr nv::bool_id isSilent{0x14};    // not notifying
inline constexpr nv::bool_id isFinal{0x15};     // not undoable
inline constexpr nv::u32_id flags{0x16};  // the flags with which a configuration was asked for
inline constexpr nv::raw_id padding{0x17};
}  // namespace field

/// What the elements of a test have in common with their test.
struct Element {
  /// Elements that exist, and that were ever made.
  static inline int alive = 0;
  static inline int made = 0;
  /// Whether elements write field::flags.
  static inline bool writesFlags = false;
  /// Called by each `getConfig`, each `setConfig` and each destructor.
  static inline std::function<void(Object&, nv::message&, std::uint32_t)> onGet;
  static inline std::function<void(Object&, const nv::message&, std::uint32_t)> onSet;
  static inline std::function<void(Object&)> onDelete;

  static void reset() {
    writesFlags = false;
    onGet = {};
    onSet = {};
    onDelete = {};
    alive = made = 0;
  }
};

/// What a test element is configured with. All of it is written each time, so that an undo record
/// can bring every earlier value back.
struct ElementConfig {
  std::string text = {};
  std::uint32_t number = 0;
  bool isVolatile = false;
  bool isSilent = false;
  bool isFinal = false;

  void read(const nv::message& in) {
    text = in.get(field::text, text);
    number = in.get(field::number, number);
    isVolatile = in.get(field::isVolatile, isVolatile);
    isSilent = in.get(field::isSilent, isSilent);
    isFinal = in.get(field::isFinal, isFinal);
  }
  void write(nv::message& out) const {
    out.insert(field::text, text);
    out.insert(field::number, number);
    out.insert(field::isVolatile, isVolatile);
    out.insert(field::isSilent, isSilent);
    out.insert(field::isFinal, isFinal);
  }
  bool operator==(const ElementConfig&) const = default;
};

/// `Base` is Object, or a class derived from it.
template <class Base>
class TestElement : public Base {
 public:
  TestElement() {
    ++Element::alive;
    ++Element::made;
  }
  ~TestElement() override {
    --Element::alive;
    if (Element::onDelete) Element::onDelete(*this);
  }

  bool isStorable() override { return !config.isVolatile; }
  bool isUndoable() override { return !config.isFinal && Base::isUndoable(); }
  bool isNotifying() override { return !config.isSilent; }
  std::string name() override { return config.text.empty() ? Base::name() : config.text; }
  std::uint32_t managedId() override { return manager; }
  void setManagedId(std::uint32_t who) override { manager = who; }
  void getConfig(nv::message& out, std::uint32_t flags) override {
    config.write(out);
    if (Element::writesFlags) out.insert(field::flags, flags);
    if (Element::onGet) Element::onGet(*this, out, flags);
  }
  void setConfig(const nv::message& in, std::uint32_t flags) override {
    config.read(in);
    if (Element::onSet) Element::onSet(*this, in, flags);
  }

  ElementConfig config;
  std::uint32_t manager = nv::kNoId;
};

using Item = TestElement<Object>;
using OItem = TestElement<OObject>;

inline Item& item(Object* obj) { return static_cast<Item&>(*obj); }
inline OItem& item(OObject* obj) { return static_cast<OItem&>(*obj); }

}  // namespace test
