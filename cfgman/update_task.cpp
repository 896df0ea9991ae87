#include "cfgman/update_task.h"

#include <utility>

#include "cfgman/at_end.h"
#include "cfgman/item.h"
#include "cfgman/run_task.h"
#include "cfgman/update.h"

void CfgMan::scheduleUpdate(unsigned id, nv::message cfg, nv::message state, vset<unsigned> keys,
                            nv::message request) {
  post({UpdateTask::Source::outside, id, std::move(cfg), std::move(state), std::move(keys),
        std::move(request)});
}

void CfgMan::post(UpdateTask task) {
  runTask->post([life = watch(), task = std::move(task)]() mutable {
    if (auto* const manager = life.get()) manager->take(std::move(task));
  });
}

void CfgMan::take(UpdateTask&& task) {
  if (mustWait(task)) {
    waiting_.push_back(std::move(task));
    if (!isReadingStore()) postWaiting();
  } else {
    update(std::move(task));
  }
}

/// Before all records are items, an update could take the id of one that is still to come, or put
/// itself into a chain of which only the end is there. What makes, moves and removes no item need
/// not wait.
bool CfgMan::mustWait(const UpdateTask& task) const {
  if (task.source != UpdateTask::Source::outside) return false;
  // Updates of one item take effect in the order in which they came.
  if (!waiting_.empty()) return true;
  if (!isReadingStore()) return false;
  const auto* const item = find(task.id);
  return !task.request.empty() || item == nullptr || !item->exists() ||
         task.cfg.has(nv::key::nextId) || task.cfg.get(nv::key::absent) != 0;
}

void CfgMan::postWaiting() {
  runTask->post([life = watch()] {
    if (auto* const manager = life.get()) manager->updateWaiting();
  });
}

void CfgMan::updateWaiting() {
  auto task = std::move(waiting_.front());
  waiting_.pop_front();
  update(std::move(task));
}

void CfgMan::update(UpdateTask&& task) {
  if (isUpdating_) {
    nested_.push_back(std::move(task));
    return;
  }
  const auto life = watch();
  isUpdating_ = true;
  const AtEnd over([this, &life] {
    if (!life.gone()) isUpdating_ = false;
  });
  Update(*this, std::move(task)).run();
  while (!life.gone() && !nested_.empty()) {
    auto next = std::move(nested_.front());
    nested_.pop_front();
    Update(*this, std::move(next)).run();
  }
}
