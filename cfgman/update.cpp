#include "cfgman/update.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "cfgman/cfg_handler.h"
#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/link.h"
#include "cfgman/name_index.h"
#include "cfgman/placement.h"
#include "cfgman/run_task.h"
#include "message/merge.h"
#include "platform/commands.h"
#include "platform/errors.h"

namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;

namespace {

/// Does something when the scope ends, however it ends.
template <class Function>
class AtEnd {
 public:
  explicit AtEnd(Function function) : function_(std::move(function)) {}
  ~AtEnd() { function_(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  Function function_;
};

/// A release may look at what the item holds by then: the links are out of it.
void releaseAll(const std::vector<CfgMan::ItemLink*>& links) {
  for (auto* const link : links) link->release();
}

}  // namespace

Update::Update(CfgMan& manager, UpdateTask task)
    : watch_(manager.token_.watch()), manager_(manager), task_(std::move(task)) {}

void Update::run() {
  noteOrigin();
  findItem();
  mergeOwnKeys();
  if (!createIfMissing()) return;
  giveName();
  if (lost()) return;
  mergeState();
  callApply();
  if (lost()) return;
  if (nv::isError(reply_)) return rollBack();
  publishUndo();
  if (lost()) return;
  tellObservers();
  if (lost()) return;
  placeAndStore();
  if (lost()) return;
  removeIfGone();
  if (!watch_.gone()) answer(std::move(reply_.insert(key::objectId, task_.id)));
}

// A request without a requester is nobody's: it gets no reply and is not undone.
void Update::noteOrigin() {
  auto& request = task_.request;
  if (request.has(key::requester)) {
    reply_.insert(key::route, request.get(key::requester));
    const auto rights = static_cast<std::int32_t>(request.get(key::rights, nv::kSystemRights));
    origin_ = rights < 0 ? CfgMan::kFromSystem : CfgMan::kFromUser;
  } else {
    origin_ = request.has(key::command) ? CfgMan::kFromStore : CfgMan::kFromService;
    request.clear();
  }
  manager_.updateOrigin = origin_;
}

void Update::findItem() {
  manager_.allocator();  // made here even if the update fails
  item_ = manager_.find(task_.id);
  if (item_ != nullptr) {
    cfg_ = item_->config;
    oldState_ = item_->state;
  } else {
    const Item fresh;
    cfg_ = fresh.config;
    oldState_ = fresh.state;
  }
}

void Update::mergeOwnKeys() {
  nv::message* undo = nullptr;
  if (!task_.request.empty()) {
    if (task_.cfg.get(key::absent) != 0)
      undo_ = cfg_;
    else
      undo = &undo_;
  }
  for (const auto uid : manager_.configIds)
    if (nv::merge(cfg_, task_.cfg, &cfg_, undo, uid)) changed_.insert(uid);
  configChanged_ = !changed_.empty();
}

bool Update::createIfMissing() {
  if (item_ == nullptr) {
    if (isRemoval()) return answer(nv::errorMsg(err::noSuchObject, "")), false;
    const auto id = claimId();
    if (watch_.gone()) return false;
    if (id == nv::kNoId) return answer(nv::errorMsg(err::idInUse, "")), false;
    task_.id = id;
    item_ = manager_.makeItem(id, !cfg_.get(key::dynamic));
    created_ = true;
  }
  treeSeen_ = manager_.treeChanges_;
  cfg_.insert(key::objectId, task_.id);
  return true;
}

/// The id for a new item; 0xffffffff when it cannot be had.
std::uint32_t Update::claimId() {
  const auto id = task_.id;
  if (id == nv::kNoId) return manager_.claimId();
  if (id == nv::kHeadId) return nv::kNoId;  // the head of the stored chain
  const bool isExternal = manager_.isExternal(id);
  if (watch_.gone() || manager_.find(id) != nullptr) return nv::kNoId;
  if (isExternal) return id;
  if (manager_.alloc->isAllocated(id)) return nv::kNoId;
  manager_.alloc->allocate(id);
  return id;
}

void Update::giveName() {
  if (cfg_.has(key::name) || isRemoval()) return;
  const auto& prefix = manager_.namePrefix;
  std::string name;
  if (const auto makeName = manager_.makeName)
    name = makeName();
  else if (!prefix.empty() && prefix.front() != '_')
    name = manager_.generateDefaultName();
  else
    return;
  cfg_.insert(key::name, name);
  changed_.insert(key::name.uid());
  configChanged_ = true;
}

void Update::mergeState() {
  manager_.directUpdateState(item_, std::move(task_.state), &changed_);
  changed_.merge(task_.keys);
}

void Update::callApply() {
  if (!manager_.apply && !manager_.applyItem) return;
  if (!configChanged_ && task_.keys.empty()) return;

  auto outdated = std::exchange(item_->links, {});
  item_->about.reset();
  callHook();
  if (!isItemThere()) return releaseAll(outdated);
  if (nv::isError(reply_)) outdated.swap(item_->links);
  releaseAll(outdated);
}

void Update::callHook() {
  manager_.curItem = item_;
  manager_.curKeys = &changed_;
  const AtEnd clear([this] {
    if (watch_.gone()) return;
    manager_.curItem = nullptr;
    manager_.curKeys = nullptr;
  });

  if (const auto apply = manager_.apply) return apply(&manager_, item_, cfg_, changed_, reply_);
  const auto applyItem = manager_.applyItem;
  withNewConfig([&] { applyItem(&manager_, item_, changed_, reply_); });
}

template <class Call>
void Update::withNewConfig(Call call) {
  swapConfig();
  const AtEnd swapBack([this] {
    if (isItemThere()) swapConfig();
  });
  call();
}

void Update::swapConfig() {
  const bool renames = item_->config.view(key::name) != cfg_.view(key::name);
  if (renames) manager_.names_->remove(*item_);
  item_->config.swap(cfg_);
  if (renames) manager_.names_->add(*item_);
}

void Update::rollBack() {
  if (!item_->exists() && item_->cookie == nullptr)
    manager_.dropItem(item_);
  else
    item_->state = oldState_;
  if (!watch_.gone()) answer(std::move(reply_.insert(key::objectId, task_.id)));
}

void Update::publishUndo() {
  auto& request = task_.request;
  if (request.empty() || manager_.handler == nullptr || !item_->store) return;
  for (auto* const both : {&request, &undo_})
    if (!both->has(key::removals)) both->insert(key::removals, {});

  const auto inverse = inverseOf();
  undo_.insert(key::command, inverse.undo).insert(key::objectId, task_.id);
  request.insert(key::command, inverse.request);

  const auto describe = manager_.describe;
  const auto label = describe ? describe(cfg_) : cfg_.get(key::name);
  if (watch_.gone() || manager_.handler == nullptr) return;
  manager_.handler->sendUndo(request, undo_, label + inverse.text);
}

Update::Inverse Update::inverseOf() const {
  if (!item_->exists()) return {cmd::addObj, cmd::removeObj, created_ ? " added" : " changed"};
  if (isRemoval()) return {cmd::removeObj, cmd::addObj, " removed"};
  return {cmd::setObj, cmd::setObj, " changed"};
}

void Update::tellObservers() {
  auto& running = manager_.runTask->running;
  const AtEnd restore([&running, before = std::exchange(running, true)] { running = before; });

  const auto observers = manager_.links;
  for (auto* const link : observers) {
    const auto& present = manager_.links;
    if (std::find(present.begin(), present.end(), link) == present.end()) continue;
    withNewConfig([&] {
      link->update(item_, cfg_, item_->config, oldState_, item_->state, changed_);
    });
    if (!isItemThere()) return;
  }
}

void Update::placeAndStore() {
  if (!configChanged_) return;
  Placement placement(manager_, *item_, origin_);
  manager_.names_->remove(*item_);
  if (manager_.ordered) place(placement);
  item_->config = cfg_;
  manager_.names_->add(*item_);
  writeRecord();
  treeSeen_ = manager_.treeChanges_;
  placement.tellNeighbours();
}

void Update::place(Placement& placement) {
  if (cfg_.get(key::nextId, nv::kNoId) == task_.id) keepOwnPlace();
  const bool hasPlace = item_->ord != nullptr;
  const auto next = placement.nextId();
  if (hasPlace && !isRemoval() && cfg_.get(key::nextId, next) == next) return;
  if (hasPlace) placement.unlink();
  if (!isRemoval()) placement.link(cfg_.get(key::nextId, nv::kNoId));
}

/// A move of the item before itself leaves it where it is.
void Update::keepOwnPlace() {
  if (const auto* const next = manager_.order->next(*item_))
    cfg_.insert(key::nextId, next->id);
  else
    cfg_.remove(key::nextId);
}

void Update::writeRecord() {
  if (!item_->store || manager_.store == nullptr || origin_ == CfgMan::kFromStore) return;
  if (isRemoval())
    manager_.store->remove(task_.id);
  else
    manager_.store->set(task_.id, cfg_);
}

void Update::removeIfGone() {
  if (!isRemoval()) return;
  releaseAll(std::exchange(item_->links, {}));
  if (!isItemThere()) return;
  manager_.order->drop(*item_);
  if (item_->cookie == nullptr) manager_.dropItem(item_);
}

void Update::answer(nv::message reply) {
  if (manager_.handler != nullptr && !task_.request.empty())
    manager_.handler->replyMessage(task_.request, std::move(reply));
}

bool Update::isItemThere() const {
  if (watch_.gone()) return false;
  return manager_.treeChanges_ == treeSeen_ || manager_.find(task_.id) == item_;
}

bool Update::lost() {
  if (isItemThere()) return false;
  if (!watch_.gone()) answer(nv::errorMsg(err::noSuchObject, ""));
  return true;
}
