/// One configuration object of a service: a block of settings.
#pragma once

#include <cstdint>
#include <string>

#include "containers/object.h"
#include "platform/export.h"
#include "platform/handler.h"
#include "platform/store.h"

/// Answers get and set for one object and keeps it in the store.
///
/// A service derives from it, supplies its kind of object and its checks, calls `init()` once and
/// registers the holder with the event loop:
///
///     class Identity : public AHolder {
///      public:
///       Identity() : AHolder("identity") {}
///       Object* newObject() override { return new Settings; }
///       void copyObject(Object* dst, Object* src) override { settings(dst) = settings(src); }
///       nv::message checkChange(Object*, Object* obj) override { return check(settings(obj)); }
///       void objChanged(Object*, Object* obj) override { use(settings(obj)); }
///     };
///
/// A set that is refused leaves object and store as they were. Accepted, in this order: the
/// service's `objChanged`, the store (now, or at the next flush), subscribers, the undo record, the
/// reply. Subscribers are told of object 0xffffffff.
///
/// Where `mergeOnSet()` and `acceptsManaged()` are true, parties beside the user each keep a
/// configuration of their own in the object: a set that carries key::managedId changes only the
/// message with that managed id in the array key::managedConfigs, makes it when there is none, or,
/// with key::absent, drops it. The element decides what the array means. Such a set is not undone.
///
/// Record 0 of the store is what the element writes with nv::kStoreBit. Owns its object and its
/// store. Event-loop thread only. What the service supplies may call back, but must not end the
/// holder.
class CONFKIT_API AHolder : public nv::Handler {
 public:
  /// An empty `storeName`: nothing is stored.
  explicit AHolder(const std::string& storeName);
  /// A write that was put off is lost.
  ~AHolder() override;

  // Commands. Valid after `init`.

  /// The configuration, with key::defaultCfg before it when nv::kDefaultCfgBit is asked for.
  nv::message cmdGet(const nv::message& request) override;
  /// Applies the request. Replies what `checkChange` said; refused when the request speaks for a
  /// managing party and `acceptsManaged()` is false. Undone by a set of the earlier values.
  nv::message cmdSet(const nv::message& request) override;
  /// The configuration, whatever `id`.
  nv::message getObject(std::uint32_t id, std::uint32_t flags) override;
  /// 0xffffffff: there is nothing to count.
  std::uint32_t objectCount() override;

  /// The service has changed the object: stores it when `mayStore` is true and it is storable, and
  /// tells subscribers.
  void changed(bool mayStore);

  // The store. Without one all of these do nothing.

  /// Writes the record, now or at the next flush. The caller has asked whether it is storable.
  void storeObj();
  /// Writes the record if that was put off.
  void flushConfig();
  /// Whether changes are written at once (as at first) or put off until a flush. Turning it on
  /// flushes.
  void setAutoStore(bool on);

  // What a service supplies. The order of these declarations is part of the binary interface; new
  // ones go last.

  /// A new object with the default configuration, made with `new`.
  virtual Object* newObject() = 0;
  /// Copies into `dst` all that `setConfig` can change: a backup is made and put back with it.
  virtual void copyObject(Object* dst, Object* src) = 0;
  /// Whether `obj` may be as it is now; an error reply refuses, any other message becomes the
  /// reply. `old` is a copy of how it was, null when `obj` was just loaded.
  virtual nv::message checkChange(Object* old, Object* obj) = 0;
  /// `obj` was changed by a command, or loaded (`old` is null).
  virtual void objChanged(Object* old, Object* obj) = 0;
  /// The configuration of a new object, for clients that ask for it.
  virtual nv::message getDefaultCfg();
  /// Whether the element is handed complete configurations, with the request merged in, instead of
  /// requests.
  virtual bool mergeOnSet();
  /// Whether parties beside the user may keep configurations of their own.
  virtual bool acceptsManaged();
  /// Makes the object and loads it. Called once by the service, before it registers the holder.
  /// Without a store no hook is called. A record that `checkChange` refuses is reported in one line
  /// on the standard output and stays in the store; the object then has its defaults, and
  /// `objChanged` is not called. Writes nothing.
  virtual void init();

  // State. Services may read it.

  /// Owned; null until `init`.
  Object* object = nullptr;
  bool autoStore = true;
  /// A write was put off.
  bool dirty = false;
  /// Owned; null without a store.
  nv::Store* store;

 private:
  void save();
  void tell();
};
