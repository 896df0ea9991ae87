#include "cfgman/update_task.h"

#include <utility>

#include "cfgman/run_task.h"
#include "cfgman/update.h"

void UpdateTask::run(CfgMan& manager) && {
  if (source == Source::outside && manager.isReadingStore()) {
    manager.waiting_.push_back(std::move(*this));
    return;
  }
  Update(manager, std::move(*this)).run();
}

void CfgMan::post(UpdateTask task) {
  runTask->post([watch = token_.watch(), task = std::move(task)]() mutable {
    if (auto* const manager = watch.get()) std::move(task).run(*manager);
  });
}

void CfgMan::scheduleUpdate(unsigned id, nv::message cfg, nv::message state, vset<unsigned> keys,
                            nv::message request) {
  post({UpdateTask::Source::outside, id, std::move(cfg), std::move(state), std::move(keys),
        std::move(request)});
}
