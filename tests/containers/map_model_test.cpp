// Random commands to an object map, side by side with a plain model of it, through restarts.
#include "tests/support/map_model.h"

#include "tests/support/map_fixture.h"
#include "tests/support/random.h"

using namespace test;

namespace {

// As elements are written to the store and read from it.
constexpr std::uint32_t kRecordFlags = 0x80000005;

template <class Container>
class MapBesideItsModel : public MapTest<Container> {
 protected:
  using Base = MapTest<Container>;
  using Base::isOrdered, Base::kit, Base::map, Base::at, Base::make, Base::stores;

  void run(Random seeded) {
    random = seeded;
    SCOPED_TRACE(random.seed());
    this->startAnew();
    model = MapModel(isOrdered);
    chainIsWhole = false;
    restartBoth();
    for (int step = 0, commands = 0; commands < 25000; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      if (once(300))
        restartBoth();
      else if (once(20))
        switchStore();
      else if (once(20))
        changeByService();
      else {
        sendCommand();
        ++commands;
      }
      compare();
      if (once(50)) compareStored();
      if (this->HasFailure()) return;
    }
  }

  // Chance.

  std::uint32_t below(std::uint32_t n) { return random.below(n); }
  bool once(std::uint32_t n) { return below(n) == 0; }
  std::uint32_t anyId() { return once(20) ? kHead + below(2) : below(MapModel::kMax + 2); }
  /// 0: nobody.
  std::uint32_t anyObject() {
    return model.order.empty() ? 0 : model.order[below(static_cast<unsigned>(model.order.size()))];
  }

  void addConfig(message& m) {
    const std::string texts[] = {"", "lamp", "torch", "bad", std::string(3000, 'x')};
    const std::uint32_t numbers[] = {0, 1, 2, 13, 77};
    if (once(2)) m.insert(field::text, texts[below(once(4) ? 5 : 3)]);
    if (once(2)) m.insert(field::number, numbers[below(once(4) ? 5 : 3)]);
    if (once(5)) m.insert(field::isVolatile, once(2));
    if (once(7)) m.insert(field::isSilent, once(2));
    if (once(7)) m.insert(field::isFinal, once(2));
  }
  message anyCommand() {
    const unsigned often = isOrdered ? cmd::moveObj : cmd::setObj;
    const unsigned codes[] = {cmd::addObj, cmd::addObj,  cmd::setObj,    cmd::setObj, often,
                              often,       cmd::moveObj, cmd::removeObj, cmd::getObj, cmd::getAll};
    const unsigned odd[] = {cmd::getCount, cmd::get, cmd::set, 0, 0xfe0001, 0xffffffff};
    message m = command(once(50) ? odd[below(6)] : codes[below(10)]);
    if (!once(5)) m.insert(key::objectId, once(2) ? anyObject() : anyId());
    if (!once(3)) m.insert(key::nextId, once(4) ? anyId() : anyObject());
    if (once(4)) m.insert(key::managedId, once(3) ? nv::kNoId : 1 + below(2));
    if (once(4)) m.insert(key::dynamic, once(2));
    if (once(3)) m.insert(key::startId, anyId());
    if (once(3)) m.insert(key::maxCount, below(MapModel::kMax));
    const std::uint32_t flags[] = {0, 0x20000005, 0xa0000007, 0xdfffffff};
    if (once(4)) m.insert(key::getFlags, flags[below(4)]);
    const std::uint32_t rights[] = {0, 1, 0x7fffffff, 0x80000000, 0xffffffff};
    if (once(3)) m.insert(key::rights, rights[below(5)]);
    addConfig(m);
    return m;
  }

  // Steps: each is done to both, and both must agree.

