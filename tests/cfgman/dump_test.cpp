// Managers as text, to the character.
#include "tests/support/cfgman_watchers.h"

using namespace test;

namespace {

template <class T>
std::string text(const T& value) {
  std::ostringstream out;
  out << value << 100;  // still decimal
  return out.str().substr(0, out.str().size() - 3);
}
std::string address(const void* at) { return text(at); }
std::string dumped(const message& msg) {
  std::ostringstream out;
  msg.dump2(out, "", 0, 2);
  return out.str();
}

class CfgManDump : public CfgManTest {
 protected:
  /// All managers, from `begin` on.
  std::string dump(unsigned flags = 0, const char* begin = "CfgMan") {
    std::ostringstream out;
    CfgMan::dump(out, flags);
    out << 100;  // still decimal
    return out.str().substr(out.str().find(begin));
  }
  std::string head(const CfgMan& manager, const char* rest = "\n") {
    return "CfgMan { *" + address(&manager) + rest;
  }
};

TEST_F(CfgManDump, ABareManagerIsTwoLines) {
  cm.reset();
  CfgMan one(&tasks), two(&tasks);
  two.namePrefix = "port";
  two.configIds.clear();
  EXPECT_EQ(dump(), head(one) + "};\n" + head(two, " \"port\"\n") + "};\n\n100");
  one.stateIds.clear();
  two.stateIds = {0x08fe0005, 0x38000000};
  EXPECT_EQ(dump(1, "    state"), "    state ids:\n        id=16646149_u\n        id=\n};\n\n100");
}

TEST_F(CfgManDump, NamesThePartsOfAManager) {
  kit->seen().answersFollows = true;
  add({{key::name, "a"}});
  cm->setAllocator(0x10, 0xff);
  cm->alloc->allocate();
  for (const auto id : {7u, 8u}) cm->addRemote({{key::route, {id}}}, {}, false);
  kit->seen().follows[1].deliver({});
  cm->defcfg = {{key::name, "d"}, {key::cfgFlagA, true}};
  cm->configIds = {0x00fe0007, 0x20fe0009};
  {
    const Hearer hearer(*cm, kit->seen());
    EXPECT_EQ(dump(1), head(*cm) +
                           "    store: firstTime \n"
                           "    handler: \n"
                           "    remote: \n"
                           "    remote:  loaded\n"
                           "    alloc: 10-ff unused=239 min=10 max=ff\n"
                           "    links:\n"
                           "{handler subscription link type}\n"
                           "{hearer}\n"
                           "    config ids:\n"
                           "        id=16646151_b\n"
                           "        id=16646153_s\n"
                           "    state ids:\n"
                           "        id=16646152_b\n"
                           "        id=16646149_u\n"
                           "    defcfg: " +
                           dumped(cm->defcfg) +
                           "\n    ~US\tid\tcookie\tnlinks\n"
                           "     S\t1\t0\t\n"
                           "};\n\n100");
  }
  EXPECT_EQ(dump(2), dump(0)) << "messages are of ordered managers only";
  restart();
  EXPECT_EQ(dump().find("    store: \n    handler: \n    alloc"), head(*cm).size());
}

TEST_F(CfgManDump, ListsItemsWithTheirNeighbours) {
  start(Kind::ordered);
  int cookie = 0;
  const std::unique_ptr<CfgMan::Item> planted(cm->plant(false, &cookie).item());
  add({{key::objectId, 0xa0}});
  add({{key::objectId, 0xb0}, {key::dynamic, true}});
  add({{key::objectId, 0xc0}});
  cm->find(0xb0)->state.clear();
  for (const auto* name : {"p", "q"}) cm->find(0xc0)->links.push_back(new Part(name, kit->seen()));
  const std::pair<std::uint32_t, std::string> lines[] = {
      {1, "~S\t1\t" + address(&cookie) + "\t\tNULL"},
      {0xa0, " S\ta0\t0\t\tb0\t\tc0\t"},
      {0xb0, "  \tb0\t0\t\tc0\ta0\t\t"},
      {0xc0, " S\tc0\t0\t2\t\tb0\t\ta0"},
  };
  for (const unsigned flags : {0u, 2u}) {
    std::string all = "~US\tid\tcookie\tnlinks\tnext\tprev\tsnext\tsprev";
    for (const auto& [id, line] : lines) {
      all += "\n    " + line;
      if (flags == 0) continue;
      const auto* const item = cm->find(id);
      all += "\n" + dumped(item->config) + (item->state.empty() ? "" : "\n" + dumped(item->state));
    }
    EXPECT_EQ(dump(flags, "~US"), all + "\n};\n\n100");
  }
  EXPECT_EQ(dump().find(" ordered\n"), head(*cm, "").size());
  stop();
}

TEST_F(CfgManDump, ALongOneIsCut) {
  cm->namePrefix = std::string(2 * 1024 * 1024, 'x');
  const auto text = ask(cmd::dump).get(key::about);
  ASSERT_EQ(text.size(), 1u);
  EXPECT_EQ(text[0].size(), 1024u * 1024);
  EXPECT_EQ(text[0].back(), 'x');
}

TEST_F(CfgManDump, AnItemSaysWhichPartsItHas) {
  CfgMan::Item loose;
  loose.store = false;
  loose.cookie = this;
  loose.about = std::make_unique<std::vector<std::function<std::string()>>>();
  EXPECT_EQ(text(loose), "Item{ " + address(&loose) + " cookie=" + address(this) + " about }");

  start(Kind::ordered);
  add();
  add({{key::dynamic, true}});
  const auto begin = [&](unsigned id) {
    const auto at = address(cm->find(id));
    return "Item{ " + at + " node ord{ item=" + at + " node";
  };
  cm->find(1)->links.push_back(new Part("p", kit->seen()));
  EXPECT_EQ(text(*cm->find(1)), begin(1) + " snode } store #links=1 }");
  EXPECT_EQ(text(*cm->find(2)), begin(2) + " } }");
}

TEST_F(CfgManDump, AnIteratorSaysWhereItStands) {
  add({{key::objectId, 0xab}});
  EXPECT_EQ(text(CfgMan::Iterator()), "(null)");
  EXPECT_EQ(text(cm->begin()), "*" + address(cm.get()) + ":ab");
  cm->namePrefix = "vlan";
  EXPECT_EQ(text(cm->begin()), "*vlan:ab");
  EXPECT_EQ(text(cm->end()), "*vlan:END");
}

}  // namespace
