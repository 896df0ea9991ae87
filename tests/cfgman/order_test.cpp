// The user's order: places, the stored chain, what comes back after a restart.
#include "tests/support/cfgman_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

class CfgManOrder : public CfgManTest {
 protected:
  CfgManOrder() { start(Kind::ordered); }
};

TEST_F(CfgManOrder, AddsMovesAndRemovesKeepTheOrderAndTheChain) {
  const struct {
    message command;
    const char *ids, *stored;
  } steps[] = {
      {command(cmd::addObj), "1", "head>1 1"},
      {command(cmd::addObj), "1 2", "head>1 1>2 2"},
      {command(cmd::addObj, {{key::nextId, 1}}), "3 1 2", "head>3 1>2 2 3>1"},
      {command(cmd::addObj, {{key::nextId, 2}}), "3 1 4 2", "head>3 1>4 2 3>1 4>2"},
      {command(cmd::addObj, {{key::nextId, 99}}), "5 3 1 4 2", "head>5 1>4 2 3>1 4>2 5>99"},
      {command(cmd::moveObj, {{key::objectId, 5}}), "3 1 4 2 5", "head>3 1>4 2>5 3>1 4>2 5"},
      {command(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 1}}), "3 1 4 2 5",
       "head>3 1>4 2>5 3>1 4>2 5"},
      {command(cmd::removeObj, {{key::objectId, 3}}), "1 4 2 5", "head>1 1>4 2>5 4>2 5"},
      {command(cmd::removeObj, {{key::objectId, 5}}), "1 4 2", "head>1 1>4 2 4>2"},
  };
  for (const auto& step : steps) {
    ASSERT_FALSE(nv::isError(ask(step.command))) << step.ids;
    EXPECT_EQ(ids(), step.ids);
    EXPECT_EQ(stored(), step.stored);
  }
  restart();
  EXPECT_EQ(ids(), "1 4 2");
  EXPECT_EQ(line(), "");
}

TEST_F(CfgManOrder, TellsInOrderWhatAChangeDoes) {
  EXPECT_EQ(ask(cmd::addObj, {{key::name, "a"}}), message({{key::objectId, 1}}));
  EXPECT_EQ(line(), "undo a added, store 4294967294, store 1, reply");
  ask(cmd::addObj, {{key::name, "b"}});
  EXPECT_EQ(line(), "undo b added, store 1, store 2, reply");
  ask(cmd::moveObj, {{key::objectId, 2}, {key::nextId, 1}});
  EXPECT_EQ(line(), "undo b changed, store 1, store 4294967294, store 2, reply");
  ask(cmd::removeObj, {{key::objectId, 2}});
  EXPECT_EQ(line(), "undo b removed, store 4294967294, unstore 2, reply");
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 2}}), nv::errorMsg(err::noSuchObject, ""));
  EXPECT_EQ(line(), "reply");
}

}  // namespace
