// Managers as text, to the character.
#include <optional>

#include "tests/support/cfgman_watchers.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

namespace {

template <class T>
std::string text(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}
std::string address(const void* at) { return text(at); }
std::string dumped(const message& msg) {
  std::ostringstream out;
  msg.dump2(out, "", 0, 2);
  return out.str();
}

class CfgManDump : public CfgManTest {
 protected:
  std::string dump(unsigned flags = 0) {
    std::ostringstream out;
    CfgMan::dump(out, flags);
    out << 100;  // still decimal
    return out.str();
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
  two.stateIds = {0x08fe0005, 0x38000000};
  EXPECT_EQ(dump(1).substr(dump(1).find("CfgMan", 1)), head(two, " \"port\"\n") +
                                                           "    state ids:\n"
                                                           "        id=16646149_u\n"
                                                           "        id=\n"
                                                           "};\n\n100");
}

TEST_F(CfgManDump, NamesThePartsOfAManager) {
  kit->seen().answersFollows = true;
  add({{key::name, "a"}});
  cm->setAllocator(0x10, 0xff);
  cm->alloc->allocate();
  cm->addRemote({{key::route, {7}}}, {}, false);
  cm->addRemote({{key::route, {8}}}, {}, false);
  kit->seen().follows[1].deliver({});
  cm->defcfg = {{key::name, "d"}, {key::cfgFlagA, true}};
  std::optional<Hearer> hearer(std::in_place, *cm, kit->seen());
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
                         "        id=16646154_b\n"
                         "        id=16646157_b\n"
                         "        id=16646149_u\n"
                         "        id=16646163_u\n"
                         "        id=16646153_s\n"
                         "        id=16646160_s\n"
                         "        id=16646173_m\n"
                         "    state ids:\n"
                         "        id=16646152_b\n"
                         "        id=16646149_u\n"
                         "    defcfg: " +
                         dumped(cm->defcfg) +
                         "\n    ~US\tid\tcookie\tnlinks\n"
                         "     S\t1\t0\t\n"
                         "};\n\n100");
  hearer.reset();
  restart();
  EXPECT_EQ(dump(2).substr(0, dump(2).find("    alloc")),
            head(*cm) + "    store: \n    handler: \n");
}

TEST_F(CfgManDump, ListsItemsWithTheirNeighbours) {
  start(Kind::ordered);
  int cookie = 0;
  const std::unique_ptr<CfgMan::Item> planted(cm->plant(false, &cookie).item());
  add({{key::objectId, 0xa0}});
  add({{key::objectId, 0xb0}, {key::dynamic, true}});
  add({{key::objectId, 0xc0}});
  for (const auto* name : {"p", "q"}) cm->find(0xc0)->links.push_back(new Part(name, kit->seen()));
  auto all = dump();
  all = all.substr(all.find("    ~US"));
  EXPECT_EQ(all,
            "    ~US\tid\tcookie\tnlinks\tnext\tprev\tsnext\tsprev\n"
            "    ~S\t1\t" +
                address(&cookie) +
                "\t\tNULL\n"
                "     S\ta0\t0\t\tb0\t\tc0\t\n"
                "      \tb0\t0\t\tc0\ta0\t\t\n"
                "     S\tc0\t0\t2\t\tb0\t\ta0\n"
                "};\n\n100");
  const auto messages = [&](std::uint32_t id) {
    const auto* const item = cm->find(id);
    return "\n" + dumped(item->config) + (item->state.empty() ? "" : "\n" + dumped(item->state));
  };
  cm->find(0xb0)->state.clear();
  all = dump(2);
  all = all.substr(all.find("sprev") + 5);
  EXPECT_EQ(all, "\n    ~S\t1\t" + address(&cookie) + "\t\tNULL" + messages(1) +
                     "\n     S\ta0\t0\t\tb0\t\tc0\t" + messages(0xa0) +
                     "\n      \tb0\t0\t\tc0\ta0\t\t" + messages(0xb0) +
                     "\n     S\tc0\t0\t2\t\tb0\t\ta0" + messages(0xc0) + "\n};\n\n100");
  stop();
}

TEST_F(CfgManDump, MessagesAreOfOrderedManagersOnly) {
  add({{key::name, "a"}});
  EXPECT_EQ(dump(2), dump(0));
}

TEST_F(CfgManDump, AnItemSaysWhichPartsItHas) {
  CfgMan::Item loose;
  loose.store = false;
  EXPECT_EQ(text(loose), "Item{ " + address(&loose) + " }");
  int cookie = 0;
  loose.cookie = &cookie;
  loose.about = std::make_unique<std::vector<std::function<std::string()>>>();
  EXPECT_EQ(text(loose), "Item{ " + address(&loose) + " cookie=" + address(&cookie) + " about }");

  start(Kind::ordered);
  add();
  add({{key::dynamic, true}});
  auto* item = cm->find(1);
  item->links.push_back(new Part("p", kit->seen()));
  EXPECT_EQ(text(*item), "Item{ " + address(item) + " node ord{ item=" + address(item) +
                             " node snode } store #links=1 }");
  item = cm->find(2);
  EXPECT_EQ(text(*item),
            "Item{ " + address(item) + " node ord{ item=" + address(item) + " node } }");
}

TEST_F(CfgManDump, AnIteratorSaysWhereItStands) {
  add({{key::objectId, 0xab}});
  EXPECT_EQ(text(CfgMan::Iterator()), "(null)");
  EXPECT_EQ(text(cm->begin()), "*" + address(cm.get()) + ":ab");
  EXPECT_EQ(text(cm->end()), "*" + address(cm.get()) + ":END");
  cm->namePrefix = "vlan";
  std::ostringstream out;
  out << cm->begin() << cm->end() << 100;
  EXPECT_EQ(out.str(), "*vlan:ab*vlan:END100");
}

}  // namespace
