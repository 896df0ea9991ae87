// The store of a manager, and how its records become items.
#include <utility>
#include <vector>

#include "cfgman/cfgman.h"
#include "cfgman/loading_order.h"
#include "cfgman/run_task.h"
#include "cfgman/update_task.h"
#include "platform/commands.h"

namespace key = nv::key;

void CfgMan::setStore(const std::string& name, bool isOrdered) {
  if (store != nullptr) return;
  ordered = isOrdered;
  store = new nv::Store(name);
  storeUnread_ = true;
  runTask->post([watch = token_.watch(), name] {
    if (auto* const manager = watch.get()) manager->setStoreImpl(name);
  });
}

/// One task a record, so that a large store does not stop the loop.
void CfgMan::setStoreImpl(const std::string&) {
  const auto& ids = store->ids();
  const auto found = ordered ? loadingOrder(*store)
                             : std::vector<std::uint32_t>(ids.begin(), ids.end());
  storeUnread_ = false;
  recordsLeft_ = found.size();
  if (found.empty()) return storeRead();

  const auto watch = token_.watch();
  auto* const runner = runTask;
  for (const auto id : found)
    runner->post([watch, id] {
      if (auto* const manager = watch.get()) manager->loadRecord(id);
    });
}

void CfgMan::loadRecord(std::uint32_t id) {
  const auto watch = token_.watch();
  auto record = store->get(id);
  record.insert(key::absent, 0);
  UpdateTask{UpdateTask::Source::record,        id, std::move(record), {}, {},
             {{key::command, nv::cmd::addObj}}}
      .run(*this);
  if (!watch.gone() && --recordsLeft_ == 0) storeRead();
}

void CfgMan::storeRead() {
  for (auto& task : std::exchange(waiting_, {})) post(std::move(task));
}
