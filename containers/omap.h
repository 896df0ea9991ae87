/// Configuration objects of a service in an order that the user sees and that survives a restart.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "containers/oobject.h"
#include "platform/allocator.h"
#include "platform/export.h"
#include "platform/handler.h"
#include "platform/id_map.h"
#include "platform/store.h"

/// A position among the objects of an AOmap by id: one object, or the end. Valid while its object
/// is in the map. The user's order is walked with `AOmap::getNextObj`.
class AOmapIterator {
 public:
  /// The object at this position. Requires: not the end.
  OObject* get() const { return at_->second; }
  /// Goes on to the object with the next higher id. Requires: not the end.
  void next() { ++at_; }
  friend bool operator==(const AOmapIterator&, const AOmapIterator&) = default;

 private:
  friend class AOmap;
  using Position = nv::IdMap<OObject>::iterator;
  explicit AOmapIterator(Position at) : at_(at) {}
  Position at_;
};

/// Answers get one, set, add, remove, move, get all and get count for objects that stand in a
/// user's order, and keeps the storable ones and their order in the store.
///
/// A service derives from it, supplies its kind of object and its checks, calls `init()` once and
/// registers the map with the event loop, as with `AMap`. What differs from `AMap`: every object
/// has a place; hooks are told who stands behind it; nobody manages objects.
///
/// The order is a circular list through `head`, a sentinel that is never in `objects`. In the store
/// it is a chain that skips what is not storable:
///
/// | record     | key::objectId | key::nextId, 0xffffffff: none | and its       |
/// |------------|---------------|-------------------------------|---------------|
/// | 0xfffffffe | 0xfffffffe    | the first storable object     |               |
/// | an object  | its id        | the next storable object      | configuration |
///
/// The configuration is what the object writes with nv::kStoreBit.
///
/// A command checks first, changes second and tells last. Refused: the reply is an error, and
/// objects, order, ids, dynamic marks and store are as they were. Accepted: the store (now, or at
/// the next flush), the service's `obj...` hook, subscribers, the undo record, the reply.
///
/// Owns its objects and its store. Event-loop thread only. What the service supplies may call back
/// into the map, also to add, move and remove objects, but must not remove the object that it is
/// called for, nor end the map.
class CONFKIT_API AOmap : public nv::Handler {
 public:
  /// Ids are given out from [minId, maxId] below 0xfffffffe, which is the head's. An empty
  /// `storeName`: nothing is stored.
  AOmap(const std::string& storeName, std::uint32_t minId, std::uint32_t maxId);
  /// Takes what is not storable out of the order, so that the chain holds without it, then closes
  /// the store and deletes all objects. What was not flushed is lost.
  ~AOmap() override;

  // Commands.

  /// {the object's configuration, key::nextId: who stands behind it or 0xffffffff};
  /// err::noSuchObject.
  nv::message cmdGetObj(const nv::message& request, std::uint32_t id) override;
  /// Applies the request to the object. Replies what `checkChange` said; err::noSuchObject; refused
  /// when a user changes a dynamic object. Undone by a set of the earlier values.
  nv::message cmdSetObj(const nv::message& request, std::uint32_t id) override;
  /// A new object before the one that key::nextId names: `frontId()` stands for the front,
  /// 0xffffffff or nothing for the end. Replies what `checkAdd` said and the id;
  /// err::noSuchPosition for a position that names nothing; err::noSuchObject for an id outside the
  /// range; err::idInUse for one that is taken, and when none is free. A new object is dynamic when
  /// the system asks for it with key::dynamic; that mark ends with the process. Undone by a remove.
  nv::message cmdAddObj(const nv::message& request) override;
  /// Replies what `checkRemove` said; err::noSuchObject; refused like a set. Undone by an add of
  /// the whole configuration at the same place.
  nv::message cmdRemoveObj(const nv::message& request, std::uint32_t id) override;
  /// Puts the object elsewhere; the position is as in an add, but one that names nothing stands for
  /// the end. Replies what `checkMove` said; err::noSuchObject; err::badCommand for a move before
  /// itself, which moving the first object to the front is too. Undone by a move back.
  nv::message cmdMoveObj(const nv::message& request, std::uint32_t id) override;
  /// A page in the user's order from `startId` on (0xffffffff: the first), at most `count`, at most
  /// 1000 and at most 16384 bytes of them, but one at least; key::startId names the first that is
  /// left. Each: {key::objectId, its configuration}. err::noSuchObject when there is no object
  /// `startId`.
  nv::message cmdGetAll(const nv::message& request, std::uint32_t startId,
                        std::uint32_t count) override;
  nv::message getObject(std::uint32_t id, std::uint32_t flags) override;
  std::uint32_t objectCount() override;

