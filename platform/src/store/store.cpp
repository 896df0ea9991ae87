#include "platform/store.h"

#include <cstdlib>
#include <iostream>

#include "platform/observer.h"
#include "platform/src/store/commit_queue.h"

namespace nv {

namespace {

CommitQueue& queue() {
  if (CommitQueue* queue = commitQueue()) return *queue;
  std::cerr << "store: this process has no store engine\n";
  std::abort();
}

}  // namespace

Store::Store(std::string_view name) : name_(name) {
  const StoreEngine::Opened opened = queue().open(name);
  table_ = opened.table;
  firstTime_ = opened.firstTime;
  for (const std::uint32_t id : opened.ids) ids_.allocate(id);
}

Store::~Store() = default;

message Store::get(std::uint32_t id) const { return has(id) ? queue().get(table_, id) : message(); }

void Store::set(std::uint32_t id, const message& record) {
  if (Observer* told = observer()) told->storeSet(name_, id, record);
  queue().set(table_, id, record);
  ids_.allocate(id);
}

void Store::remove(std::uint32_t id) {
  if (Observer* told = observer()) told->storeRemove(name_, id);
  if (!has(id)) return;
  queue().remove(table_, id);
  ids_.free(id);
}

}  // namespace nv
