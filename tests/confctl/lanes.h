/// For the client's tests: an ordered map, and a holder with managing parties.
#pragma once

#include <string>

#include "containers/aholder.h"
#include "platform/keys.h"
#include "tests/support/any_omap.h"

inline constexpr nv::string_id kColour(1);

/// Keeps the service's own fields of what it is handed.
template <class Base>
struct Kept : Base {
  nv::message config;

  void getConfig(nv::message& out, unsigned) override { out.merge(config); }
  void setConfig(const nv::message& in, unsigned) override {
    for (const nv::field f : in)
      if (f.id() < 100) config.insert(f);
  }
};

template <class Base>
Kept<Base>& kept(Base* obj) {
  return static_cast<Kept<Base>&>(*obj);
}

/// In which order cars wait.
class Lane : public AnyOmap {
 public:
  Lane() : AnyOmap("lane", 1, 99) { describe("lane", {{kColour.uid(), "colour", "of the car"}}); }

 private:
  OObject* newObject() override { return new Kept<OObject>; }
  void copyObject(OObject* dst, OObject* src) override {
    dst->id = src->id;
    kept(dst).config = kept(src).config;
  }
};

/// The barrier at its end, which others may paint too.
class Barrier : public AHolder {
 public:
  Barrier() : AHolder("barrier") { describe("barrier", {{kColour.uid(), "colour", "of it"}}); }

 private:
  struct Paint : Kept<Object> {
    Paint() { config.insert(kColour, ""); }
    void setConfig(const nv::message& in, unsigned) override {
      config = {{kColour, in.get(kColour)}};
      for (const auto flat : in.view(nv::key::managedConfigs)) {
        const nv::message entry(flat);
        config.append(nv::key::managedConfigs,
                      nv::message{{kColour, entry.get(kColour)},
                                  {nv::key::managedId, entry.get(nv::key::managedId)}});
      }
    }
  };

  Object* newObject() override { return new Paint; }
  void copyObject(Object* dst, Object* src) override { kept(dst).config = kept(src).config; }
  nv::message checkChange(Object*, Object*) override { return {}; }
  void objChanged(Object*, Object*) override {}
  bool mergeOnSet() override { return true; }
  bool acceptsManaged() override { return true; }
};
