// What one update does to the model.
#include <utility>

#include "message/equal.h"
#include "message/merge.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "tests/support/cfgman_model.h"
#include "tests/support/id_lists.h"
#include "tests/support/names.h"

namespace test {

namespace {

constexpr char kStore[] = "items";

bool isAbsent(const message& cfg) { return cfg.get(key::absent) != 0; }

const vset<unsigned> kConfigIds{0x00fe0007, 0x00fe000a, 0x00fe000d, 0x08fe0005,         0x08fe0013,
                                0x20fe0009, 0x20fe0010, 0x28fe001d, field::number.uid()};
const vset<unsigned> kStateIds{0x00fe0008, 0x08fe0005, field::level.uid()};

}  // namespace

/// One task, phase by phase.
class CfgManModel::Run {
 public:
  Run(CfgManModel& of, Task given) : model(of), task(std::move(given)) {}

  void run() {
    noteOrigin();
    mergeOwnKeys();
    if (const auto code = createIfMissing(); code != 0) return answer(nv::errorMsg(code, ""));
    cfg.insert(key::objectId, task.id);
    giveName();
    mergeState();
    callApply();
    reply.insert(key::objectId, task.id);
    if (nv::isError(reply)) return rollBack();
    publishUndo();
    notify();
    tellObservers();
    if (configChanged) placeAndStore();
    removeIfGone();
    answer(reply);
  }

 private:
  void noteOrigin() {
    auto& request = task.request;
    if (request.has(key::requester)) {
      reply.insert(key::route, request.get(key::requester));
      model.updateOrigin = request.get(key::rights, 0x80000000) >= 0x80000000 ? 2 : 1;
    } else {
      model.updateOrigin = request.has(key::command) ? 3 : 0;
      request.clear();
    }
  }

  void mergeOwnKeys() {
    const auto found = model.items.find(task.id);
    const Item fresh;
    item = found == model.items.end() ? nullptr : &found->second;
    cfg = item ? item->config : fresh.config;
    oldState = item ? item->state : fresh.state;

    const bool hasRequest = !task.request.empty(), isRemoval = isAbsent(task.cfg);
    if (hasRequest && isRemoval) undo = cfg;
    for (const auto uid : kConfigIds)
      if (nv::merge(cfg, task.cfg, &cfg, hasRequest && !isRemoval ? &undo : nullptr, uid))
        changed.insert(uid);
    configChanged = !changed.empty();
  }

  /// The code of the error, 0 when there is none.
  unsigned createIfMissing() {
    auto& id = task.id;
    if (item != nullptr) return 0;
    if (isAbsent(cfg)) return 0xfe0004;
    if (id == kHeadId) return 0xfe0007;
    if (id == kNoId) {
      id = model.allocate().value_or(kNoId);
      if (id == kNoId) return 0xfe0007;
    } else if (!model.service.isExternal(id)) {
      if (model.allocated.contains(id)) return 0xfe0007;
      if (id >= model.service.minId && id <= model.service.maxId) model.allocated.insert(id);
    }
    item = &model.items[id];
    item->store = !cfg.get(key::dynamic);
    created = true;
    return 0;
  }

  void giveName() {
    if (cfg.has(key::name) || isAbsent(cfg)) return;
    const auto& prefix = model.service.namePrefix;
    if (prefix.empty() || prefix[0] == '_') return;
    cfg.insert(key::name, model.defaultName());
    changed.insert(0x20fe0010);
    configChanged = true;
  }

  void mergeState() {
    auto& update = task.state;
    auto& state = item->state;
    const bool replaces = update.get(key::replaceState);
    if (replaces) update.remove(key::replaceState);
    for (const auto uid : kStateIds)
      if (replaces ? !nv::isEqual(state, update, uid)
                   : nv::merge(state, update, &state, nullptr, uid))
        changed.insert(uid);
    if (replaces) state = update;
    changed.merge(task.keys);
  }

  void callApply() {
    const auto hook = model.service.hook;
    if (hook == CfgService::Hook::none || (!configChanged && task.keys.empty())) return;
    if (hook == CfgService::Hook::apply) CfgService::correct(cfg, changed);
    if (hook == CfgService::Hook::applyItem) CfgService::rename(cfg);
    CfgService::judge(cfg, reply);
  }

  void rollBack() {
    if (isAbsent(item->config) && !item->hasCookie)
      model.erase(task.id);
    else
      item->state = oldState;
    answer(reply);
  }

  void publishUndo() {
    auto& request = task.request;
    if (request.empty() || !item->store) return;
    for (auto* const m : {&request, &undo})
      if (!m->has(key::removals)) m->insert(key::removals, {});
    const auto say = [&](unsigned requested, unsigned undone, const char* text) {
      undo.insert(key::command, undone).insert(key::objectId, task.id);
      request.insert(key::command, requested);
      model.told.undo(request, undo, cfg.get(key::name) + text);
    };
    if (isAbsent(item->config)) return say(0xfe0005, 0xfe0006, created ? " added" : " changed");
    if (isAbsent(cfg)) return say(0xfe0006, 0xfe0005, " removed");
    say(0xfe0003, 0xfe0003, " changed");
  }

  void notify() {
    const auto was = isAbsent(item->config) ? message() : item->config;
    const auto is = isAbsent(cfg) ? message() : cfg;
    if (changed.empty()) return;
    model.told.notifyChange(nullptr, task.id, isAbsent(cfg), nullptr, {});
    if (CfgService::interests(was) || CfgService::interests(is))
      model.told.notifyChange(nullptr, task.id, isAbsent(cfg), &model, {});
  }

