#include "tests/support/cfgman_model.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/iterator.h"
#include "message/equal.h"
#include "message/merge.h"
#include "platform/commands.h"
#include "platform/errors.h"

namespace test {

namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::kHeadId;
using nv::kNoId;
using nv::message;

namespace {

constexpr char kStore[] = "items";

bool isAbsent(const message& cfg) { return cfg.get(key::absent) != 0; }

std::size_t indexOf(const Ids& ids, std::uint32_t id) {
  return static_cast<std::size_t>(std::find(ids.begin(), ids.end(), id) - ids.begin());
}
bool contains(const Ids& ids, std::uint32_t id) { return indexOf(ids, id) < ids.size(); }
std::uint32_t nextIn(const Ids& ids, std::uint32_t id) {
  const auto at = indexOf(ids, id) + 1;
  return at < ids.size() ? ids[at] : kNoId;
}
void insertAt(Ids& ids, std::size_t at, std::uint32_t id) {
  ids.insert(ids.begin() + static_cast<std::ptrdiff_t>(at), id);
}

const vset<unsigned> kConfigIds{0x00fe0007, 0x00fe000a, 0x00fe000d, 0x08fe0005,         0x08fe0013,
                                0x20fe0009, 0x20fe0010, 0x28fe001d, field::number.uid()};
const vset<unsigned> kStateIds{0x00fe0008, 0x08fe0005, field::level.uid()};

/// The ids that are to be loaded, in order: what names no record is the end of a chain, no id comes
/// twice, and what nothing led to comes last, ascending.
Ids loadingOrder(const Records& records) {
  Ids ends, scheduled;
  std::multimap<std::uint32_t, std::uint32_t> pairs;
  for (const auto& [id, record] : records) {
    if (id == kNoId) continue;
    const auto next = record.get(key::nextId, kNoId);
    if (next == id || next >= kHeadId || !records.contains(next))
      ends.push_back(id);
    else
      pairs.emplace(next, id);
  }
  while (!ends.empty() || !pairs.empty()) {
    if (ends.empty()) {
      ends.push_back(pairs.begin()->first);
      pairs.erase(pairs.begin());
    }
    const auto taken = ends.back();
    ends.pop_back();
    if (taken < kHeadId && !contains(scheduled, taken)) scheduled.push_back(taken);
    const auto [first, last] = pairs.equal_range(taken);
    for (auto at = first; at != last; ++at) ends.push_back(at->second);
    pairs.erase(first, last);
  }
  for (const auto& [id, record] : records)
    if (id < kHeadId && !contains(scheduled, id)) scheduled.push_back(id);
  return scheduled;
}

}  // namespace

// The service.

void CfgService::judge(const message& cfg, message& reply) {
  if (cfg.get(field::number) == 13)
    reply = nv::errorMsg(0x1234, "the service says no");
  else
    reply.insert(field::number, cfg.get(field::number))
        .insert(field::level, static_cast<unsigned>(reply.get(key::route).size()));
}

void CfgService::correct(message& cfg, vset<unsigned>& keys) {
  if (keys.has(1)) cfg.insert(key::cfgText, "told");
  if (cfg.get(field::number) == 6) cfg.insert(key::absent, 1);
  if (cfg.get(field::number) != 7) return;
  cfg.insert(field::number, 8);
  keys.insert(field::number.uid());
}

void CfgService::rename(message& cfg) {
  if (cfg.get(key::name) == "lamp") cfg.insert(key::name, "vlan999");
  if (cfg.get(key::name) == "vlan1234") cfg.insert(key::name, "made");
}

void CfgService::setUp(CfgMan& manager) const {
  manager.configIds.insert(field::number.uid());
  manager.stateIds.insert(field::level.uid());
  manager.namePrefix = namePrefix;
  manager.defcfg = defcfg;
  manager.setAllocator(minId, maxId);
  if (hasExternalIds) manager.isExternalId = [now = *this](auto id) { return now.isExternal(id); };
  if (hook == Hook::apply)
    manager.apply = [](auto*, auto*, message& cfg, vset<unsigned>& keys, message& reply) {
      correct(cfg, keys);
      judge(cfg, reply);
    };
  if (hook == Hook::applyItem)
    manager.applyItem = [](CfgMan* served, CfgMan::Item* item, auto&, message& reply) {
      // Leaves no trace, before the name changes or after, also when the change is refused.
      if (item->id % 2 == 0) served->generateDefaultName();
      rename(item->config);
      if (item->id % 2 != 0) served->generateDefaultName();
      judge(item->config, reply);
    };
}

// The model.

void CfgManModel::restart(const CfgService& now) {
  service = now;
  items.clear();
  order.clear();
  storeOrder.clear();
  allocated.clear();
  positionsValid = true;
  updateOrigin = 0;
  Ids ids;
  for (const auto& [id, record] : records) ids.push_back(id);
  if (service.ordered) ids = loadingOrder(records);
  for (const auto id : ids) {
    auto record = records[id];
    record.insert(key::absent, 0);
    schedule({id, record, {}, {}, {{key::command, cmd::addObj}}});
  }
  runAll();
}

void CfgManModel::command(const message& cmd) {
  const auto code = cmd.get(key::command);
  if (code == cmd::getObj || code == cmd::get || code == cmd::getAll || code == cmd::getCount)
    return told.reply(cmd, read(cmd).insert(key::route, cmd.get(key::requester)));
  message m = cmd;
  if (code == cmd::addObj) {
    if (!service.defcfg.empty()) {
      m = service.defcfg;
      m.merge(cmd);
    }
    m.insert(key::absent, 0);
  }
  if (code == cmd::removeObj) m.insert(key::absent, 1);
  if (code == cmd::moveObj && !cmd.has(key::nextId)) m.insert(key::nextId, kNoId);
  auto state = m;
  if (state.get(key::replaceState)) nv::cleanSys(state);
  schedule({cmd.get(key::objectId, code == cmd::set ? 0 : kNoId), m, state, {}, cmd});
}

message CfgManModel::read(const message& cmd) const {
  const auto code = cmd.get(key::command);
  const auto flags = cmd.get(key::getFlags, nv::kDefaultFlags);
  auto id = cmd.get(key::objectId, code == cmd::get ? 0 : kNoId);
  message out;
  if (id == kNoId) out.insert(key::count, static_cast<unsigned>(items.size()));
  if (code == cmd::getCount) return out;
  if ((flags & nv::kDefaultCfgBit) != 0 && !service.defcfg.empty())
    out.insert(key::defaultCfg, service.defcfg);
  if (code == cmd::getAll) return page(cmd, flags, out);
  if (const auto all = iterated(); id == kNoId && !all.empty()) id = all.front();
  if (id == kNoId) return out;
  if (!items.contains(id)) return nv::errorMsg(nv::err::noSuchItem, "");
  out.merge(object(id, flags));
  return out;
}

message CfgManModel::page(const message& cmd, std::uint32_t flags, message out) const {
  const auto all = iterated();
  const auto start = cmd.get(key::startId, kNoId);
  auto at = start == kNoId ? 0 : indexOf(all, start);
  if (start != kNoId && at == all.size()) return nv::errorMsg(nv::err::noSuchPosition, "");
  std::vector<nv::flat_message> objects;
  for (; at < all.size(); ++at) {
    const auto& item = items.at(all[at]);
    if (isAbsent(item.config) || ((flags & nv::kConfigOnlyBit) != 0 && !item.store)) continue;
    if (objects.size() == cmd.get(key::maxCount, kNoId)) {
      out.insert(key::startId, all[at]);
      break;
    }
    objects.push_back(object(all[at], flags).flat());
  }
  return out.insert(key::objects, objects);
}

message CfgManModel::object(std::uint32_t id, std::uint32_t flags) const {
  message out = items.at(id).config;
  if ((flags & nv::kConfigOnlyBit) == 0) out.merge(items.at(id).state);
  out.insert(key::objectId, id);
  const auto next = service.ordered && contains(order, id) ? nextIn(order, id) : kNoId;
  if (next != kNoId) out.insert(key::nextId, next);
  return out;
}

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

void CfgManModel::updatePositions() {
  if (!service.ordered || positionsValid) return;
  positionsValid = true;
  std::uint32_t position = 0x80000000;
  for (const auto id : order) {
    items[id].position = position;
    position += 2;
  }
}

std::optional<std::uint32_t> CfgManModel::plant(bool dynamic, bool hasCookie) {
  const auto id = allocate();
  if (!id) return {};
  auto& item = items[*id];
  item.store = !dynamic;
  item.hasCookie = hasCookie;
  if (dynamic) item.config.insert(key::dynamic, true);
  return id;
}

Ids CfgManModel::iterated() const {
  if (service.ordered) return order;
  Ids ids;
  for (const auto& [id, item] : items) ids.push_back(id);
  return ids;
}

std::string CfgManModel::difference(CfgMan& manager) const {
  Ids found, stored;
  for (const auto* item : manager) found.push_back(item->id);
  if (found != iterated()) return "the order";
  for (const auto* item = manager.order->firstStored(); item;
       item = manager.order->nextStored(*item))
    stored.push_back(item->id);
  if (stored != storeOrder) return "the stored order";
  if (manager.items.size() != items.size()) return "the number of items";
  if (manager.alloc->used() != allocated.size()) return "the number of ids";
  if (manager.updateOrigin != updateOrigin) return "the origin";
  if (manager.positionsValid != positionsValid) return "whether positions count";
  if (manager.curItem != nullptr || manager.curKeys != nullptr) return "an update under way";
  if (manager.generateDefaultName() != defaultName()) return "the default name";
  for (const auto& [id, expected] : items) {
    const auto* const item = manager.find(id);
    const auto where = " of item " + std::to_string(id);
    if (item == nullptr || item->id != id) return "the place" + where;
    if (item->config != expected.config) return "the configuration" + where;
    if (item->state != expected.state) return "the state" + where;
    if (item->store != expected.store) return "the storing" + where;
    if (contains(order, id) != (item->ord != nullptr)) return "the node" + where;
    if (item->ord != nullptr && item->ord->position != expected.position)
      return "the position" + where;
    if (item->ord != nullptr &&
        (manager.order->previous(*item) == nullptr) != (id == order.front()))
      return "the way back" + where;
  }
  return {};
}

std::string CfgManModel::defaultName() const {
  const auto& prefix = service.namePrefix;
  std::string best = prefix + "0";
  for (const auto id : iterated()) {
    const auto name = items.at(id).config.get(key::name);
    if (name.size() <= prefix.size() || !name.starts_with(prefix)) continue;
    if (name.find_first_not_of("0123456789", prefix.size()) != std::string::npos) continue;
    if (name.size() > best.size() || (name.size() == best.size() && name >= best)) best = name;
  }
  for (auto at = best.size(); at-- > 0 && best[at] >= '0' && best[at] <= '9';) {
    if (best[at]++ != '9') break;
    best[at] = '0';
  }
  if (best[prefix.size()] == '0') best.insert(prefix.size(), "1");
  return best;
}

}  // namespace test