  // Changes by the service itself: no checks, no hooks, no undo records, no dynamic marks. A null
  // `next` stands for the end.

  /// Puts `obj` before `next` and takes ownership of it. Its id must be free, or 0xffffffff to have
  /// one allocated; when none is free, `obj` is deleted and the end returned.
  AOmapIterator add(OObject* obj, OObject* next);
  /// Removes the object and deletes it. Its record goes at once, whatever is put off.
  void remove(AOmapIterator at);
  /// Puts `obj` before `next`. Nothing happens when it stands there. Requires: they differ.
  void move(OObject* obj, OObject* next);
  /// The service has changed `obj`: stores it when `mayStore` is true and it is storable, and tells
  /// subscribers. When that made it storable, or ended it, `storeObj(findPrevStorable(obj))` has to
  /// follow, so that the chain names it or passes it by.
  void changed(OObject* obj, bool mayStore);

  // Walking the objects.

  AOmapIterator begin() { return AOmapIterator(objects.begin()); }
  AOmapIterator end() { return AOmapIterator(objects.end()); }
  /// The object `id`, or the end.
  AOmapIterator find(std::uint32_t id) { return AOmapIterator(objects.find(id)); }
  /// Who stands behind `obj` in the order, null when nobody does; the first one for null.
  OObject* getNextObj(OObject* obj);
  /// Who stands before `obj`, null when nobody does; the last one for null.
  OObject* getPrevObj(OObject* obj);
  /// The nearest storable object before `obj` (null: the end), or `head`. Walks those in between.
  OObject* findPrevStorable(OObject* obj);
  /// The nearest storable object behind `obj` (null: the front), or `head`. Walks those in between.
  OObject* findNextStorable(OObject* obj);
  /// Inserts key::nextId: the id of whoever stands behind `obj`, 0xffffffff for nobody.
  void addNextId(nv::message& m, OObject* obj);
  /// Inserts key::nextId: the id of the next storable object, 0xffffffff for none.
  void addNextStorableId(nv::message& m, OObject* obj);

  // The store. Without one these do nothing, but for the two that require it.

  /// Makes an object of the record `id` and puts it at the end of the order; returns the id of the
  /// record that comes after it, 0xffffffff for none. One that `checkRestore` refuses is reported
  /// in one line on the standard output and stays in the store. Requires: there is a store, and no
  /// object has this id.
  std::uint32_t restoreObj(std::uint32_t id);
  /// Writes the record of `obj`, or of `head`. Requires: there is a store.
  void saveObj(OObject* obj);
  /// Writes the record of `obj` if it is storable, or that of `head`, now or at the next flush.
  void storeObj(OObject* obj);
  /// Carries out what was put off, ascending by id: an object that is there and storable then is
  /// written, and the head; any other record is removed. Waits for the end of `init` while that is
  /// under way.
  void flushConfig();
  /// Whether changes are written at once (as at first) or put off until a flush. Turning it on
  /// flushes.
  void setAutoStore(bool on);

  // What a service supplies. A check that returns an error reply refuses; any other message becomes
  // the reply. `next` is who stands behind the object, or will, null at the end. The order of these
  // declarations is part of the binary interface; new ones go last.

