/// The element of a container: one configuration object of a service.
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"
#include "platform/keys.h"
#include "platform/message.h"

/// A service derives its own element from it, adds its configuration as members and overrides what
/// differs.
///
/// An element belongs to its container from the moment it is handed over or made by `newObject()`;
/// the container deletes it. Every operation may be called at any time, and none may remove the
/// element from its container.
///
///     struct Host : Object {
///       std::string address;
///       void getConfig(nv::message& out, unsigned) override { out.insert(kAddress, address); }
///       void setConfig(const nv::message& in, unsigned) override {
///         if (in.has(kAddress)) address = in.get(kAddress);
///       }
///     };
class CONFKIT_API Object {
 public:
  virtual ~Object();

  /// Whether the element is kept in the store; otherwise it lives in memory only. May change at any
  /// time and is asked anew each time.
  virtual bool isStorable();
  /// Whether changes by command publish an undo record. The base returns isStorable().
  virtual bool isUndoable();
  /// Whether changes are announced to subscribers.
  virtual bool isNotifying();
  /// What people call the element: the first words of the description of its undo records.
  virtual std::string name();
  /// Who manages the element; 0xffffffff: nobody does. Only who gives the same id may change the
  /// element.
  virtual std::uint32_t managedId();
  /// The base ignores it: its elements are never managed.
  virtual void setManagedId(std::uint32_t id);
  /// Adds the configuration to `out`, which may hold other fields already.
  ///
  /// `flags` are the client's (5 unless it says otherwise) without nv::kStoreBit. The container
  /// alone sets that bit: then the complete configuration is wanted, as it is stored and as changes
  /// are merged into it.
  virtual void getConfig(nv::message& out, std::uint32_t flags);
  /// Takes the configuration from `in`. Fields that are absent keep their values, except in a
  /// container that merges on set: there `in` is a complete configuration. Either way `in` may hold
  /// the fields of the request's envelope too. `flags` is 5 for commands and has nv::kStoreBit when
  /// a record is restored.
  virtual void setConfig(const nv::message& in, std::uint32_t flags);

  /// Unique in the container, which alone sets it; 0xffffffff until an id is assigned.
  std::uint32_t id = nv::kNoId;
};
