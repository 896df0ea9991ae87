/// Configuration objects of a service, each under a 32-bit id, ascending.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string_view>

#include "containers/object.h"
#include "platform/allocator.h"
#include "platform/export.h"
#include "platform/handler.h"
#include "platform/id_map.h"
#include "platform/store.h"

/// A position in the objects of an AMap: one object, or the end. Valid while its object is in the
/// map.
class AMapIterator {
 public:
  /// The object at this position. Requires: not the end.
  Object* get() const { return at_->second; }
  /// Goes on to the object with the next higher id. Requires: not the end.
  void next() { ++at_; }
  friend bool operator==(const AMapIterator&, const AMapIterator&) = default;

  // The same for range-based loops.
  Object* operator*() const { return get(); }
  AMapIterator& operator++() { return next(), *this; }

 private:
  friend class AMap;
  using Position = nv::IdMap<Object>::iterator;
  explicit AMapIterator(Position at) : at_(at) {}
  Position at_;
};

/// Answers get one, set, add, remove, get all and get count for a collection of objects, and keeps
/// the storable ones in the store.
///
/// A service derives from it, supplies its kind of object and its checks, calls `init()` once and
/// registers the map with the event loop:
///
///     class HostMap : public AMap {
///      public:
///       HostMap() : AMap("hosts", 1, 65535) {}
///       Object* newObject() override { return new Host; }
///       void copyObject(Object* dst, Object* src) override { host(dst) = host(src); }
///       nv::message checkAdd(Object* obj) override { return check(host(obj)); }
///       ...
///     };
///
/// A command checks first, changes second and tells last. Refused: the reply is an error, and
/// objects, ids, dynamic marks and store are as they were. Accepted, in this order: the store (now,
/// or at the next flush), the service's `obj...` hook, subscribers, the undo record, the reply.
///
/// Owns its objects and its store. Event-loop thread only. What the service supplies may call back
/// into the map, also to add and remove objects, but must not remove the object that it is called
/// for, nor end the map.
class CONFKIT_API AMap : public nv::Handler {
 public:
  /// Ids are given out from [minId, maxId], which should end below 0xffffffff. An empty
  /// `storeName`: nothing is stored.
  AMap(std::string_view storeName, std::uint32_t minId, std::uint32_t maxId);
  /// Deletes all objects, when the store is closed already. What was not flushed is lost.
  ~AMap() override;

  // Commands.

  /// {key::managedId when managed, the object's configuration, key::objectId}; err::noSuchObject.
  nv::message cmdGetObj(const nv::message& request, std::uint32_t id) override;
  /// Applies the request to the object. Replies what `checkChange` said; err::noSuchObject; refused
  /// when the request does not speak for who manages the object, or when a user changes a dynamic
  /// one. Undone by a set of the earlier values.
  nv::message cmdSetObj(const nv::message& request, std::uint32_t id) override;
  /// A new object, under the id that the request asks for or else a free one. Replies what
  /// `checkAdd` said and the id. Refused when it would be managed and `acceptsManaged()` is false;
  /// err::noSuchObject for an id outside the range; err::idInUse for one that is taken, and when
  /// none is free. A new object is dynamic when the system asks for it with key::dynamic; that mark
  /// ends with the process. Undone by a remove.
  nv::message cmdAddObj(const nv::message& request) override;
  /// Replies what `checkRemove` said; refused like a set. Undone by an add of the whole
  /// configuration.
  nv::message cmdRemoveObj(const nv::message& request, std::uint32_t id) override;
  /// A page of objects from `startId` on (0xffffffff: the first), at most `count`, at most 1000 and
  /// at most 16384 bytes of them, but one at least; key::startId names the first that is left.
  /// Each: {key::objectId, key::managedId when managed, its configuration}. err::noSuchObject when
  /// there is no object `startId`.
  nv::message cmdGetAll(const nv::message& request, std::uint32_t startId,
                        std::uint32_t count) override;
  nv::message getObject(std::uint32_t id, std::uint32_t flags) override;
  std::uint32_t objectCount() override;

  // Changes by the service itself: no checks, no hooks, no undo records, no dynamic marks.

  /// Puts `obj` into the map and takes ownership of it. Its id must be free, or 0xffffffff to have
  /// one allocated; when none is free, `obj` is deleted and the end returned. Stored when
  /// `mayStore` is true and it is storable.
  AMapIterator add(Object* obj, bool mayStore);
  /// The service has changed `obj`: stores it when `mayStore` is true and it is storable, and tells
  /// subscribers. The record of an object that is no longer storable stays.
  void changed(Object* obj, bool mayStore);
  /// Removes the object and deletes it. Positions of others stay valid.
  void remove(AMapIterator at);

  // Walking the objects, ascending by id.

