/// The service that tests and benchmarks of the bus talk to: texts, each under an id.
#pragma once

#include <string>

#include "containers/amap.h"
#include "platform/commands.h"

namespace nv::testkit {

inline constexpr string_id kText{1};
/// In a get: asks for the twin, the copy of the text that is stored in a table of its own by the
/// same command.
inline constexpr bool_id kWithTwin{2};
inline constexpr string_id kTwin{3};
/// In the reply to a get: the request as it reached the service.
inline constexpr message_id kRequest{4};

struct Text : Object {
  std::string text;
  void getConfig(message& out, unsigned) override { out.insert(kText, text); }
  void setConfig(const message& in, unsigned) override {
    if (in.has(kText)) text = in.get(kText);
  }
};

class TextMap : public AMap {
 public:
  TextMap() : AMap("texts", 1, 1000000), twins_("twins") {}

  message cmdGetObj(const message& request, std::uint32_t id) override {
    auto reply = AMap::cmdGetObj(request, id);
    if (request.get(kWithTwin)) reply.insert(kTwin, twins_.get(id).get(kText));
    return reply;
  }
  message cmdGet(const message& request) override { return {{kRequest, request.flat()}}; }

  Object* newObject() override { return new Text; }
  void copyObject(Object* dst, Object* src) override {
    static_cast<Text&>(*dst) = static_cast<Text&>(*src);
  }
  message checkRestore(Object*) override { return {}; }
  message checkAdd(Object*) override { return {}; }
  message checkChange(Object*, Object*) override { return {}; }
  message checkRemove(Object*) override { return {}; }
  void objAdded(Object* obj) override {
    if (!restoring_) keepTwin(*obj);
  }
  void objChanged(Object*, Object* obj) override { keepTwin(*obj); }
  void objRemoved(Object* obj) override { twins_.remove(obj->id); }

  void init() override {
    restoring_ = true;
    AMap::init();
    restoring_ = false;
  }

 private:
  void keepTwin(Object& obj) { twins_.set(obj.id, {{kText, static_cast<Text&>(obj).text}}); }

  Store twins_;
  bool restoring_ = false;
};

}  // namespace nv::testkit
