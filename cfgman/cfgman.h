/// A configuration manager that a service fills with callbacks.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "cfgman/token.h"
#include "cfgman/vset.h"
#include "platform/allocator.h"
#include "platform/export.h"
#include "platform/handler.h"
#include "platform/id_map.h"
#include "platform/keys.h"
#include "platform/message.h"
#include "platform/store.h"

class CfgHandler;
class ItemOrder;
class NameIndex;
struct UpdateTask;

/// Keeps items, each with a configuration and a state message; answers the commands of its handler;
/// applies each change as a task of its own; keeps the user's order, ids, names and the store;
/// tells subscribers; mirrors other handlers.
///
///     CfgMan vlans;
///     vlans.namePrefix = "vlan";
///     vlans.configIds.insert(vlan::tag.uid());
///     vlans.apply = [](CfgMan*, CfgMan::Item* item, nv::message& cfg, vset<unsigned>& keys,
///                      nv::message& reply) {
///       if (cfg.get(vlan::tag) > 4094) reply = nv::failedMsg("a VLAN id is at most 4094");
///     };
///     vlans.setHandler(5);
///     vlans.setStore("vlans", true);
///
/// A change takes effect in this order: own keys merged, id and item made, name given, state
/// merged, `apply`, undo record, observers (which mark the object for subscribers), place in the
/// order, store, reply. When `apply` refuses, the item, its state and the store are as they were;
/// only the texts in `Item::about` are gone. Updates follow one another: one whose turn comes while
/// another is under way (a hook that runs the runner, a runner that calls at once) is carried out
/// right after that.
///
/// Only keys in `configIds` and `stateIds` are kept; a service adds its own before the first
/// change. A callback may be empty unless it says otherwise, and may call the manager, post updates
/// and replace itself. It may even delete the manager; what is queued then does nothing. None may
/// throw.
///
/// Owns its items (but those with a cookie), store, allocator and handler. Event-loop thread only.
class CONFKIT_API CfgMan {
 public:
  struct Item;
  struct ItemLink;
  struct OrdNode;
  struct RemoteRec;
  class Iterator;
  class Link;
  class RunTask;
  class Subscription;

  // Life.

  /// `rt` runs the updates; not owned, outlives the manager. Null: `getGlobalRunTask()`.
  explicit CfgMan(RunTask* rt = nullptr);
  /// Deletes the handler, ends all follows, closes the store and frees the items without a cookie.
  ~CfgMan();
  CfgMan(const CfgMan&) = delete;
  CfgMan& operator=(const CfgMan&) = delete;

  /// Makes the bus handler and registers it under `id`. A second call does nothing.
  void setHandler(unsigned id);
  /// Opens the store `name` and posts the task that reads it; the items appear one task at a time.
  /// `ordered`: the items have a user's order. A second call does nothing.
  /// Until all are there, updates that could get into their way wait.
  void setStore(const std::string& name, bool ordered);
  /// Ids are given out from [min, max], from 1 to 0xfffffffd without a call. Replaces an earlier
  /// allocator; ids of items that are there already stay in use but are not counted in it.
  void setAllocator(unsigned min, unsigned max);

  /// By which others learn that the manager is gone.
  using Watch = LifeToken<CfgMan>::Watch;
  Watch watch() const { return token_.watch(); }

  /// The process-wide runner, run by the event loop.
  static RunTask* getGlobalRunTask();
  static RunTask globalRunTask;

  // Changes.

  /// Posts one update of item `id` (0xffffffff: of a new one). `cfg` and `state` are merged key by
  /// key; `keys` are reported as changed besides; to `request`, when it has a requester, the reply
  /// goes. One with a command and no requester counts as the store's own: what it changes is not
  /// written. Every change comes this way.
  void scheduleUpdate(unsigned id, nv::message cfg, nv::message state, vset<unsigned> keys,
                      nv::message request);
  /// Merges `upd` into the state of `item` at once and adds the changed keys of `stateIds` to
  /// `*keys`. With key::replaceState in it, `upd` without that key becomes the whole state, also
  /// when nothing differs.
  void directUpdateState(Item* item, nv::message upd, vset<unsigned>* keys);
  /// Reserves an id: makes an absent item under a free one, which an update can fill later, and
  /// which is never stored when `dynamic`. With a `cookie` it is never freed by the manager, and
  /// after a removal is absent again; without one it goes with the first update that fails or
  /// leaves it absent. The end when no id is free. Until the store is read, ids of records that are
  /// still to come count as free: a built-in object is planted before `setStore`, to have the same
  /// id in each start.
  Iterator plant(bool dynamic, void* cookie);

