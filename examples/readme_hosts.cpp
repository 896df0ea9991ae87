#include "containers/amap.h"
#include "platform/service.h"

constexpr nv::string_id kName{1};
constexpr nv::addr6_id kAddress{2};

struct Host : Object {
  nv::message config;
  std::string name() override { return config.get(kName); }
  void getConfig(nv::message& out, unsigned) override { out.merge(config); }
  void setConfig(const nv::message& in, unsigned) override {
    config = {{kName, in.get(kName, name())}, {kAddress, in.get(kAddress, config.get(kAddress))}};
  }
};

struct HostMap : AMap {
  using AMap::AMap;
  Object* newObject() override { return new Host; }
  void copyObject(Object* to, Object* from) override {
    static_cast<Host&>(*to) = static_cast<Host&>(*from);
  }
  nv::message checkRestore(Object*) override { return {}; }
  nv::message checkAdd(Object* host) override { return checkChange(nullptr, host); }
  nv::message checkChange(Object*, Object* host) override {
    return host->name().empty() ? nv::failedMsg("a host needs a name") : nv::message();
  }
  nv::message checkRemove(Object*) override { return {}; }
  void objAdded(Object*) override {}
  void objChanged(Object*, Object*) override {}
  void objRemoved(Object*) override {}
};

int main(int argc, char** argv) {
  nv::Service service(argc, argv, {.name = "hosts", .address = 100});
  HostMap hosts("hosts", 1, 65535);
  hosts.describe("hosts", {{kName.uid(), "name", "text"}, {kAddress.uid(), "address", "where"}});
  hosts.init();
  nv::getLooper()->addHandler(100, &hosts);
  return service.run();
}
