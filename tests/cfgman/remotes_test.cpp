// Mirrors of other handlers.
#include "tests/support/cfgman_fixture.h"

using namespace test;

namespace {

class CfgManRemotes : public CfgManTest {
 protected:
  CfgManRemotes() { kit->seen().answersFollows = true; }

  const auto& follow(std::size_t k) { return kit->seen().follows.at(k); }
  /// The remote says something, and it takes effect.
  std::string says(const message& msg, std::size_t k = 0) {
    kit->seen().log.clear();
    const auto deliver = follow(k).deliver;
    deliver(msg);
    runAll();
    return line();
  }
  void follow(std::uint32_t id, const std::string& word) {
    cm->addRemote(
        {{key::route, {id}}}, [this, word] { loaded += word; }, false);
  }
  std::string loaded;
};

TEST_F(CfgManRemotes, AreFollowedByRoute) {
  cm->setRemote(7, kNoId, {});
  EXPECT_EQ(follow(0).target, message({{key::route, {7}}}));
  EXPECT_TRUE(follow(0).wait);
  cm->setRemote(7, 3, {});
  EXPECT_EQ(follow(1).target, message({{key::route, {7, 3}}}));
  const message target{{key::route, {8}}, {key::getFlags, 6}};
  cm->addRemote(target, {}, true);
  EXPECT_EQ(follow(2).target, target);
  EXPECT_FALSE(follow(2).wait);
  cm->setRemote(9, kNoId, {});
  EXPECT_EQ(line(), "follow, unfollow, follow, follow, unfollow, unfollow, follow");
  EXPECT_EQ(cm->remotes.size(), 1u);
  cm.reset();
  for (std::size_t k = 0; k < 4; ++k) EXPECT_TRUE(follow(k).stopped);
}

TEST_F(CfgManRemotes, TheirObjectsBecomeItemsThatAreStoredAndLeaveNoUndoRecord) {
  cm->setRemote(7, kNoId, {});
  EXPECT_EQ(says({{key::objectId, 4}, {key::name, "a"}, {key::stateFlag, false}}), "store 4");
  EXPECT_EQ(cm->find(4)->config, message({{key::objectId, 4}, {key::name, "a"}, {key::absent, 0}}));
  EXPECT_EQ(cm->find(4)->state, message({{key::stateFlag, false}}));
  EXPECT_EQ(says({{key::objectId, 4}, {key::name, "a"}}), "");
  EXPECT_EQ(says({{key::objectId, 4}, {key::name, "b"}}), "store 4");
  EXPECT_EQ(says({{key::objectId, 4}, {key::absent, 1}}), "unstore 4");
  EXPECT_EQ(says({{key::objectId, 4}, {key::absent, 1}}), "");
  EXPECT_EQ(ids(), "");
  EXPECT_EQ(says({{key::name, "of no id"}}), "store 1");
  EXPECT_EQ(cm->updateOrigin, CfgMan::kFromService);
}

TEST_F(CfgManRemotes, EachIsLoadedByItselfAndOnce) {
  follow(7, "first ");
  follow(8, "second ");
  says({{key::objectId, 4}}, 1);
  EXPECT_EQ(loaded, "");
  says({}, 1);
  EXPECT_EQ(loaded, "second ");
  EXPECT_FALSE(cm->remotes[0].loaded);
  EXPECT_TRUE(cm->remotes[1].loaded);
  says({}, 0);
  says({}, 1);
  EXPECT_EQ(loaded, "second first ");
}

TEST_F(CfgManRemotes, CanBeReplacedFromTheirCompletion) {
  const std::string later = "a text that is too long to stand in the function object itself ";
  cm->setRemote(7, kNoId, [&, later] {
    EXPECT_FALSE(cm->remotes[0].loaded);
    cm->setRemote(8, kNoId, [&] { loaded += "8 "; });
    for (std::uint32_t k = 0; k < 20; ++k) follow(k, "");
    loaded += later;
  });
  says({});
  EXPECT_EQ(loaded, later);
  EXPECT_FALSE(cm->remotes[0].loaded);
  says({}, 1);
  EXPECT_EQ(loaded, later + "8 ");
  EXPECT_TRUE(cm->remotes[0].loaded);
}

}  // namespace