  AMapIterator begin() { return AMapIterator(objects.begin()); }
  AMapIterator end() { return AMapIterator(objects.end()); }
  /// The object `id`, or the end.
  AMapIterator find(std::uint32_t id) { return AMapIterator(objects.find(id)); }

  // The store. Without one all of these do nothing.
  // Record: {key::objectId, key::managedId when managed, the configuration with nv::kStoreBit}.

  /// Makes an object of a record read under `id`. When `id` is taken the object gets another one,
  /// and the record stays where it is; when none is free nothing happens. A record that
  /// `checkRestore` refuses is reported in one line on the standard output and removed. Subscribers
  /// are not told, and nothing is written.
  void restoreObj(const nv::message& rec, std::uint32_t id, std::uint32_t flags);
  /// Writes the record of `obj`. Requires: there is a store.
  void saveObj(Object* obj);
  /// Writes the record of `obj`, now or at the next flush. The caller has asked whether it is
  /// storable.
  void storeObj(Object* obj);
  /// Removes the record `id`, now or at the next flush.
  void removeObj(std::uint32_t id);
  /// Carries out what was put off, ascending by id: an object that is there and storable then is
  /// written, any other record is removed.
  void flushConfig();
  /// Whether changes are written at once (as at first) or put off until a flush. Turning it on
  /// flushes.
  void setAutoStore(bool on);

  // What a service supplies. A check that returns an error reply refuses; any other message becomes
  // the reply. The order of these declarations is part of the binary interface; new ones go last.

  /// A new object with the default configuration, made with `new`.
  virtual Object* newObject() = 0;
  /// Copies into `dst` the id of `src` and all that `setConfig` can change: a backup is made and
  /// put back with it.
  virtual void copyObject(Object* dst, Object* src) = 0;
  /// The configuration of a new object, for clients that ask for it.
  virtual nv::message getDefaultCfg();
  /// Whether `obj`, read from the store, may come back. It has its id and is not in the map yet.
  virtual nv::message checkRestore(Object* obj) = 0;
  /// Whether the new `obj` may be added. It has its id and is not in the map yet.
  virtual nv::message checkAdd(Object* obj) = 0;
  /// Whether `obj` may be as it is now; `old` is a copy of how it was.
  virtual nv::message checkChange(Object* old, Object* obj) = 0;
  /// Whether `obj` may be removed.
  virtual nv::message checkRemove(Object* obj) = 0;
  /// `obj` was added by a command or restored, and is in the map.
  virtual void objAdded(Object* obj) = 0;
  /// `obj` was changed by a command; `old` is a copy of how it was.
  virtual void objChanged(Object* old, Object* obj) = 0;
  /// `obj` was removed by a command: it is not in the map any more and is deleted next.
  virtual void objRemoved(Object* obj) = 0;
  /// Whether a stored object cannot have its id back.
  virtual bool isIdAllocated(std::uint32_t id);
  /// A free id, claimed; 0xffffffff when there is none.
  virtual std::uint32_t allocateId();
  /// Claims `id`. A command that adds uses the id returned.
  virtual std::uint32_t allocateId(std::uint32_t id);
  virtual void freeId(std::uint32_t id);
  /// Whether elements are handed complete configurations, with the request merged in, instead of
  /// requests.
  virtual bool mergeOnSet();
  /// Whether objects can be managed.
  virtual bool acceptsManaged();
  /// Restores what the store holds, ascending by id. Called once by the service, before it
  /// registers the map. Built-in objects added before should not be storable: they would be
  /// restored beside themselves.
  /// Until it returns, ids of records that are still to come count as free: built-in objects need
  /// ids that are never stored, and `objAdded` must not add storable objects.
  virtual void init();

  // State. Services may read it; it is changed through the operations above.

  /// Every object by its id. Owned.
  nv::IdMap<Object> objects;
  /// Ids whose record is to be written or removed by the next flush.
  std::set<std::uint32_t> pending;
  /// The ids in use.
  nv::Allocator ids;
  /// Owned; null without a store.
  nv::Store* store;
  /// Ids of the objects that users may not change. All of them in `objects`.
  std::set<std::uint32_t> dynamicIds;
  bool autoStore = true;

 private:
  /// An entry of a page or of the store. An element that writes an id of its own has the last word.
  static nv::message recordOf(Object& obj, std::uint32_t flags);
  std::uint32_t claimRestoredId(std::uint32_t id);
  /// Whether `obj` is still there after the service had its say.
  bool holds(std::uint32_t id, const Object* obj) const { return objects.get(id) == obj; }
  void storeChange(Object& old, Object& obj);
  void flushObj(std::uint32_t id);
  void tellAdded(const nv::message& request, Object& obj);
  std::unique_ptr<Object> takeOut(std::uint32_t id);
};
