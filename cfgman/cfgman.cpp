#include "cfgman/cfgman.h"

#include <algorithm>
#include <utility>

#include "cfgman/cfg_handler.h"
#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/iterator.h"
#include "cfgman/live_managers.h"
#include "cfgman/name_index.h"
#include "cfgman/run_task.h"
#include "cfgman/update_task.h"
#include "platform/follow.h"
#include "platform/looper.h"

namespace key = nv::key;

CfgMan::CfgMan(RunTask* rt)
    : doGet(defDoGet),
      doCmd([this](nv::Handler*, const nv::message& cmd) { defDoCmd(cmd); }),
      configIds{key::dynamic.uid(),  key::absent.uid(), key::nextId.uid(),  key::cfgFlagA.uid(),
                key::cfgFlagD.uid(), key::name.uid(),   key::cfgText.uid(), key::defaultCfg.uid()},
      stateIds{key::nextId.uid(), key::stateFlag.uid()},
      order(std::make_unique<ItemOrder>()),
      runTask(rt ? rt : getGlobalRunTask()),
      names_(std::make_unique<NameIndex>(*this)) {
  liveManagers().push_back(this);
}

CfgMan::~CfgMan() {
  token_.end();
  delete handler;
  auto& live = liveManagers();
  live.erase(std::remove(live.begin(), live.end(), this), live.end());
  for (auto& remote : remotes) nv::stopFollow(std::exchange(remote.handle, nullptr));
  delete std::exchange(store, nullptr);
  delete std::exchange(alloc, nullptr);
  // What the items release must not find the half of their manager that is left.
  for (const auto [id, item] : std::exchange(items, {})) {
    order->drop(*item);
    item->inTree = false;
    if (item->cookie == nullptr) delete item;
  }
}

void CfgMan::setHandler(unsigned id) {
  if (handler != nullptr) return;
  handler = new CfgHandler(this);
  links.push_back(handler);
  nv::getLooper()->addHandler(id, handler);
}

void CfgMan::setAllocator(unsigned min, unsigned max) {
  delete alloc;
  alloc = new nv::Allocator(min, max);
  allocMin = min;
  allocMax = max;
}

CfgMan::Iterator CfgMan::begin() {
  if (ordered) return {this, order->first()};
  return {this, items.empty() ? nullptr : items.begin()->second};
}

CfgMan::Iterator CfgMan::end() { return {this, nullptr}; }

void CfgMan::updatePositions() {
  if (!ordered || positionsValid) return;
  positionsValid = true;
  order->number();
}

std::string CfgMan::generateDefaultName() { return names_->nextName(); }
