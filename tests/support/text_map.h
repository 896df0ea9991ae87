/// The service that tests and benchmarks of the bus talk to: texts, each under an id.
#pragma once

#include <string>

#include "containers/amap.h"
#include "platform/commands.h"

namespace nv::testkit {

inline constexpr string_id kText{1};
/// In the reply to a get: the request as it reached the service.
inline constexpr message_id kRequest{2};

struct Text : Object {
  std::string text;
  void getConfig(message& out, unsigned) override { out.insert(kText, text); }
  void setConfig(const message& in, unsigned) override {
    if (in.has(kText)) text = in.get(kText);
  }
};

class TextMap : public AMap {
 public:
  TextMap() : AMap("texts", 1, 1000000) {}

  message cmdGet(const message& request) override { return {{kRequest, request.flat()}}; }

  Object* newObject() override { return new Text; }
  void copyObject(Object* dst, Object* src) override {
    static_cast<Text&>(*dst) = static_cast<Text&>(*src);
  }
  message checkRestore(Object*) override { return {}; }
  message checkAdd(Object*) override { return {}; }
  message checkChange(Object*, Object*) override { return {}; }
  message checkRemove(Object*) override { return {}; }
  void objAdded(Object*) override {}
  void objChanged(Object*, Object*) override {}
  void objRemoved(Object*) override {}
};

}  // namespace nv::testkit