  // Reading.

  Iterator begin();
  Iterator end();
  /// The item `id`, null when there is none; it may be absent.
  Item* find(unsigned id) const { return items.get(id); }
  /// One object as clients see it: configuration, over it the state, then what `fillMsg`,
  /// `fillItemMsg` and the item's `about` texts add, its id and, when ordered, the id of the next.
  /// With kConfigOnlyBit in `flags` only configuration, id and next id.
  nv::message getMsg(Item* item, unsigned flags);
  /// The name that a new nameless object would get: `namePrefix` and a number one above the
  /// highest.
  std::string generateDefaultName();
  /// Numbers the items along the order, 2 apart, if they are not numbered rightly already.
  void updatePositions();
  /// Writes every live manager as text. `flags` bit 0: the key sets too; bit 1: configuration and
  /// state of the items of ordered managers.
  static void dump(std::ostream& os, unsigned flags);

  // Commands.

  /// Answers reads at once through `doGet` and queues changes; other codes go to nv::Handler.
  /// Replies to changes: key::objectId and what `apply` put into the reply; err::noSuchObject for a
  /// change of an object that is not there; err::idInUse when the id is claimed though no object
  /// has it (see `setAllocator`), for 0xfffffffe, and when none is free; the error of `apply` with
  /// key::objectId. An add of an object that is there changes it.
  void defDoCmd(const nv::message& cmd);
  /// Answers get, get one, get all and get count, for clients (`cmd` is theirs) and for
  /// notifications (`cmd` is empty). Of an object that is not there: err::noSuchItem, for the start
  /// of a get all err::noSuchPosition; {key::objectId, key::absent = 1} when `cmd` is empty.
  static nv::message defDoGet(CfgMan* cm, std::uint32_t id, std::uint32_t flags,
                              const nv::message& cmd);
  /// What a `doGet` returns that will answer later itself.
  static nv::message suppressReply();

  // Remotes.

  /// Follows the handler at `target`'s key::route: each of its objects becomes, and stays, an item
  /// here under the same id. `onLoaded` is called once, when all were told; their updates are
  /// queued by then, but need not have been carried out. The inverse of `flag` is passed to
  /// `nv::follow`.
  void addRemote(const nv::message& target, std::function<void()> onLoaded, bool flag);
  /// Follows this one in place of all others. Items stay.
  void setRemote(const nv::message& target, std::function<void()> onLoaded);
  /// The same by route; `object` 0xffffffff: the handler itself.
  void setRemote(unsigned handlerId, unsigned object, std::function<void()> onLoaded);

  // Callbacks.

  /// Answers get-like commands and makes what subscribers are sent. Must be set.
  std::function<nv::message(CfgMan*, std::uint32_t id, std::uint32_t flags, const nv::message& cmd)>
      doGet;
  /// Extends the message of an object.
  std::function<void(nv::message& out, CfgMan*, std::uint32_t id, std::uint32_t flags)> fillMsg;
  std::function<void(CfgMan*, Item*, nv::message& out, std::uint32_t flags)> fillItemMsg;
  /// Makes a changed configuration take effect, or refuses it with an error in `reply`. `cfg` is
  /// the new one and may be changed, the item still holds the old one; `keys` are the UIds that
  /// changed. Changes to `cfg` are kept only when configuration keys are among them; else a removal
  /// in it takes the item from memory alone. Called when a configuration key changed, a name was
  /// given, or the update brought keys.
  std::function<void(CfgMan*, Item*, nv::message& cfg, vset<unsigned>& keys, nv::message& reply)>
      apply;
  /// The same for those who want the new configuration in the item. Not called when `apply` is set.
  std::function<void(CfgMan*, Item*, vset<unsigned>& keys, nv::message& reply)> applyItem;
  /// Every command that reaches the handler. Preset to `defDoCmd`.
  std::function<void(nv::Handler*, const nv::message& cmd)> doCmd;
  /// Ids for which this is true are neither taken from nor given back to the allocator.
  std::function<bool(std::uint32_t id)> isExternalId;
  /// The name of an object that has none, be it new or not; takes the place of `namePrefix`.
  std::function<std::string()> makeName;
  /// Takes the place of nv::Handler::flushNotifies for the handler. May call it.
  std::function<void()> flushHook;
  /// How an object is called in undo records; by its name without this.
  std::function<std::string(const nv::message& cfg)> describe;
  /// Default names are this and a number. Empty, or beginning with "_": none are given.
  std::string namePrefix;
  /// Makes the record of a new subscriber; null, or none set: a plain one, told of everything with
  /// get flags 5. The handler owns the result. The bool is what the platform passed.
  std::function<Subscription*(const nv::message& req, bool)> mkSubscr;
  /// Merged under every add command.
  nv::message defcfg;

