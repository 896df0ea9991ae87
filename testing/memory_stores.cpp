#include "testing/memory_stores.h"

#include <utility>

namespace nv::testkit {

bool MemoryStores::has(std::string_view store) const { return stores_.contains(store); }

const MemoryStores::Records& MemoryStores::records(std::string_view store) const {
  static const Records none;
  const auto at = stores_.find(store);
  return at == stores_.end() ? none : at->second;
}

message MemoryStores::get(std::string_view store, std::uint32_t id) const {
  const Records& all = records(store);
  const auto at = all.find(id);
  return at == all.end() ? message() : at->second;
}

void MemoryStores::set(std::string_view store, std::uint32_t id, message record) {
  stores_[std::string(store)].insert_or_assign(id, std::move(record));
}

void MemoryStores::remove(std::string_view store, std::uint32_t id) {
  stores_[std::string(store)].erase(id);
}

}  // namespace nv::testkit
