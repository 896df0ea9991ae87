/// What a configuration manager should do, said with plain containers and without any of its code:
/// places and names are found by walking, neighbours by looking through the order.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cfgman/cfgman.h"
#include "platform/message.h"
#include "testing/recorder.h"
#include "tests/support/id_lists.h"

namespace test {

/// Keys of the service that the manager and the model serve: one of the configuration, one of the
/// state.
namespace field {
inline constexpr nv::u32_id number{0x21};
inline constexpr nv::u32_id level{0x22};
}  // namespace field

/// The service: what it sets up, and how it judges.
struct CfgService {
  enum class Hook { none, apply, applyItem };

  bool ordered = false;
  Hook hook = Hook::none;
  bool hasExternalIds = false;
  std::string namePrefix;
  nv::message defcfg;
  std::uint32_t minId = 1, maxId = 0xfffffffd;

  bool isExternal(std::uint32_t id) const { return hasExternalIds && id >= 20 && id < 24; }
  /// Makes `manager` serve this, before it has a store.
  void setUp(CfgMan& manager) const;
  /// Refuses number 13. An accepted one is told in the reply, with how far it was routed before.
  static void judge(const nv::message& cfg, nv::message& reply);
  /// What `apply` may do besides: it takes number 7 for 8, lets go what has number 6, and answers
  /// key 1 with a text.
  static void correct(nv::message& cfg, vset<unsigned>& keys);
  /// And `applyItem`: it gives a name that counts as a default one, and takes another away.
  static void rename(nv::message& cfg);
  /// Which configurations its second subscriber wants to hear of.
  static bool interests(const nv::message& cfg) { return cfg.get(field::number) > 6; }
};

/// What an observer sees in an update: all that it is handed, and the default name at that time.
struct Observed {
  std::uint32_t id;
  nv::message oldCfg, newCfg, oldState, newState;
  vset<unsigned> keys;
  std::string defaultName;
  bool operator==(const Observed&) const = default;
};

/// Records by id.
using Records = std::map<std::uint32_t, nv::message>;

class CfgManModel {
 public:
  struct Item {
    bool store = true;
    bool hasCookie = false;
    bool isRecorded = false;
    std::uint32_t position = nv::kNoId;
    nv::message config{{nv::key::absent, 1}};
    nv::message state{{nv::key::stateFlag, true}};
  };
  struct Task {
    std::uint32_t id;
    nv::message cfg, state;
    vset<unsigned> keys;
    nv::message request;
  };

  CfgService service;
  std::map<std::uint32_t, Item> items;
  Ids order, storeOrder;
  std::set<std::uint32_t> allocated;
  bool positionsValid = true;
  std::uint32_t updateOrigin = 0;
  Records records;
  /// Replies, undo records, notifications and store operations, in order. There is a plain
  /// subscriber, whose cookie is null, and one with a filter.
  nv::testkit::Recorder told;
  std::vector<Observed> observed;

  /// A command as it reaches the handler. What reads is answered at once.
  void command(const nv::message& cmd);
  void schedule(Task task) { tasks_.push_back(std::move(task)); }
  void runAll();
  /// The process ends and starts again.
  void restart(const CfgService& now);

  std::optional<std::uint32_t> plant(bool dynamic, bool hasCookie);
  void updatePositions();
  std::string defaultName() const;
  /// The ids in iteration order.
  Ids iterated() const;
  /// Where `manager` is otherwise between updates, in a few words; empty: nowhere.
  std::string difference(CfgMan& manager) const;

 private:
  class Run;

  nv::message read(const nv::message& cmd) const;
  nv::message page(const nv::message& cmd, std::uint32_t flags, nv::message out) const;
  nv::message object(std::uint32_t id, std::uint32_t flags) const;
  std::optional<std::uint32_t> allocate();
  void erase(std::uint32_t id);
  void set(std::uint32_t id, const nv::message& record);
  void unlink(std::uint32_t id);
  void link(std::uint32_t id, std::uint32_t before, bool writes);
  void number(std::uint32_t id);

  std::deque<Task> tasks_;
};

}  // namespace test
