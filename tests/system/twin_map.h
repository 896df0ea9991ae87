/// Texts that are kept twice, to see whether a transaction is ever there by halves.
#pragma once

#include "platform/store.h"
#include "tests/support/text_map.h"

namespace nv::testkit {

/// In a get of an object: asks for its twin.
inline constexpr bool_id kWithTwin{3};
inline constexpr string_id kTwin{4};

/// Each text has a copy, its twin, that the same command stores in a table of its own.
class TwinMap : public TextMap {
 public:
  message cmdGetObj(const message& request, std::uint32_t id) override {
    auto reply = TextMap::cmdGetObj(request, id);
    if (request.get(kWithTwin)) reply.insert(kTwin, twins_.get(id).get(kText));
    return reply;
  }

  void objAdded(Object* obj) override {
    if (!restoring_) keepTwin(*obj);
  }
  void objChanged(Object*, Object* obj) override { keepTwin(*obj); }
  void objRemoved(Object* obj) override { twins_.remove(obj->id); }

  void init() override {
    restoring_ = true;
    TextMap::init();
    restoring_ = false;
  }

 private:
  void keepTwin(Object& obj) { twins_.set(obj.id, {{kText, static_cast<Text&>(obj).text}}); }

  Store twins_{"twins"};
  bool restoring_ = false;
};

}  // namespace nv::testkit