  void tellObservers() {
    std::swap(item->config, cfg);
    model.observed.push_back(
        {task.id, cfg, item->config, oldState, item->state, changed, model.defaultName()});
    std::swap(item->config, cfg);
  }

  void placeAndStore() {
    if (model.service.ordered) place();
    item->config = cfg;
    if (model.updateOrigin == 3) {
      item->isRecorded = true;
      return;
    }
    // An item that was stored and is dynamic since a restart takes its old record along.
    if (!isAbsent(cfg) && item->store) model.set(task.id, cfg);
    if (!isAbsent(cfg) || !(item->store || item->isRecorded)) return;
    item->isRecorded = false;
    model.told.storeRemove(kStore, task.id);
    model.records.erase(task.id);
  }

  void place() {
    const auto id = task.id;
    const bool isPlaced = contains(model.order, id);
    if (cfg.has(key::nextId) && cfg.get(key::nextId) == id) {
      const auto next = isPlaced ? nextIn(model.order, id) : kNoId;
      if (next != kNoId)
        cfg.insert(key::nextId, next);
      else
        cfg.remove(key::nextId);
    }
    if (isPlaced && !isAbsent(cfg)) {
      const auto next = nextIn(item->store ? model.storeOrder : model.order, id);
      if (cfg.get(key::nextId, next) == next) return;
    }
    if (isPlaced) model.unlink(id);
    if (!isAbsent(cfg)) model.link(id, cfg.get(key::nextId, kNoId), model.updateOrigin != 3);
  }

  void removeIfGone() {
    if (!isAbsent(cfg)) return;
    std::erase(model.order, task.id);
    std::erase(model.storeOrder, task.id);
    if (!item->hasCookie) model.erase(task.id);
  }

  void answer(message text) {
    if (task.request.empty()) return;
    text.insert(key::route, task.request.get(key::requester));
    model.told.reply(task.request, text);
  }

  CfgManModel& model;
  Task task;
  Item* item = nullptr;
  message cfg, oldState, undo, reply;
  vset<unsigned> changed;
  bool configChanged = false, created = false;
};

void CfgManModel::runAll() {
  while (!tasks_.empty()) {
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    Run(*this, std::move(task)).run();
  }
}

std::optional<std::uint32_t> CfgManModel::allocate() {
  for (auto id = service.minId; id <= service.maxId; ++id)
    if (allocated.insert(id).second && !items.contains(id)) return id;
  return {};
}

void CfgManModel::erase(std::uint32_t id) {
  items.erase(id);
  if (!service.isExternal(id)) allocated.erase(id);
}

void CfgManModel::set(std::uint32_t id, const message& record) {
  told.storeSet(kStore, id, record);
  records[id] = record;
}

// Places.

void CfgManModel::unlink(std::uint32_t id) {
  if (items[id].store) {
    const auto next = nextIn(storeOrder, id);
    if (const auto at = indexOf(storeOrder, id); at == 0) {
      set(kHeadId, {{key::nextId, next}});
    } else {
      auto& previous = items[storeOrder[at - 1]].config;
      if (next == kNoId)
        previous.remove(key::nextId);
      else
        previous.insert(key::nextId, next);
      set(storeOrder[at - 1], previous);
    }
  }
  if (const auto at = indexOf(order, id); at > 0) {
    const auto next = nextIn(order, id);
    message state{{key::removals, {}}};
    if (next == kNoId)
      state.append(key::removals, 0x08fe0005);
    else
      state.insert(key::nextId, next);
    schedule({order[at - 1], {}, state, {}, {}});
  }
  std::erase(order, id);
  std::erase(storeOrder, id);
  items[id].position = kNoId;
}

void CfgManModel::link(std::uint32_t id, std::uint32_t before, bool writes) {
  const auto found = items.find(before);
  const auto elsewhere = before == kNoId ? order.size() : 0;
  if (items[id].store) {
    auto next = before;
    while (items.contains(next) && (next == id || !items[next].store)) next = nextIn(order, next);
    const bool isLast = before == kNoId || found != items.end();
    const auto at = isLast ? indexOf(storeOrder, next) : 0;  // before the next one that is stored
    insertAt(storeOrder, at, id);
    if (writes && at == 0) set(kHeadId, {{key::nextId, id}});
    if (writes && at > 0) {
      const auto previous = storeOrder[at - 1];
      set(previous, items[previous].config.insert(key::nextId, id));
    }
  }
  const auto at = found == items.end() ? elsewhere : indexOf(order, before);
  insertAt(order, at, id);
  if (at > 0) schedule({order[at - 1], {}, {{key::nextId, id}}, {}, {}});
  number(id);
}

void CfgManModel::number(std::uint32_t id) {
  auto& position = items[id].position;
  const auto at = indexOf(order, id);
  if (order.size() == 1) {
    position = 0x80000000;
    return;
  }
  const bool isFirst = at == 0, isLast = at + 1 == order.size();
  if (isLast && items[order[at - 1]].position < 0xfffffff0)
    position = items[order[at - 1]].position + 2;
  else if (isFirst && items[order[1]].position > 0x10)
    position = items[order[1]].position - 2;
  else
    positionsValid = false;
}

}  // namespace test