  // What the manager knows. Read by services, written by the manager but for the key sets.

  /// Where an update comes from: from the service or a remote; a request with user rights; one with
  /// the rights of the system; the store.
  enum Origin : std::uint32_t { kFromService, kFromUser, kFromSystem, kFromStore };
  /// The origin of the update being applied. Kept after it.
  std::uint32_t updateOrigin = kFromService;
  /// UIds that are merged into an item's configuration, and into its state.
  vset<unsigned> configIds, stateIds;
  /// While `apply` or `applyItem` runs: the item and the keys that changed.
  Item* curItem = nullptr;
  vset<unsigned>* curKeys = nullptr;
  CfgHandler* handler = nullptr;
  nv::Store* store = nullptr;
  bool ordered = false;
  /// Whether the positions of all items ascend along the order.
  bool positionsValid = true;
  std::vector<RemoteRec> remotes;
  /// All items, absent ones included. Their number is what get count reports.
  nv::IdMap<Item> items;
  std::unique_ptr<ItemOrder> order;
  nv::Allocator* alloc = nullptr;
  std::uint32_t allocMin = nv::kNoId, allocMax = 0;
  /// Called after every update, in this order. Not owned.
  std::vector<Link*> links;
  RunTask* runTask;

 private:
  friend class CfgHandler;
  friend class Placement;
  friend class Update;
  friend struct UpdateTask;

  void answerRead(const nv::message& cmd, unsigned code);
  nv::message getAll(std::uint32_t flags, const nv::message& cmd, nv::message out);

  // Items.
  nv::Allocator& allocator();
  /// A free id that no item has; 0xffffffff when there is none.
  std::uint32_t claimId();
  bool isExternal(std::uint32_t id) const;
  /// Puts a new item under `id`, which none has, into the tree.
  Item* makeItem(std::uint32_t id, bool stored);
  /// Takes `item` out of the order and the tree, gives its id back and frees it.
  void dropItem(Item* item);

  // Updates.
  void post(UpdateTask task);
  /// The turn of a task: carries it out, or keeps it while the store is being read.
  void take(UpdateTask&& task);
  /// Carries out an update; from within another one, right after that.
  void update(UpdateTask&& task);
  bool mustWait(const UpdateTask& task) const;
  /// Posts the turn of the first update that waits.
  void postWaiting();
  void updateWaiting();

  // The store.
  void setStoreImpl(const std::string& name);
  void loadRecord(std::uint32_t id);
  void storeRead();
  /// From `setStore` until the last of its records has become an item.
  bool isReadingStore() const { return storeUnread_ || recordsLeft_ != 0; }

  // Remotes.
  RemoteRec* findRemote(std::uint64_t serial);
  void remoteSays(std::uint64_t serial, const nv::message& msg);
  void remoteLoaded(std::uint64_t serial);

  std::unique_ptr<NameIndex> names_;
  bool storeUnread_ = false;
  std::size_t recordsLeft_ = 0;
  std::deque<UpdateTask> waiting_;  // for the store, in the order in which they came
  bool isUpdating_ = false;
  std::deque<UpdateTask> nested_;  // whose turn came during another one
  std::uint64_t lastRemote_ = 0;
  LifeToken<CfgMan> token_{this};
};

/// A handler that a manager follows.
struct CfgMan::RemoteRec {
  void* handle = nullptr;
  /// Whether the first set of its objects is complete.
  bool loaded = false;
  std::function<void()> onLoaded;
  std::uint64_t serial = 0;
};
