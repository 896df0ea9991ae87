// A test outside the project: asks a handler in the testing kit, without bus, disk and loop of its
// own.
#include "containers/amap.h"
#include "platform/commands.h"
#include "testing/kit.h"

int main() {
  nv::testkit::Kit kit;
  nv::Handler handler;
  const nv::message reply = kit.ask(handler, {{nv::key::command, nv::cmd::getObj}});
  return nv::isError(reply) ? 0 : 1;
}
