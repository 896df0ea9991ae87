// Mirrors of other handlers.
#include "tests/support/cfgman_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

namespace {

class CfgManRemotes : public CfgManTest {
 protected:
  CfgManRemotes() { kit->seen().answersFollows = true; }

  const nv::testkit::Recorder::Follow& follow(std::size_t k = 0) {
    return kit->seen().follows.at(k);
  }
  /// The remote says something, and it takes effect.
  std::string says(const message& msg, std::size_t k = 0) {
    kit->seen().log.clear();
    const auto deliver = follow(k).deliver;
    deliver(msg);
    runAll();
    return line();
  }
};

TEST_F(CfgManRemotes, AreFollowedByRoute) {
  cm->setRemote(7, nv::kNoId, {});
  EXPECT_EQ(follow(0).target, message({{key::route, {7}}}));
  EXPECT_TRUE(follow(0).wait);
  cm->setRemote(7, 3, {});
  EXPECT_EQ(follow(1).target, message({{key::route, {7, 3}}}));
  const message target{{key::route, {8}}, {key::getFlags, 6}};
  cm->addRemote(target, {}, true);
  EXPECT_EQ(follow(2).target, target);
  EXPECT_FALSE(follow(2).wait);
  EXPECT_EQ(line(), "follow, unfollow, follow, follow");
  EXPECT_TRUE(follow(0).stopped);
  EXPECT_EQ(cm->remotes.size(), 2u);

  kit->seen().log.clear();
  cm->setRemote(9, nv::kNoId, {});
  EXPECT_EQ(line(), "unfollow, unfollow, follow");
  EXPECT_EQ(cm->remotes.size(), 1u);
  cm.reset();
  EXPECT_TRUE(follow(3).stopped);
}

TEST_F(CfgManRemotes, TheirObjectsBecomeItemsThatAreStoredAndLeaveNoUndoRecord) {
  cm->setRemote(7, nv::kNoId, {});
  EXPECT_EQ(says({{key::objectId, 4}, {key::name, "a"}, {key::stateFlag, false}}), "store 4");
  EXPECT_EQ(cm->find(4)->config, message({{key::objectId, 4}, {key::name, "a"}, {key::absent, 0}}));
  EXPECT_EQ(cm->find(4)->state, message({{key::stateFlag, false}}));
  EXPECT_EQ(says({{key::objectId, 4}, {key::name, "a"}}), "");
  EXPECT_EQ(says({{key::objectId, 4}, {key::name, "b"}}), "store 4");
  EXPECT_EQ(says({{key::objectId, 4}, {key::absent, 1}}), "unstore 4");
  EXPECT_EQ(ids(), "");
  EXPECT_EQ(says({{key::objectId, 4}, {key::absent, 1}}), "");
  EXPECT_EQ(says({{key::name, "of no id"}}), "store 1");
  EXPECT_EQ(cm->updateOrigin, CfgMan::kFromService);
  cm->apply = [](auto*, auto*, auto&, auto&, message& reply) { reply = nv::failedMsg("no"); };
  EXPECT_EQ(says({{key::objectId, 1}, {key::name, "refused"}}), "");
  EXPECT_EQ(cm->find(1)->config.get(key::name), "of no id");
}

TEST_F(CfgManRemotes, AreLoadedOnce) {
  unsigned calls = 0;
  cm->setRemote(7, nv::kNoId, [&] {
    ++calls;
    EXPECT_FALSE(cm->remotes[0].loaded);
  });
  says({{key::objectId, 4}});
  EXPECT_EQ(calls, 0u);
  says({});
  EXPECT_TRUE(cm->remotes[0].loaded);
  says({});
  EXPECT_EQ(calls, 1u);
  EXPECT_TRUE(cm->remotes[0].loaded);
}

TEST_F(CfgManRemotes, EachIsLoadedByItself) {
  std::string loaded;
  cm->addRemote(
      {{key::route, {7}}}, [&] { loaded += "first "; }, false);
  cm->addRemote(
      {{key::route, {8}}}, [&] { loaded += "second "; }, false);
  says({}, 1);
  EXPECT_EQ(loaded, "second ");
  EXPECT_FALSE(cm->remotes[0].loaded);
  says({}, 0);
  EXPECT_EQ(loaded, "second first ");
}

TEST_F(CfgManRemotes, CanBeReplacedFromTheirCompletion) {
  std::string loaded;
  const std::string later = "a text that is too long to stand in the function object itself ";
  cm->setRemote(7, nv::kNoId, [&, later] {
    cm->setRemote(8, nv::kNoId, [&] { loaded += "8 "; });
    for (std::uint32_t k = 0; k < 20; ++k) cm->addRemote({{key::route, {k}}}, {}, false);
    loaded += later;
  });
  says({});
  EXPECT_EQ(loaded, later);
  EXPECT_FALSE(cm->remotes[0].loaded);
  says({}, 1);
  EXPECT_EQ(loaded, later + "8 ");
  EXPECT_TRUE(cm->remotes[0].loaded);
}

TEST_F(CfgManRemotes, AMirrorInTheSameProcessFollowsEveryChange) {
  kit->seen().answersFollows = false;
  add({{key::name, "a"}});
  CfgMan mirror(&tasks);
  bool isLoaded = false;
  mirror.setRemote(5, nv::kNoId, [&] { isLoaded = true; });
  const auto mirrored = [&] {
    for (unsigned turn = 0; turn < 3; ++turn) {
      kit->settle();
      runAll();
    }
    std::string all;
    for (auto* const item : mirror)
      all += std::to_string(item->id) + item->config.get(key::name) + " ";
    return all;
  };
  EXPECT_EQ(mirrored(), "1a ");
  EXPECT_TRUE(isLoaded);
  add({{key::name, "b"}});
  EXPECT_EQ(mirrored(), "1a 2b ");
  ask(cmd::setObj, {{key::objectId, 1}, {key::name, "c"}});
  ask(cmd::removeObj, {{key::objectId, 2}});
  EXPECT_EQ(mirrored(), "1c ");
}

}  // namespace