  void agree(const Expected& expected) {
    EXPECT_EQ(this->line(), expected.line);
    ASSERT_EQ(kit->seen().undos.size(), expected.undo ? 1u : 0u);
    if (expected.undo) {
      EXPECT_EQ(kit->seen().undos[0].undo, *expected.undo);
    }
  }
  message send(const message& request) {
    sent = request;
    const message reply = this->ask(request);
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
    if (undo.get(key::nextId, kHead) == model.front) return;  // names the front, not its place
    // To move an object before itself is refused, also to where it stood first.
    if (nv::isError(send(undo))) return;
    EXPECT_EQ(model.order, order);
    EXPECT_EQ(model.objects, objects);
  }
  void changeByService() {
    const std::uint32_t id = 1 + below(MapModel::kMax), next = once(3) ? 0 : anyObject();
    const bool mayStore = !once(4);
    message m;
    addConfig(m);
    ElementConfig config;
    config.read(m);
    kit->seen().clear();
    if (!map->objects.contains(id)) {
      if constexpr (isOrdered)
        map->add(make(id, config), map->objects.get(next));
      else
        map->add(make(id, config), mayStore);
      agree(model.addByService(id, config, mayStore, next));
    } else if (once(3)) {
      // Also whether it is storable, of which nobody rewrites the chain.
      chainIsWhole = chainIsWhole && config.isVolatile == at(id).config.isVolatile;
      at(id).config = config;
      map->changed(&at(id), mayStore);
      agree(model.changedByService(id, config, mayStore));
    } else if (once(2)) {
      this->drop(id);
      agree(model.removeByService(id));
    } else if constexpr (isOrdered) {
      if (id == next) return;
      map->move(&at(id), map->objects.get(next));
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
    this->stop();
    if (isOrdered && once(8)) changeStored();
    this->start("items", 1, MapModel::kMax);
    serve();
    std::string prints;
    expectSets(kRecordFlags);
    const std::string printed = this->initPrints();
    expectSets(nv::kDefaultFlags);
    agree(model.init(prints));
    EXPECT_EQ(printed, prints);
    kit->settle();
    chainIsWhole = chainOf(stores.records("items")) == model.chain();
  }
  /// As an older process would have left it, or a new one finds it.
  void changeStored() {
    if (once(3)) model.records.clear();
    model.records.erase(kHead);
    stores.clear();
    for (const auto& [id, record] : model.records) stores.set("items", id, record);
  }
  void serve() {
    const auto judge = [](bool refuses) { return refuses ? serviceRefusal() : serviceApproval(); };
    map->onCheckAdd = [this, judge](auto* obj) {
      EXPECT_TRUE(map->ids.isAllocated(obj->id) && !map->objects.contains(obj->id));
      return judge(refusesConfig(item(obj).config));
    };
    map->onCheckChange = [this, judge](auto* old, auto* obj) {
      map->onChanged(old, obj);
      return judge(refusesConfig(item(obj).config));
    };
    map->onChanged = [this](auto* old, auto* obj) {
      EXPECT_EQ(old->id, obj->id);
      EXPECT_EQ(item(old).config, model.objects.at(obj->id).config);
    };
    map->onCheckRemove = [this, judge](auto* obj) {
      EXPECT_TRUE(map->objects.contains(obj->id));
      return judge(refusesGoing(item(obj).config));
    };
    map->onRemoved = [this](auto* obj) {
      EXPECT_FALSE(map->objects.contains(obj->id) || map->ids.isAllocated(obj->id));
    };
    map->onCheckRestore = [=](auto* obj) { return judge(refusesRestore(item(obj).config)); };
    map->merges = once(2);
    if constexpr (isOrdered) {
      const std::uint32_t fronts[] = {0, 0, 3, kEnd};
      map->front = model.front = fronts[below(4)];
      map->onCheckMove = [=](auto* obj, auto*, auto*) {
        return judge(refusesGoing(item(obj).config));
      };
    } else {
      map->managed = model.takesManaged = !once(3);
    }
  }
  /// What elements are handed: the request as it is, or merged into all that they store.
  void expectSets(std::uint32_t expected) {
    Element::writesFlags = true;
    Element::onSet = [this, expected](Object&, const message& in, std::uint32_t flags) {
      EXPECT_EQ(flags, expected);
      if (expected == kRecordFlags) return;
      EXPECT_EQ(in.has(field::text), map->merges || sent.has(field::text));
      EXPECT_EQ(in.get(field::flags), sent.get(field::flags, map->merges ? 0x80000005 : 0));
      EXPECT_TRUE(in.has(key::command));  // nothing is stripped
    };
  }

  // The whole state.

  void compare() {
    EXPECT_EQ(verify(*map), "");
    EXPECT_EQ(map->pending, model.pending);
    EXPECT_EQ(map->dynamicIds, model.dynamic);
    ASSERT_EQ(this->ids(), model.order);
    for (const auto& [id, entry] : model.objects) {
      EXPECT_EQ(at(id).config, entry.config);
      EXPECT_EQ(at(id).manager, entry.manager);
    }
  }
  void compareStored() {
    if (kit) kit->settle();
    const auto& records = stores.records("items");
    EXPECT_EQ(records, model.records);
    if (isOrdered && chainIsWhole && model.pending.empty()) {
      EXPECT_EQ(chainOf(records), model.chain());
    }
  }

  Random random{0};
  MapModel model{isOrdered};
  message sent;
  /// Nothing has changed behind the back of an ordered map, and nothing was lost.
  bool chainIsWhole = false;
};

using Maps = ::testing::Types<TestMap, TestOmap>;
TYPED_TEST_SUITE(MapBesideItsModel, Maps);

// Three runs that are always the same, and one that is as CONFKIT_SEED says.
TYPED_TEST(MapBesideItsModel, AgreesOnEveryReplyCallAndRecord) {
  for (const unsigned seed : {1u, 2u, 3u}) this->run(Random(seed));
  this->run(Random());
}

}  // namespace
