// One configuration object: its commands, its record, and the parties that manage a part of it.
#include "tests/support/container_fixture.h"
#include "tests/support/test_holder.h"

using namespace test;

namespace {

/// A holder that hands its object requests, or complete configurations.
class AHolderTest : public ContainerTest<TestHolder>, public ::testing::WithParamInterface<bool> {
 protected:
  AHolderTest() { start(); }

  void start(std::string_view storeName = "settings") {
    startWith(storeName);
    map->merges = merges;
  }
  /// Started and initialised, with an empty log.
  void serve(bool takesManaged = false) {
    start();
    map->takesManaged = takesManaged;
    map->init();
    kit->seen().clear();
  }
  message set(Fields fields) { return ask(cmd::set, fields); }
  HeldItem& object() { return held(map->object); }
  message record() {
    kit->settle();
    return stores.get("settings", 0);
  }
  /// The managed configurations as they are, "7:1 8:2" for number 1 of party 7.
  std::string parties() {
    std::string all;
    for (const auto& entry : object().managed) {
      const message m(entry);
      all += (all.empty() ? "" : " ") + std::to_string(m.get(key::managedId)) + ':' +
             std::to_string(m.get(field::number));
    }
    return all;
  }

  const bool merges = GetParam();
};

// Parties need complete configurations.
using AHolderParties = AHolderTest;

// Loading.

TEST_P(AHolderTest, LoadsItsRecord) {
  stores.set("settings", 0, {{field::number, 4}});
  start();
  std::vector<std::uint32_t> flags;
  Element::onSet = [&](Object&, const message& in, std::uint32_t f) {
    flags.push_back(f);
    EXPECT_EQ(in, message({{field::number, 4}}));  // merged into nothing
  };
  EXPECT_EQ(initPrints(), "");
  EXPECT_EQ(line(), "checkLoad, loaded");
  EXPECT_EQ(flags, std::vector<std::uint32_t>{0x80000005});
  EXPECT_EQ(object().config.number, 4u);
}

TEST_P(AHolderTest, WithoutARecordChecksItsDefaultsAndWithoutAStoreNothing) {
  EXPECT_EQ(map->object, nullptr);
  map->init();
  EXPECT_EQ(line(), "checkLoad, loaded");
  EXPECT_TRUE(record().empty());

  start("");
  map->init();
  EXPECT_EQ(line(), "");
  set({{field::number, 4}});
  EXPECT_EQ(line(), "checkChange, objChanged, notify 4294967295, undo item changed, reply");
  map->setAutoStore(false);
  map->changed(true);
  EXPECT_FALSE(map->dirty);
  map->flushConfig();
}

TEST_P(AHolderTest, RefusedRecordLeavesTheDefaultsAndStays) {
  const message bad = configured({.text = "bad"}, {{key::managedConfigs, {message()}}});
  stores.set("settings", 0, bad);
  start();
  map->takesManaged = merges;
  map->onCheckChange = [&](Object* old, Object* obj) {
    EXPECT_EQ(old, nullptr);
    EXPECT_EQ(held(obj).managed.size(), 1u);
    return nv::errorMsg(0xfe0004, "it is bad");
  };
  std::cout << std::hex;
  EXPECT_EQ(initPrints(), "error: while loading config from store: it is bad (16646148)\n");
  std::cout << std::dec;
  EXPECT_EQ(line(), "checkLoad");
  EXPECT_EQ(object().config, ElementConfig());
  EXPECT_TRUE(object().managed.empty());
  EXPECT_EQ(Element::alive, 1);
  EXPECT_EQ(record(), bad);
}

// Get and set.

TEST_P(AHolderTest, GetTellsTheConfigurationAndNoId) {
  serve(true);
  set({{key::managedId, 7}});
  set({{field::text, "lamp"}});
  EXPECT_EQ(ask(cmd::get), configured({.text = "lamp"}));
  EXPECT_EQ(map->getObject(33, 5), configured({.text = "lamp"}));
  EXPECT_EQ(ask(cmd::getCount), message({{key::count, 0xffffffff}}));

  Element::writesFlags = true;
  EXPECT_EQ(ask(cmd::get, {{key::getFlags, 0xdfffffff}}).get(field::flags), 0x5fffffffu);
  EXPECT_EQ(map->getObject(0, 0xdfffffff).get(field::flags), 0xdfffffff);
  const message both = ask(cmd::get, {{key::getFlags, 0xa0000005}});
  EXPECT_EQ(both.get(field::flags), 0x20000005u);
  EXPECT_EQ(message(both.get(key::defaultCfg)), configured({}, {{field::flags, 5}}));
  EXPECT_EQ(Element::alive, 1);
}

TEST_P(AHolderTest, SetTellsServiceThenStoresThenTellsSubscribersThenPublishesUndo) {
  serve();
  set({{field::text, "lamp"}, {field::number, 4}});
  map->onCheckChange = [&](Object* old, Object* obj) {
    EXPECT_EQ(held(old).config, (ElementConfig{.text = "lamp", .number = 4}));
    EXPECT_EQ(held(obj).config, (ElementConfig{.text = "lamp", .number = 6}));
    return message{{field::number, 99}};
  };
  Element::onDelete = [&](Object&) { kit->seen().log.emplace_back("delete"); };
  EXPECT_EQ(set({{field::number, 6}, {field::text, "lamp"}}), message({{field::number, 99}}));
  Element::onDelete = {};
  EXPECT_EQ(line(),
            "checkChange, objChanged, delete, store 0, notify 4294967295, undo lamp changed, "
            "reply");
  EXPECT_EQ(kit->seen().undos[0].undo, message({{key::command, cmd::set}, {field::number, 4}}));
  EXPECT_FALSE(kit->seen().notifies[0].removed);
  EXPECT_EQ(record(), configured({.text = "lamp", .number = 6}));

  const message undo = kit->seen().undos[0].undo;
  map->onCheckChange = {};
  ask(undo);
  EXPECT_EQ(object().config, (ElementConfig{.text = "lamp", .number = 4}));
}

TEST_P(AHolderTest, SetRefusedByTheServicePutsTheObjectBack) {
  serve(true);
  set({{key::managedId, 7}, {field::number, 4}});
  const ElementConfig before = object().config;
  const auto managed = object().managed;
  map->onCheckChange = [](Object*, Object*) { return nv::errorMsg(0, "no"); };
  for (const std::uint32_t party : {7u, nv::kNoId}) {
    EXPECT_EQ(set({{key::managedId, party}, {field::number, 6}, {field::isSilent, true}}),
              nv::errorMsg(0, "no"));
    EXPECT_EQ(line(), "checkChange, reply");
    EXPECT_EQ(object().config, before);
    EXPECT_EQ(object().managed, managed);
    EXPECT_EQ(Element::alive, 1);
  }
}

TEST_P(AHolderTest, SetsAndChangesOfTheServiceTellOnlyWhatTheElementWantsTold) {
  const struct {
    Fields fields;
    const char* line;
  } cases[] = {
      {{}, "store 0, notify 4294967295"},
      {{{field::isVolatile, true}}, "notify 4294967295"},
      {{{field::isVolatile, false}, {field::isSilent, true}}, "store 0"},
      {{{field::isSilent, false}, {field::isFinal, true}}, "store 0, notify 4294967295"},
  };
  serve();
  for (const auto& c : cases) {
    set(c.fields);
    EXPECT_EQ(line(), std::string("checkChange, objChanged, ") + c.line +
                          ", undo item changed, reply");  // an undo record always
    EXPECT_FALSE(record().empty());                       // that of before stays
    kit->seen().clear();
    map->changed(true);
    EXPECT_EQ(line(), c.line);
  }
  kit->seen().clear();
  map->changed(false);
  EXPECT_EQ(line(), "notify 4294967295");
}

TEST_P(AHolderTest, PlainSetsHandTheElementTheRequestAndMergingSetsACompleteConfiguration) {
  serve(true);
  Element::writesFlags = true;
  message applied;
  Element::onSet = [&](Object&, const message& in, std::uint32_t flags) {
    EXPECT_EQ(flags, 5u);
    applied = in;
  };
  set({{field::number, 3}});
  EXPECT_EQ(applied.has(field::text), merges);
  EXPECT_EQ(applied.get(field::flags), merges ? 0x80000005 : 0);
  EXPECT_EQ(applied.get(field::number), 3u);
  set({{field::number, 4}, {key::managedId, 7}});
  EXPECT_EQ(applied.get(field::number), merges ? 3u : 4u);
  EXPECT_EQ(applied.get(key::managedId), merges ? 0u : 7u);
  EXPECT_EQ(line(), "checkChange, objChanged, store 0, notify 4294967295, reply");
}

// Parties that manage.

TEST_P(AHolderTest, RefusesPartiesWhereItHasNone) {
  serve();
  EXPECT_EQ(set({{key::managedId, 7}, {field::number, 6}}),
            nv::failedMsg("can not apply managed config"));
  EXPECT_EQ(line(), "reply");
  EXPECT_EQ(object().config.number, 0u);
  EXPECT_EQ(Element::alive, 1);
  EXPECT_EQ(set({{key::managedId, nv::kNoId}, {field::number, 6}}), message());
}

TEST_P(AHolderParties, GivesEachPartyAnEntryOfItsOwnThatComesAndGoes) {
  struct Step {
    Fields fields;
    const char* parties;
  };
  message applied;
  const auto run = [&](std::initializer_list<Step> steps) {
    serve(true);
    Element::onSet = [&](Object&, const message& in, std::uint32_t) { applied = in; };
    for (const Step& step : steps) {
      set(step.fields);
      EXPECT_EQ(line(), "checkChange, objChanged, store 0, notify 4294967295, reply");
      EXPECT_EQ(parties(), step.parties);
      EXPECT_EQ(object().config, ElementConfig());
      EXPECT_EQ(applied.has(key::managedConfigs), *step.parties != '\0');
      EXPECT_EQ(record().has(key::managedConfigs), *step.parties != '\0');
    }
  };
  run({
      {{{key::managedId, 9}, {key::absent, 1}}, ""},  // nothing to drop
      {{{key::managedId, 7}, {field::number, 1}, {field::text, "seven"}}, "7:1"},
      {{{key::managedId, 3}, {field::number, 2}}, "7:1 3:2"},
      {{{key::managedId, 7}, {field::number, 5}, {key::absent, 0}}, "7:5 3:2"},
      {{{key::managedId, 9}, {key::absent, 1}}, "7:5 3:2"},
      {{{key::managedId, 0}, {field::number, 4}}, "7:5 3:2 0:4"},
      {{{key::managedId, 3}, {key::absent, 77}, {field::number, 8}}, "7:5 0:4"},
      {{{key::managedId, 0}, {key::absent, 1}}, "7:5"},
  });
  EXPECT_EQ(message(object().managed[0]).get(field::text), "seven");  // merged, not replaced
  run({{{{key::managedId, 7}, {field::number, 6}}, "7:6"},            // after a restart
       {{{key::managedId, 7}, {key::absent, 1}}, ""}});

  // The first entry of a party counts, and no id is read as 0.
  const message nobody{{field::number, 1}}, seven{{key::managedId, 7}, {field::number, 2}};
  stop();
  stores.set("settings", 0, {{key::managedConfigs, {nobody, seven, seven}}});
  run({
      {{{key::managedId, 7}, {field::number, 5}}, "0:1 7:5 7:2"},
      {{{key::managedId, 7}, {key::absent, 1}}, "0:1 7:2"},
      {{{key::managedId, 0}, {field::number, 6}}, "0:6 7:2"},
      {{{key::managedId, 0}, {key::absent, 1}}, "7:2"},
  });
}

TEST_P(AHolderParties, TakesTheArrayFromAClientAsAnyOtherField) {
  serve(true);
  set({{key::managedId, 7}, {field::number, 2}});
  const message mine{{key::managedId, 5}, {field::number, 9}};
  set({{key::managedConfigs, {mine}}});
  EXPECT_EQ(parties(), "5:9");
  const message undo = kit->seen().undos.at(0).undo;
  ask(undo);
  EXPECT_EQ(parties(), "7:2");
  // A party's own array goes into its own entry.
  set({{key::managedId, 7}, {key::managedConfigs, {mine}}});
  EXPECT_EQ(parties(), "7:2");
  EXPECT_EQ(message(object().managed[0]).get(key::managedConfigs).size(), 1u);
  serve(true);
  EXPECT_EQ(parties(), "7:2");
}

// The record.

TEST_P(AHolderTest, PutsTheWriteOffUntilTheFlush) {
  serve();
  map->setAutoStore(true);
  EXPECT_EQ(line(), "");
  map->setAutoStore(false);
  for (const std::uint32_t n : {1u, 2u, 3u}) set({{field::number, n}});
  EXPECT_EQ(line(), "checkChange, objChanged, notify 4294967295, undo item changed, reply");
  kit->seen().clear();
  map->flushConfig();
  map->flushConfig();
  EXPECT_EQ(line(), "store 0");
  EXPECT_EQ(record().get(field::number), 3u);

  set({{field::number, 4}});
  kit->seen().clear();
  map->setAutoStore(true);
  EXPECT_EQ(line(), "store 0");
  map->setAutoStore(false);
  set({{field::number, 5}});
  serve();  // loses it
  EXPECT_EQ(object().config.number, 4u);
}

INSTANTIATE_TEST_SUITE_P(Merging, AHolderTest, ::testing::Bool());
INSTANTIATE_TEST_SUITE_P(Merging, AHolderParties, ::testing::Values(true));

}  // namespace