  /// A new object with the default configuration, made with `new`.
  virtual OObject* newObject() = 0;
  /// Copies into `dst` the id of `src` and all that `setConfig` can change: a backup is made and
  /// put back with it.
  virtual void copyObject(OObject* dst, OObject* src) = 0;
  /// The configuration of a new object, for clients that ask for it.
  virtual nv::message getDefaultCfg();
  /// Whether `obj`, read from the store, may come back. It has its id and is not in the map yet.
  virtual nv::message checkRestore(OObject* obj) = 0;
  /// Whether the new `obj` may be added before `next`. It has its id and is not in the map yet.
  virtual nv::message checkAdd(OObject* obj, OObject* next) = 0;
  /// Whether `obj` may be as it is now; `old` is a copy of how it was.
  virtual nv::message checkChange(OObject* old, OObject* obj, OObject* next) = 0;
  /// Whether `obj` may be removed.
  virtual nv::message checkRemove(OObject* obj, OObject* next) = 0;
  /// Whether `obj`, which stands before `oldNext`, may go before `newNext`.
  virtual nv::message checkMove(OObject* obj, OObject* oldNext, OObject* newNext) = 0;
  /// `obj` was added by a command or restored, and is in the map.
  virtual void objAdded(OObject* obj) = 0;
  /// `obj` was changed by a command; `old` is a copy of how it was.
  virtual void objChanged(OObject* old, OObject* obj) = 0;
  /// `obj` was removed by a command: it is not in the map any more and is deleted next.
  virtual void objRemoved(OObject* obj) = 0;
  /// `obj` was moved by a command.
  virtual void objMoved(OObject* obj) = 0;
  /// A free id, claimed; 0xffffffff when there is none.
  virtual std::uint32_t allocateId();
  /// Claims `id`. A command that adds uses the id returned.
  virtual std::uint32_t allocateId(std::uint32_t id);
  virtual void freeId(std::uint32_t id);
  /// Whether elements are handed complete configurations, with the request merged in, instead of
  /// requests.
  virtual bool mergeOnSet();
  /// The position in a request that means the front. No object with this id can be named as a
  /// position.
  virtual std::uint32_t frontId();
  /// Restores what the store holds, in its order. Called once by the service, before it registers
  /// the map. Each record comes back at most once, wherever a damaged chain leads; how many more
  /// there are than objects is told in one line on the standard output, unless the map is empty
  /// then. Built-in objects added before should not be storable: they would begin the chain anew.
  /// They keep their ids from stored objects, whose records then stay unused.
  ///
  /// Two older layouts are read too, and rewritten: a head record without key::nextId that lists
  /// the ids in a u32 array under key 1; and none, where the ids ascend.
  virtual void init();

  // State. Services may read it; it is changed through the operations above.

  /// Every object by its id. Owned.
  nv::IdMap<OObject> objects;
  /// The ends of the order: its `next` is the first object, its `prev` the last.
  OObject head;
  /// Ids whose record is to be written or removed by the next flush.
  std::set<std::uint32_t> pending;
  /// The ids in use.
  nv::Allocator ids;
  /// Owned; null without a store.
  nv::Store* store;
  /// Ids of the objects that users may not change. All of them in `objects`.
  std::set<std::uint32_t> dynamicIds;
  bool autoStore = true;
  /// While `init` restores: writes are put off.
  bool restoring = false;

 private:
  /// The next storable id behind objects that are not storable, as a walk found it.
  using NextIds = std::unordered_map<const OObject*, std::uint32_t>;

  void link(OObject* obj, OObject* next);
  void unlink(OObject* obj);
  /// Who stands at the position that a request gives: `head` for the end, null for nobody.
  OObject* targetOf(std::uint32_t position);
  /// The target of before, if what the service supplies has left it there; else `head`.
  OObject* targetAgain(std::uint32_t targetId);
  /// Whether `obj` has a place in the stored chain.
  bool isStored(OObject& obj) const { return store != nullptr && obj.isStorable(); }
  bool holds(std::uint32_t id, const OObject* obj) const { return objects.get(id) == obj; }
  OObject* nullAtEnd(OObject* obj) { return obj == &head ? nullptr : obj; }
  std::uint32_t idOrNone(const OObject* obj) const { return obj == &head ? nv::kNoId : obj->id; }

  void tellAdded(const nv::message& request, OObject& obj);
  nv::message undoOfRemove(OObject* obj);
  void relink(OObject* obj, OObject* next);
  std::unique_ptr<OObject> takeOut(OObject* obj, bool wasStored);
  std::unique_ptr<OObject> unlist(OObject* obj);

  /// Stores the object `id`, or `head`, if elements that were written before have left it there.
  void storeAgain(std::uint32_t id);
  void removeRecord(std::uint32_t id);
  void closeGap(std::uint32_t id);
  void storeAdded(OObject* obj);
  void storeChange(OObject& old, OObject& obj);
  void saveWithNext(OObject* obj, std::uint32_t next);
  void flushOne(std::uint32_t id, NextIds& known);
  std::uint32_t nextStorableId(OObject* obj, NextIds& known);
  void restoreChain(std::uint32_t first);
  void restoreOlder(const nv::message& headRecord);
  void reportUnused();

  /// Records that the chain leads to and that became no objects, with whose record leads there.
  /// They wait for a start that takes them, until an object needs their ids.
  std::map<std::uint32_t, std::uint32_t> passedOver_;
  /// Counts the changes of the order, by which a walk knows that what it noted still holds.
  std::uint64_t orderChanges_ = 0;
};
