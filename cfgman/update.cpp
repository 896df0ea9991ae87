#include "cfgman/update.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "cfgman/at_end.h"
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

/// A release may look at what the item holds by then: the links are out of it.
void releaseAll(const std::vector<CfgMan::ItemLink*>& links) {
  for (auto* const link : links) link->release();
}

}  // namespace

Update::Update(CfgMan& manager, UpdateTask&& task)
    : life_(manager.watch()), manager_(manager), task_(std::move(task)) {}

void Update::run() {
  noteOrigin();
  findItem();
  mergeOwnKeys();
  if (!createIfMissing()) return;
  giveName();
  if (life_.gone()) return;
  mergeState();
  callApply();
  if (life_.gone()) return;
  if (nv::isError(reply_)) return rollBack();
  publishUndo();
  if (life_.gone()) return;
  tellObservers();
  if (life_.gone()) return;
  placeAndStore();
  if (life_.gone()) return;
  removeIfGone();
  if (life_.gone()) return;
  answerWithId();
}

// A request without a requester is nobody's: it gets no reply and is not undone.
void Update::noteOrigin() {
  auto& request = task_.request;
  if (request.has(key::requester)) {
    for (const auto hop : request.view(key::requester)) reply_.append(key::route, hop);
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
  static const Item fresh;
  const auto& present = item_ != nullptr ? *item_ : fresh;
  cfg_ = present.config;
  oldState_ = present.state;
}

void Update::mergeOwnKeys() {
  nv::message* undo = nullptr;
  if (!task_.request.empty()) {
    if (task_.cfg.get(key::absent) != 0)
      undo_ = cfg_;
    else
      undo = &undo_;
  }
  changed_.reserve(manager_.configIds.size());
  for (const auto uid : manager_.configIds)
    if (nv::merge(cfg_, task_.cfg, &cfg_, undo, uid)) changed_.insert(uid);
  configChanged_ = !changed_.empty();
}

bool Update::createIfMissing() {
  if (item_ == nullptr && !create()) return false;
  cfg_.insert(key::objectId, task_.id);
  return true;
}

bool Update::create() {
  if (isRemoval()) return refuse(err::noSuchObject);
  const auto id = claimId();
  if (life_.gone()) return false;
  if (id == nv::kNoId) return refuse(err::idInUse);
  task_.id = id;
  item_ = manager_.makeItem(id, !cfg_.get(key::dynamic));
  created_ = true;
  return true;
}

bool Update::refuse(unsigned code) {
  answer(nv::errorMsg(code, ""));
  return false;
}

/// The id for a new item; 0xffffffff when it cannot be had.
std::uint32_t Update::claimId() {
  const auto id = task_.id;
  if (id == nv::kNoId) return manager_.claimId();
  if (id == nv::kHeadId) return nv::kNoId;  // the head of the stored chain
  const bool isExternal = manager_.isExternal(id);
  if (life_.gone()) return nv::kNoId;
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
  if (!life_.gone() && nv::isError(reply_)) outdated.swap(item_->links);
  releaseAll(outdated);
}

void Update::callHook() {
  manager_.curItem = item_;
  manager_.curKeys = &changed_;
  const AtEnd clear([this] {
    if (life_.gone()) return;
    manager_.curItem = nullptr;
    manager_.curKeys = nullptr;
  });

  if (const auto apply = manager_.apply) return apply(&manager_, item_, cfg_, changed_, reply_);
  const auto applyItem = manager_.applyItem;
  withNewConfig([&] {
    const auto before = manager_.names_->note(*item_);
    applyItem(&manager_, item_, changed_, reply_);
    if (!life_.gone()) manager_.names_->renamed(*item_, before);
  });
}

template <class Call>
void Update::withNewConfig(Call call) {
  swapConfig();
  const AtEnd swapBack([this] {
    if (!life_.gone()) swapConfig();
  });
  call();
}

// Default names go by what the items hold at the time.
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
  if (!life_.gone()) answerWithId();
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
  if (life_.gone() || manager_.handler == nullptr) return;
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

  // An observer may add and remove observers.
  const auto observers = manager_.links;
  for (auto* const link : observers) {
    const auto& present = manager_.links;
    if (std::find(present.begin(), present.end(), link) == present.end()) continue;
    withNewConfig(
        [&] { link->update(item_, cfg_, item_->config, oldState_, item_->state, changed_); });
    if (life_.gone()) return;
  }
}

void Update::placeAndStore() {
  goes_ = isRemoval();
  if (!configChanged_) return;
  if (manager_.ordered) place();
  swapConfig();
  if (origin_ == CfgMan::kFromStore)
    item_->isRecorded = true;
  else if (manager_.store != nullptr)
    writeRecord();
}

void Update::place() {
  if (cfg_.get(key::nextId, nv::kNoId) == task_.id) keepOwnPlace();
  Placement placement(manager_, *item_, origin_);
  const bool hasPlace = item_->ord != nullptr;
  const auto next = placement.nextId();
  if (hasPlace && !goes_ && cfg_.get(key::nextId, next) == next) return;
  // Its name counts as long as it has a place, also while it changes that.
  if (hasPlace && goes_) manager_.names_->remove(*item_);
  if (hasPlace) placement.unlink();
  if (!goes_) placement.link(cfg_.get(key::nextId, nv::kNoId));
  if (!hasPlace && !goes_) manager_.names_->add(*item_);
}

/// A move of the item before itself leaves it where it is.
void Update::keepOwnPlace() {
  if (const auto* const next = manager_.order->next(*item_))
    cfg_.insert(key::nextId, next->id);
  else
    cfg_.remove(key::nextId);
}

// An item that was made dynamic after it was stored still has the record that it came from.
void Update::writeRecord() {
  auto& store = *manager_.store;
  if (!goes_ && item_->store)
    store.set(task_.id, item_->config);
  else if (goes_ && (item_->store || std::exchange(item_->isRecorded, false)))
    store.remove(task_.id);
}

void Update::removeIfGone() {
  if (!goes_) return;
  releaseAll(std::exchange(item_->links, {}));
  if (life_.gone()) return;
  // Still in its place when only keys of the update led here.
  if (item_->ord != nullptr) manager_.names_->remove(*item_);
  manager_.order->drop(*item_);
  if (item_->cookie == nullptr) manager_.dropItem(item_);
}

void Update::answerWithId() { answer(std::move(reply_.insert(key::objectId, task_.id))); }

void Update::answer(nv::message reply) {
  if (manager_.handler != nullptr && !task_.request.empty())
    manager_.handler->replyMessage(task_.request, std::move(reply));
}
