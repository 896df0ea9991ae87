#include "tests/support/cfgman_model.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "message/equal.h"
#include "message/merge.h"
#include "platform/commands.h"
#include "platform/errors.h"

namespace test {

namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::kHeadId;
using nv::kNoId;
using nv::message;

namespace {

constexpr char kStore[] = "items";

bool isAbsent(const message& cfg) { return cfg.get(key::absent) != 0; }

std::size_t indexOf(const std::vector<std::uint32_t>& ids, std::uint32_t id) {
  return static_cast<std::size_t>(std::find(ids.begin(), ids.end(), id) - ids.begin());
}
bool contains(const std::vector<std::uint32_t>& ids, std::uint32_t id) {
  return indexOf(ids, id) < ids.size();
}
std::uint32_t nextIn(const std::vector<std::uint32_t>& ids, std::uint32_t id) {
  const auto at = indexOf(ids, id) + 1;
  return at < ids.size() ? ids[at] : kNoId;
}
void insertAt(std::vector<std::uint32_t>& ids, std::size_t at, std::uint32_t id) {
  ids.insert(ids.begin() + static_cast<std::ptrdiff_t>(at), id);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

const vset<unsigned> kConfigIds{0x00fe0007, 0x00fe000a, 0x00fe000d, 0x08fe0005,         0x08fe0013,
                                0x20fe0009, 0x20fe0010, 0x28fe001d, field::number.uid()};
const vset<unsigned> kStateIds{0x00fe0008, 0x08fe0005, field::level.uid()};

}  // namespace

// The service.

void CfgService::judge(const message& cfg, message& reply) {
  if (cfg.get(field::number) == 13)
    reply = nv::errorMsg(0x1234, "the service says no");
  else
    reply.insert(field::number, cfg.get(field::number));
}

void CfgService::correct(message& cfg, vset<unsigned>& keys) {
  if (cfg.get(field::number) == 6) cfg.insert(key::absent, 1);
  if (cfg.get(field::number) != 7) return;
  cfg.insert(field::number, 8);
  keys.insert(field::number.uid());
}

std::string CfgService::describe(const message& cfg) {
  return "number " + std::to_string(cfg.get(field::number));
}

// Loading.

std::vector<std::uint32_t> loadingOrderByRule(const Records& records, bool isGuarded) {
  std::vector<std::uint32_t> ends, scheduled;
  std::multimap<std::uint32_t, std::uint32_t> pairs;
  for (const auto& [id, record] : records) {
    if (id == kNoId) continue;
    const auto next = record.get(key::nextId, kNoId);
    if (next == id || next > 0xfffffffd || (isGuarded && !records.contains(next)))
      ends.push_back(id);
    else
      pairs.emplace(next, id);
  }
  while (!ends.empty() || !pairs.empty()) {
    std::uint32_t taken = 0;
    if (!ends.empty()) {
      taken = ends.back();
      ends.pop_back();
    } else {
      taken = pairs.begin()->first;
      pairs.erase(pairs.begin());
    }
    if (taken < kHeadId && !(isGuarded && contains(scheduled, taken))) scheduled.push_back(taken);
    const auto [first, last] = pairs.equal_range(taken);
    for (auto at = first; at != last; ++at) ends.push_back(at->second);
    pairs.erase(first, last);
  }
  if (!isGuarded) return scheduled;
  for (const auto& [id, record] : records)
    if (id < kHeadId && !contains(scheduled, id)) scheduled.push_back(id);
  return scheduled;
}

void CfgManModel::restart(const CfgService& now) {
  service = now;
  items.clear();
  order.clear();
  storeOrder.clear();
  allocated.clear();
  positionsValid = true;
  updateOrigin = 0;
  std::vector<std::uint32_t> ids;
  if (service.ordered) {
    ids = loadingOrderByRule(records, true);
  } else {
    for (const auto& [id, record] : records) ids.push_back(id);
  }
  for (const auto id : ids) {
    auto record = records[id];
    record.insert(key::absent, 0);
    schedule({id, record, {}, {}, {{key::command, cmd::addObj}}});
  }
  runAll();
}

// Commands and tasks.

void CfgManModel::command(const message& cmd) {
  const auto code = cmd.get(key::command);
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

void CfgManModel::runAll() {
  while (!tasks_.empty()) {
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    run(std::move(task));
  }
}

struct CfgManModel::Run {
  Task task;
  Item* item = nullptr;
  message cfg, state, undo, reply;
  vset<unsigned> changed;
  bool configChanged = false;
  bool created = false;
};

void CfgManModel::run(Task task) {
  Run run;
  run.task = std::move(task);
  noteOrigin(run);
  mergeOwnKeys(run);
  if (!createIfMissing(run)) return;
  run.cfg.insert(key::objectId, run.task.id);
  giveName(run);
  mergeState(run);
  callApply(run);
  run.reply.insert(key::objectId, run.task.id);
  if (nv::isError(run.reply)) return rollBack(run);
  publishUndo(run);
  tellObservers(run);
  placeAndStore(run);
  removeIfGone(run);
  answer(run.task.request, run.reply);
}

void CfgManModel::noteOrigin(Run& run) {
  auto& request = run.task.request;
  if (request.has(key::requester)) {
    run.reply.insert(key::route, request.get(key::requester));
    updateOrigin = request.get(key::rights, 0x80000000) >= 0x80000000 ? 2 : 1;
  } else {
    updateOrigin = request.has(key::command) ? 3 : 0;
    request.clear();
  }
}

void CfgManModel::mergeOwnKeys(Run& run) {
  const auto found = items.find(run.task.id);
  const Item fresh;
  run.item = found == items.end() ? nullptr : &found->second;
  run.cfg = run.item ? run.item->config : fresh.config;
  run.state = run.item ? run.item->state : fresh.state;

  const bool isRemoval = isAbsent(run.task.cfg);
  const bool hasRequest = !run.task.request.empty();
  if (hasRequest && isRemoval) run.undo = run.cfg;
  auto* const undo = hasRequest && !isRemoval ? &run.undo : nullptr;
  for (const auto uid : kConfigIds)
    if (nv::merge(run.cfg, run.task.cfg, &run.cfg, undo, uid)) run.changed.insert(uid);
  run.configChanged = !run.changed.empty();
}

std::optional<std::uint32_t> CfgManModel::allocate() {
  for (std::uint32_t id = 1; id <= service.maxId; ++id) {
    if (allocated.contains(id)) continue;
    allocated.insert(id);
    if (!items.contains(id)) return id;
  }
  return {};
}

void CfgManModel::free(std::uint32_t id) {
  if (!service.isExternal(id)) allocated.erase(id);
}

bool CfgManModel::createIfMissing(Run& run) {
  if (run.item != nullptr) return true;
  auto& id = run.task.id;
  if (isAbsent(run.cfg)) return answer(run.task.request, nv::errorMsg(0xfe0004, "")), false;
  const auto refuse = [&] { return answer(run.task.request, nv::errorMsg(0xfe0007, "")), false; };
  if (id == kNoId) {
    const auto free = allocate();
    if (!free) return refuse();
    id = *free;
  } else if (id == kHeadId) {
    return refuse();
  } else if (!service.isExternal(id)) {
    if (allocated.contains(id)) return refuse();
    if (id >= 1 && id <= service.maxId) allocated.insert(id);
  }
  run.item = &items[id];
  run.item->store = !run.cfg.get(key::dynamic);
  run.created = true;
  return true;
}

void CfgManModel::giveName(Run& run) {
  if (run.cfg.has(key::name) || isAbsent(run.cfg)) return;
  const auto& prefix = service.namePrefix;
  if (service.makesNames)
    run.cfg.insert(key::name, "made");
  else if (!prefix.empty() && prefix[0] != '_')
    run.cfg.insert(key::name, defaultName());
  else
    return;
  run.changed.insert(0x20fe0010);
  run.configChanged = true;
}

void CfgManModel::mergeState(Run& run) {
  auto update = run.task.state;
  auto& state = run.item->state;
  if (update.get(key::replaceState)) {
    update.remove(key::replaceState);
    for (const auto uid : kStateIds)
      if (!nv::isEqual(state, update, uid)) run.changed.insert(uid);
    state = update;
  } else {
    for (const auto uid : kStateIds)
      if (nv::merge(state, update, &state, nullptr, uid)) run.changed.insert(uid);
  }
  run.changed.merge(run.task.keys);
}

void CfgManModel::callApply(Run& run) {
  if (service.hook == CfgService::Hook::none) return;
  if (!run.configChanged && run.task.keys.empty()) return;
  if (service.hook == CfgService::Hook::apply) CfgService::correct(run.cfg, run.changed);
  CfgService::judge(run.cfg, run.reply);
}

void CfgManModel::rollBack(Run& run) {
  if (isAbsent(run.item->config) && !run.item->hasCookie) {
    items.erase(run.task.id);
    free(run.task.id);
  } else {
    run.item->state = run.state;
  }
  answer(run.task.request, run.reply);
}

void CfgManModel::publishUndo(Run& run) {
  auto& request = run.task.request;
  if (request.empty() || !run.item->store) return;
  for (auto* const m : {&request, &run.undo})
    if (!m->has(key::removals)) m->insert(key::removals, {});
  const bool existed = !isAbsent(run.item->config), exists = !isAbsent(run.cfg);
  const auto say = [&](unsigned requested, unsigned undone, const char* text) {
    run.undo.insert(key::command, undone).insert(key::objectId, run.task.id);
    request.insert(key::command, requested);
    const auto label = service.describes ? CfgService::describe(run.cfg) : run.cfg.get(key::name);
    told.undo(request, run.undo, label + text);
  };
  if (!existed) return say(0xfe0005, 0xfe0006, run.created ? " added" : " changed");
  if (!exists) return say(0xfe0006, 0xfe0005, " removed");
  say(0xfe0003, 0xfe0003, " changed");
}

void CfgManModel::tellObservers(Run& run) {
  auto& item = *run.item;
  const auto old = std::exchange(item.config, run.cfg);
  observed.push_back(
      {run.task.id, old, run.cfg, run.state, item.state, run.changed, defaultName()});
  item.config = old;
}

void CfgManModel::placeAndStore(Run& run) {
  if (!run.configChanged) return;
  if (service.ordered) place(run);
  run.item->config = run.cfg;
  if (updateOrigin == 3) run.item->isRecorded = true;
  if (updateOrigin == 3) return;
  // An item that was stored and is dynamic since a restart takes its old record along.
  const bool hasRecord = run.item->store || run.item->isRecorded;
  if (!isAbsent(run.cfg) && run.item->store) set(run.task.id, run.cfg);
  if (!isAbsent(run.cfg) || !hasRecord) return;
  run.item->isRecorded = false;
  told.storeRemove(kStore, run.task.id);
  records.erase(run.task.id);
}

void CfgManModel::removeIfGone(Run& run) {
  if (!isAbsent(run.cfg)) return;
  std::erase(order, run.task.id);
  std::erase(storeOrder, run.task.id);
  if (run.item->hasCookie) return;
  free(run.task.id);
  items.erase(run.task.id);
}

void CfgManModel::answer(const message& request, message reply) {
  if (request.empty()) return;
  reply.insert(key::route, request.get(key::requester));
  told.reply(request, reply);
}

void CfgManModel::set(std::uint32_t id, const message& record) {
  told.storeSet(kStore, id, record);
  records[id] = record;
}

// Places.

void CfgManModel::place(Run& run) {
  const auto id = run.task.id;
  auto& cfg = run.cfg;
  const bool isPlaced = contains(order, id);
  if (cfg.has(key::nextId) && cfg.get(key::nextId) == id) {
    const auto next = isPlaced ? nextIn(order, id) : kNoId;
    if (next != kNoId)
      cfg.insert(key::nextId, next);
    else
      cfg.remove(key::nextId);
  }
  if (isPlaced && !isAbsent(cfg)) {
    const auto next = nextIn(run.item->store ? storeOrder : order, id);
    if (cfg.get(key::nextId, next) == next) return;
  }
  if (isPlaced) unlink(id);
  if (!isAbsent(cfg)) link(id, cfg.get(key::nextId, kNoId), updateOrigin != 3);
}

void CfgManModel::unlink(std::uint32_t id) {
  if (items[id].store) {
    const auto next = nextIn(storeOrder, id);
    const auto at = indexOf(storeOrder, id);
    if (at == 0) {
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
  if (items[id].store) {
    const auto at = placeInStoreOrder(id, before);
    insertAt(storeOrder, at, id);
    if (writes && at == 0) set(kHeadId, {{key::nextId, id}});
    if (writes && at > 0) {
      const auto previous = storeOrder[at - 1];
      set(previous, items[previous].config.insert(key::nextId, id));
    }
  }
  const auto at = placeInOrder(before);
  insertAt(order, at, id);
  if (at > 0) schedule({order[at - 1], {}, {{key::nextId, id}}, {}, {}});
  number(id);
}

std::size_t CfgManModel::placeInOrder(std::uint32_t before) const {
  const auto found = items.lower_bound(before);
  if (found == items.end()) return before == kNoId ? order.size() : 0;
  if (found->first > before) return 0;
  return indexOf(order, before);
}

std::size_t CfgManModel::placeInStoreOrder(std::uint32_t id, std::uint32_t before) const {
  const auto found = items.lower_bound(before);
  if (found == items.end()) return before == kNoId ? storeOrder.size() : 0;
  if (found->first > before) return 0;
  if (found->second.store) return indexOf(storeOrder, before);
  for (auto at = indexOf(order, before) + 1; at < order.size(); ++at)
    if (order[at] != id && items.at(order[at]).store) return indexOf(storeOrder, order[at]);
  return storeOrder.size();
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

// Names.

std::vector<std::uint32_t> CfgManModel::iterated() const {
  if (service.ordered) return order;
  std::vector<std::uint32_t> ids;
  for (const auto& [id, item] : items) ids.push_back(id);
  return ids;
}

std::string CfgManModel::defaultName() const {
  const auto& prefix = service.namePrefix;
  std::string best = prefix + "0";
  for (const auto id : iterated()) {
    const auto name = items.at(id).config.get(key::name);
    if (name.size() <= prefix.size() || name.substr(0, prefix.size()) != prefix) continue;
    if (!std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                     isDigit))
      continue;
    if (name.size() > best.size() || (name.size() == best.size() && name >= best)) best = name;
  }
  for (auto at = best.size(); at > 0; --at) {
    char& c = best[at - 1];
    if (!isDigit(c)) break;
    c = c == '9' ? '0' : static_cast<char>(c + 1);
    if (c != '0') break;
  }
  if (best[prefix.size()] == '0') best.insert(prefix.size(), "1");
  return best;
}

}  // namespace test
