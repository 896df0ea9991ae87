// The store of a manager, and how its records become items.
#include <utility>
#include <vector>

#include "cfgman/at_end.h"
#include "cfgman/cfgman.h"
#include "cfgman/loading_order.h"
#include "cfgman/name_index.h"
#include "cfgman/run_task.h"
#include "cfgman/update_task.h"
#include "platform/commands.h"

namespace key = nv::key;

void CfgMan::setStore(const std::string& name, bool isOrdered) {
  if (store != nullptr) return;
  ordered = isOrdered;
  names_->forget();
  store = new nv::Store(name);
  storeUnread_ = true;
  runTask->post([life = watch(), name] {
    if (auto* const manager = life.get()) manager->setStoreImpl(name);
  });
}

/// One task a record: a large store does not keep the loop from its other work for long.
void CfgMan::setStoreImpl(const std::string&) {
  const auto& ids = store->ids();
  const auto found =
      ordered ? loadingOrder(*store) : std::vector<std::uint32_t>(ids.begin(), ids.end());
  storeUnread_ = false;
  recordsLeft_ = found.size();
  if (found.empty()) return storeRead();

  const auto life = watch();
  for (const auto id : found) {
    if (life.gone()) return;
    runTask->post([life, id] {
      if (auto* const manager = life.get()) manager->loadRecord(id);
    });
  }
}

void CfgMan::loadRecord(std::uint32_t id) {
  const AtEnd counted([this, life = watch()] {
    if (!life.gone() && --recordsLeft_ == 0) storeRead();
  });
  auto record = store->get(id);
  record.insert(key::absent, 0);
  UpdateTask task{UpdateTask::Source::record, id, std::move(record), {}, {}, {}};
  task.request.insert(key::command, nv::cmd::addObj);
  take(std::move(task));
}

void CfgMan::storeRead() {
  const auto life = watch();
  for (auto left = waiting_.size(); left-- > 0 && !life.gone();) postWaiting();
}
