// Random commands to an ordered map, side by side with a plain model of it, through restarts.
#include "tests/support/omap_model.h"

#include "tests/support/omap_fixture.h"
#include "tests/support/random.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

namespace {

class AOmapBesideItsModel : public AOmapTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  // Chance.

  std::uint32_t below(std::uint32_t n) { return random.below(n); }
  bool once(std::uint32_t n) { return below(n) == 0; }
  std::uint32_t anyId() { return once(20) ? nv::kNoId : below(AOmapModel::kMax + 2); }
  /// 0: nobody.
  std::uint32_t anyObject() {
    return model.order.empty() ? 0 : model.order[below(static_cast<unsigned>(model.order.size()))];
  }

  void addConfig(message& m) {
    const std::string texts[] = {"", "lamp", "torch", "bad", std::string(3000, 'x')};
    const std::uint32_t numbers[] = {0, 1, 2, 13, 77};
    if (once(2)) m.insert(field::text, texts[below(once(4) ? 5 : 3)]);
    if (once(2)) m.insert(field::number, numbers[below(once(4) ? 5 : 3)]);
    if (once(4)) m.insert(field::isVolatile, once(2));
    if (once(9)) m.insert(field::isSilent, once(2));
    if (once(9)) m.insert(field::isFinal, once(2));
  }
  message anyCommand() {
    const unsigned codes[] = {cmd::addObj,  cmd::addObj,  cmd::setObj,    cmd::setObj, cmd::moveObj,
                              cmd::moveObj, cmd::moveObj, cmd::removeObj, cmd::getObj, cmd::getAll};
    message m = command(codes[below(10)]);
    if (!once(5)) m.insert(key::objectId, once(2) ? anyObject() : anyId());
    if (!once(3)) m.insert(key::nextId, once(4) ? anyId() : anyObject());
    if (once(4)) m.insert(key::dynamic, once(2));
    if (once(3)) m.insert(key::startId, anyId());
    if (once(3)) m.insert(key::maxCount, below(AOmapModel::kMax));
    if (once(9)) m.insert(key::getFlags, 0x20000005);
    const std::uint32_t rights[] = {0, 0x7fffffff, 0x80000000, 0xffffffff};
    if (once(3)) m.insert(key::rights, rights[below(4)]);
    addConfig(m);
    return m;
  }

  // Steps: each is done to both, and both must agree.

  void agree(const Expected& expected) {
    EXPECT_EQ(line(), expected.line);
    ASSERT_EQ(kit->seen().undos.size(), expected.undo ? 1u : 0u);
    if (expected.undo) {
      EXPECT_EQ(kit->seen().undos[0].undo, *expected.undo);
    }
  }
  message send(const message& request) {
    const message reply = ask(request);
    const Expected expected = model.command(request);
    EXPECT_EQ(reply, expected.reply);
    agree(expected);
    return reply;
  }
  void sendCommand() {
    const auto order = model.order;
    const auto objects = model.objects;
    send(anyCommand());
    if (kit->seen().undos.empty() || !once(3)) return;
    const message undo = kit->seen().undos[0].undo;
    // To move an object before itself is refused, also to where it stood first.
    if (nv::isError(send(undo))) return;
    EXPECT_EQ(model.order, order);
    EXPECT_EQ(model.objects, objects);
  }
  void changeByService() {
    const std::uint32_t id = 1 + below(AOmapModel::kMax), next = once(3) ? 0 : anyObject();
    OObject* const before = next == 0 ? nullptr : map->objects.get(next);
    message m;
    addConfig(m);
    ElementConfig config;
    config.read(m);
    kit->seen().clear();
    if (!map->objects.contains(id)) {
      map->add(makeOItem(id, config), before);
      agree(model.addByService(id, config, next));
    } else if (once(3)) {
      // Also whether it is storable, of which nobody rewrites the chain.
      chainIsWhole = chainIsWhole && config.isVolatile == at(id).config.isVolatile;
      const bool mayStore = !once(4);
      at(id).config = config;
      map->changed(&at(id), mayStore);
      agree(model.changedByService(id, config, mayStore));
    } else if (once(2)) {
      map->remove(map->find(id));
      agree(model.removeByService(id));
    } else if (id != next) {
      map->move(&at(id), before);
      agree(model.moveByService(id, next));
    }
  }
  void switchStore() {
    kit->seen().clear();
    if (once(2)) {
      map->flushConfig();
      agree(model.flush());
      compareStored();
    } else {
      const bool on = once(2);
      map->setAutoStore(on);
      agree(model.setAutoStore(on));
    }
  }
  void restartBoth() {
    kit->seen().clear();
    map.reset();
    agree(model.end());
    compareStored();
    stop();
    if (once(8)) changeStored();
    start("items", 1, AOmapModel::kMax);
    serve();
    std::string prints;
    const std::string printed = initPrints();
    agree(model.init(prints));
    EXPECT_EQ(printed, prints);
    chainIsWhole = model.records.contains(nv::kHeadId) && chain() == model.chain();
  }
  /// As an older process would have left it, or a new one finds it.
  void changeStored() {
    if (once(3)) model.records.clear();
    model.records.erase(nv::kHeadId);
    stores.clear();
    for (const auto& [id, record] : model.records) stores.set("items", id, record);
  }
  void serve() {
    map->merges = once(2);
    const auto judge = [](bool refuses) { return refuses ? serviceRefusal() : message(); };
    map->onCheckAdd = [=](OObject* obj, OObject*) {
      return judge(refusesConfig(item(obj).config));
    };
    map->onCheckChange = [=](OObject*, OObject* obj) {
      return judge(refusesConfig(item(obj).config));
    };
    map->onCheckRemove = [=](OObject* obj) { return judge(refusesRemove(item(obj).config)); };
    map->onCheckRestore = [=](OObject* obj) { return judge(refusesRestore(item(obj).config)); };
  }

  // The whole state.

  void compare() {
    EXPECT_TRUE(verify(*map));
    EXPECT_EQ(map->pending, model.pending);
    EXPECT_EQ(map->dynamicIds, model.dynamic);
    const OObject* obj = map->head.next;
    for (const std::uint32_t id : model.order) {
      ASSERT_EQ(obj->id, id);
      EXPECT_EQ(static_cast<const OItem*>(obj)->config, model.objects.at(id));
      obj = obj->next;
    }
    ASSERT_EQ(obj, &map->head);
  }
  void compareStored() {
    const std::string stored = chain();
    EXPECT_EQ(stores.records("items"), model.records);
    if (chainIsWhole && model.pending.empty()) {
      EXPECT_EQ(stored, model.chain());
    }
  }

  Random random = GetParam() != 0 ? Random(GetParam()) : Random();
  AOmapModel model;
  /// Nothing has changed behind the back of the map, and nothing was lost.
  bool chainIsWhole = false;
};

TEST_P(AOmapBesideItsModel, AgreesOnEveryReplyCallAndRecord) {
  SCOPED_TRACE(random.seed());
  restartBoth();
  for (int step = 0, commands = 0; commands < 25000; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    if (once(300))
      restartBoth();
    else if (once(20))
      switchStore();
    else if (once(40))
      changeByService();
    else {
      sendCommand();
      ++commands;
    }
    compare();
    if (once(50)) compareStored();
    if (HasFailure()) return;
  }
}

// Three runs that are always the same, and one that is as CONFKIT_SEED says.
INSTANTIATE_TEST_SUITE_P(Seeds, AOmapBesideItsModel, ::testing::Values(1u, 2u, 3u, 0u));

}  // namespace
