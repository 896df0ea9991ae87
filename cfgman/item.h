/// One configured object of a manager.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "cfgman/cfgman.h"

/// Something that an item keeps while it has its present configuration, made by `apply`. Released
/// after the next accepted `apply`, and with the item.
struct CONFKIT_API CfgMan::ItemLink {
  virtual ~ItemLink();
  /// The item is done with this one. It may post updates but not run them. The base deletes it.
  virtual void release();
};

/// One configured object. A new one has configuration {key::absent = 1} and state {key::stateFlag =
/// true}. Owned by its manager unless it has a cookie.
struct CONFKIT_API CfgMan::Item {
  Item() = default;
  /// Releases the links.
  ~Item();
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;

  bool exists() const { return config.get(nv::key::absent) == 0; }

  std::uint32_t id = nv::kNoId;
  bool inTree = false;
  /// Whether the item is written to the store, decided once: when it is made, by key::dynamic.
  bool store = true;
  /// Whether it came from a record of the store.
  bool isRecorded = false;
  /// Null while it has no place in the order. Owned.
  OrdNode* ord = nullptr;
  /// Texts that are reported under key::about, asked each time; null for none. Dropped before each
  /// `apply`.
  std::unique_ptr<std::vector<std::function<std::string()>>> about;
  /// Holds key::absent always, and key::objectId once it was applied. Changed by updates alone.
  nv::message config{{nv::key::absent, 1}};
  nv::message state{{nv::key::stateFlag, true}};
  /// Owned. `apply` adds to it.
  std::vector<ItemLink*> links;
  /// Set by `plant` alone. An item with a cookie belongs to whoever planted it and is never freed
  /// here.
  void* cookie = nullptr;
};

/// "Item{ " address ... " }": which of its parts are there.
CONFKIT_API std::ostream& operator<<(std::ostream& os, const CfgMan::Item& item);
