// What a manager does for subscribers and clients.
#include <cstdio>
#include <cstdlib>

#include "bench/cfgman_bench.h"
#include "bench/support/child.h"
#include "bench/support/clients.h"
#include "bench/support/no_refusals.h"
#include "cfgman/notify_guard.h"
#include "cfgman/subscription.h"
#include "platform/service.h"
#include "testing/kit.h"
#include "tests/support/temp_directory.h"

namespace bench {

namespace {

constexpr std::uint32_t kAddress = 100;
constexpr unsigned kItems = 1000;
constexpr unsigned kClients = 16;
constexpr unsigned kTurns = 60;
constexpr unsigned kSets = 100;  // of one client, a turn

/// Each gives an item another text, since one that changes nothing is not stored.
nv::message nextSet(unsigned) {
  static unsigned n = 0;
  ++n;
  return command(nv::cmd::setObj, kAddress,
                 {{nv::key::objectId, 1 + n % kItems}, {nv::key::cfgText, textOf(n / kItems)}});
}

void serve(const TempDirectory& place) {
  nv::ServiceOptions options{.name = "items", .address = kAddress};
  options.busDirectory = place / "bus";
  options.storeFile = place / "items.db";
  char name[] = "cfgman_bench";
  char* arguments[] = {name, nullptr};
  nv::Service service(1, arguments, options);
  CfgMan manager;
  manager.setHandler(kAddress);
  manager.setStore("items", false);
  service.run();
}

}  // namespace

void sixteenClients(Bars& bars) {
  const TempDirectory place(benchDirectory());
  const Child service([&] { serve(place); });
  const auto socket = place / "bus" / (std::to_string(kAddress) + ".sock");
  std::deque<RawClient> one(1), sixteen(kClients);
  for (auto* const clients : {&one, &sixteen})
    for (auto& client : *clients) connect(client, socket);
  for (unsigned n = 0; n < kItems; ++n) {
    auto add = nextSet(n);
    one.front().ask(add.insert(nv::key::command, nv::cmd::addObj));
  }

  Fastest alone, together;
  for (unsigned turn = 0; turn < kTurns; ++turn) {
    alone.take(inFlight(one, 1, kSets, nextSet));
    together.take(inFlight(sixteen, 1, kSets * 4, nextSet));
  }
  std::printf("a durable set of one client %.1f us, of 16 clients %.1f us each\n", alone.time(),
              together.time());
  bars.atLeast("rate of durable sets, 16 clients / one", alone.time() / together.time(), 6);
}

void guardedChange(Bars& bars) {
  constexpr unsigned kSubscribers = 1000;
  constexpr unsigned kFlags[] = {5, 4, 1};
  nv::testkit::Kit kit;
  const NoRefusals watching;
  Manager manager(5);
  manager.send(nv::cmd::addObj, {{nv::key::objectId, 1}});
  manager.cm.mkSubscr = mkSubscrBasic;
  for (unsigned n = 0; n < kSubscribers; ++n) {
    bool plain = true;
    manager.cm.handler->subscribe({{nv::key::getFlags, kFlags[n % std::size(kFlags)]}}, plain);
  }
  unsigned calls = 0;
  manager.cm.doGet = [&calls](CfgMan* cm, std::uint32_t id, std::uint32_t flags,
                              const nv::message& cmd) {
    ++calls;
    return CfgMan::defDoGet(cm, id, flags, cmd);
  };

  unsigned callsBefore = 0, callsAfter = 0;
  const double time = timeOf([&] {
    {
      const NotifyGuard guard(&manager.cm, 1);
      callsBefore = std::exchange(calls, 0);
      manager.cm.find(1)->state.insert(nv::key::stateFlag, false);
    }
    callsAfter = calls;
  });
  std::printf("a change seen by 1,000 subscribers takes %.0f us\n", time * 1e6);
  bars.atMost("doGet calls before the change, 1,000 subscribers, 3 flags", callsBefore, 3);
  bars.atMost("doGet calls after it", callsAfter, 3);
}

}  // namespace bench
