// Random commands to an object map, side by side with a plain model of it, through restarts.
#include "tests/support/amap_model.h"

#include <algorithm>

#include "tests/support/amap_fixture.h"
#include "tests/support/random.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

namespace {

class AMapBesideItsModel : public AMapTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  // Chance.

  std::uint32_t below(std::uint32_t n) { return random.below(n); }
  bool once(std::uint32_t n) { return below(n) == 0; }
  std::uint32_t anyId() { return once(20) ? nv::kNoId : below(AMapModel::kMax + 2); }

  void addConfig(message& m) {
    const std::string texts[] = {"", "lamp", "torch", "bad", std::string(3000, 'x')};
    const std::uint32_t numbers[] = {0, 1, 2, 13, 77};
    if (once(2)) m.insert(field::text, texts[below(once(4) ? 5 : 3)]);
    if (once(2)) m.insert(field::number, numbers[below(once(4) ? 5 : 3)]);
    if (once(6)) m.insert(field::isVolatile, once(2));
    if (once(6)) m.insert(field::isSilent, once(2));
    if (once(6)) m.insert(field::isFinal, once(2));
  }
  ElementConfig anyConfig() {
    message m;
    addConfig(m);
    ElementConfig config;
    config.read(m);
    return config;
  }
  message anyCommand() {
    const unsigned codes[] = {cmd::addObj, cmd::addObj,    cmd::setObj, cmd::setObj,
                              cmd::setObj, cmd::removeObj, cmd::getObj, cmd::getAll};
    message m = command(once(50) ? cmd::getCount : codes[below(8)]);
    if (!once(5)) m.insert(key::objectId, anyId());
    if (once(4)) m.insert(key::managedId, once(3) ? nv::kNoId : 1 + below(2));
    if (once(4)) m.insert(key::dynamic, once(2));
    if (once(3)) m.insert(key::startId, anyId());
    if (once(3)) m.insert(key::maxCount, below(AMapModel::kMax));
    if (once(9)) m.insert(key::getFlags, 0x20000005);
    const std::uint32_t rights[] = {0, 1, 0x7fffffff, 0x80000000, 0xffffffff};
    if (once(3)) m.insert(key::rights, rights[below(5)]);
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
  void send(const message& request) {
    const message reply = ask(request);
    const Expected expected = model.command(request);
    EXPECT_EQ(reply, expected.reply);
    agree(expected);
  }
  void sendCommand() {
    const auto before = model.objects;
    send(anyCommand());
    if (kit->seen().undos.empty() || !once(3)) return;
    const message undo = kit->seen().undos[0].undo;
    send(undo);
    const bool refused = nv::isError(kit->seen().replies.back().reply);
    if (refused) return;
    const std::uint32_t id = undo.get(key::objectId);
    ASSERT_EQ(model.objects.contains(id), before.contains(id));
    if (before.contains(id)) {
      EXPECT_EQ(at(id).config, before.at(id).config);
    }
  }
  void changeByService() {
    const std::uint32_t id = 1 + below(AMapModel::kMax);
    const bool mayStore = !once(4);
    ElementConfig config = anyConfig();
    kit->seen().clear();
    if (!map->objects.contains(id)) {
      Item* const added = makeItem(id);
      added->config = config;
      map->add(added, mayStore);
      agree(model.addByService(id, config, mayStore));
    } else if (once(2)) {
      at(id).config = config;
      map->changed(&at(id), mayStore);
      agree(model.changedByService(id, config, mayStore));
    } else {
      map->remove(map->find(id));
      agree(model.removeByService(id));
    }
  }
  void switchStore() {
    kit->seen().clear();
    if (once(2)) {
      map->flushConfig();
      agree(model.flush());
    } else {
      const bool on = once(2);
      map->setAutoStore(on);
      agree(model.setAutoStore(on));
    }
  }
  void restartBoth() {
    compareStored();
    start("items", 1, AMapModel::kMax);
    serve();
    unsigned lines = 0;
    testing::internal::CaptureStdout();
    map->init();
    const std::string printed = testing::internal::GetCapturedStdout();
    agree(model.restart(map->managed, lines));
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), lines);
  }
  void serve() {
    map->merges = once(2);
    map->managed = !once(3);
    const auto judge = [](bool refuses) { return refuses ? serviceRefusal() : message(); };
    map->onCheckAdd = [=](Object* obj) { return judge(refusesConfig(item(obj).config)); };
    map->onCheckChange = [=](Object*, Object* obj) {
      return judge(refusesConfig(item(obj).config));
    };
    map->onCheckRemove = [=](Object* obj) { return judge(refusesRemove(item(obj).config)); };
    map->onCheckRestore = [=](Object* obj) { return judge(refusesRestore(item(obj).config)); };
  }

  // The whole state.

  void compare() {
    EXPECT_TRUE(verify(*map));
    EXPECT_EQ(map->pending, model.pending);
    EXPECT_EQ(map->dynamicIds, model.dynamic);
    ASSERT_EQ(map->objects.size(), model.objects.size());
    for (const auto& [id, entry] : model.objects) {
      ASSERT_TRUE(map->objects.contains(id));
      EXPECT_EQ(at(id).config, entry.config);
      EXPECT_EQ(at(id).manager, entry.manager);
    }
  }
  void compareStored() {
    kit->settle();
    EXPECT_EQ(stores.records("items"), model.records);
  }

  Random random = GetParam() != 0 ? Random(GetParam()) : Random();
  AMapModel model;
};

TEST_P(AMapBesideItsModel, AgreesOnEveryReplyCallAndRecord) {
  SCOPED_TRACE(random.seed());
  restartBoth();
  model.takesManaged = map->managed;
  for (int step = 0, commands = 0; commands < 25000; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    if (once(400))
      restartBoth();
    else if (once(20))
      switchStore();
    else if (once(10))
      changeByService();
    else {
      sendCommand();
      ++commands;
    }
    compare();
    if (once(100)) compareStored();
    if (HasFailure()) return;
  }
}

// Three runs that are always the same, and one that is as CONFKIT_SEED says.
INSTANTIATE_TEST_SUITE_P(Seeds, AMapBesideItsModel, ::testing::Values(1u, 2u, 3u, 0u));

}  // namespace
