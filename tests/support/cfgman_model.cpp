#include "tests/support/cfgman_model.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/iterator.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "tests/support/id_lists.h"
#include "tests/support/names.h"

namespace test {

namespace {

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
    if (item.config.get(key::absent) != 0 || ((flags & nv::kConfigOnlyBit) != 0 && !item.store))
      continue;
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
