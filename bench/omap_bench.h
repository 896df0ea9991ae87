/// The parts of `omap_bench`, and the map that they drive.
#pragma once

#include <cstdint>
#include <string>

#include "bench/support/bars.h"
#include "bench/support/made_up_store.h"
#include "tests/support/any_omap.h"

namespace bench {

void order(Bars& bars);
void batch(Bars& bars);
void init(Bars& bars);
void getall(Bars& bars);

struct Vlan : OObject {
  std::string label, text;
  std::uint32_t tag = 0;
  bool storable = true;

  bool isStorable() override { return storable; }
  std::string name() override { return label; }
  void getConfig(nv::message& out, std::uint32_t) override {
    out.insert(kTag, tag).insert(nv::key::name, label).insert(nv::key::cfgText, text);
  }
  void setConfig(const nv::message& in, std::uint32_t) override {
    if (in.has(nv::key::name)) label = in.view(nv::key::name);
    if (in.has(nv::key::cfgText)) text = in.view(nv::key::cfgText);
    tag = in.get(kTag, tag);
  }
};

class Vlans : public AnyOmap {
 public:
  explicit Vlans(const std::string& records) : AnyOmap(records, 1, 0xfffffff0) {}
  OObject* newObject() override { return new Vlan; }
  void copyObject(OObject* dst, OObject* src) override {
    auto &to = static_cast<Vlan&>(*dst), &from = static_cast<Vlan&>(*src);
    to.id = from.id;
    to.label = from.label;
    to.text = from.text;
    to.tag = from.tag;
    to.storable = from.storable;
  }
};

}  // namespace bench
