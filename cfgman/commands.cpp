// Commands of a manager, and the message of one object.
#include <utility>
#include <vector>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/iterator.h"
#include "message/equal.h"
#include "message/merge.h"
#include "platform/commands.h"
#include "platform/errors.h"

namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

/// An answer to get all holds no more bytes, unless one object is longer.
constexpr std::size_t kPageBytes = 0xf000;

/// The id that a command means: object 0 for those that speak of a single one.
std::uint32_t idIn(const message& cmd, unsigned code) {
  const bool isSingle = code == cmd::get || code == cmd::set;
  return cmd.get(key::objectId, isSingle ? 0 : nv::kNoId);
}

/// The update that a changing command asks for.
message updateOf(const message& cmd, unsigned code, const message& defcfg) {
  message update = cmd;
  if (code == cmd::addObj) {
    if (!defcfg.empty()) {
      update = defcfg;
      update.merge(cmd);
    }
    update.insert(key::absent, 0);
  } else if (code == cmd::removeObj) {
    update.insert(key::absent, 1);
  } else if (code == cmd::moveObj && !cmd.has(key::nextId)) {
    update.insert(key::nextId, nv::kNoId);
  }
  return update;
}

/// What there is to say of an object that is not there.
message missing(std::uint32_t id, const message& cmd, unsigned code) {
  if (cmd.empty()) return {{key::objectId, id}, {key::absent, 1}};
  return nv::errorMsg(code == cmd::getAll ? err::noSuchPosition : err::noSuchItem, "");
}

}  // namespace

void CfgMan::defDoCmd(const message& cmd) {
  const auto code = cmd.get(key::command);
  switch (code) {
    case cmd::setObj:
    case cmd::addObj:
    case cmd::removeObj:
    case cmd::moveObj:
    case cmd::set: {
      auto update = updateOf(cmd, code, defcfg);
      auto state = update;
      return scheduleUpdate(idIn(cmd, code), std::move(update), std::move(state), {}, cmd);
    }
    case cmd::getObj:
    case cmd::getAll:
    case cmd::get:
    case cmd::getCount: return answerRead(cmd, code);
    default:
      if (handler != nullptr) handler->nv::Handler::handleCmd(cmd, code);
  }
}

void CfgMan::answerRead(const message& cmd, unsigned code) {
  const auto watch = token_.watch();
  const auto get = doGet;
  auto answer = get(this, idIn(cmd, code), cmd.get(key::getFlags, nv::kDefaultFlags), cmd);
  if (watch.gone() || handler == nullptr) return;
  if (answer.get(key::replyMarker) != nv::kNoId) handler->replyMessage(cmd, std::move(answer));
}

message CfgMan::suppressReply() {
  static const message noReply{{key::replyMarker, nv::kNoId}};
  return noReply;
}

message CfgMan::defDoGet(CfgMan* cm, std::uint32_t id, std::uint32_t flags, const message& cmd) {
  const auto code = cmd.get(key::command);
  message out;
  if (id == nv::kNoId) {
    out.insert(key::count, static_cast<std::uint32_t>(cm->items.size()));
    if (cmd.empty()) return out;
  }
  if (code == cmd::getCount) return out;
  if ((flags & nv::kDefaultCfgBit) != 0 && !cm->defcfg.empty())
    out.insert(key::defaultCfg, cm->defcfg);
  if (code == cmd::getAll) return cm->getAll(flags, cmd, std::move(out));

  auto* const item = id == nv::kNoId ? cm->begin().item() : cm->find(id);
  if (item != nullptr) return out.merge(cm->getMsg(item, flags)), out;
  return id == nv::kNoId ? out : missing(id, cmd, code);
}

message CfgMan::getAll(std::uint32_t flags, const message& cmd, message out) {
  const auto start = cmd.get(key::startId, nv::kNoId);
  const auto maxCount = cmd.get(key::maxCount, nv::kNoId);
  Iterator it = start == nv::kNoId ? begin() : Iterator(this, find(start));
  if (start != nv::kNoId && it.item() == nullptr) return missing(start, cmd, cmd::getAll);

  const auto watch = token_.watch();
  std::vector<message> page;
  std::size_t size = out.max_length();
  while (auto* const item = it.item()) {
    const auto id = item->id;
    const auto seen = treeChanges_;
    it.next();
    const auto nextId = it.item() == nullptr ? nv::kNoId : it.item()->id;
    if (!item->exists() || ((flags & nv::kConfigOnlyBit) != 0 && !item->store)) continue;

    auto object = getMsg(item, flags);
    if (watch.gone()) return out;
    if (page.size() >= maxCount ||
        (!page.empty() && size + object.max_length() > kPageBytes)) {
      out.insert(key::startId, id);
      break;
    }
    size += object.max_length();
    page.push_back(std::move(object));
    // What was asked for the object may have removed the next one.
    if (seen != treeChanges_) it = Iterator(this, find(nextId));
  }
  out.insert(key::objects, page);
  return out;
}

message CfgMan::getMsg(Item* item, unsigned flags) {
  message out = item->config;
  const auto id = item->id;
  if ((flags & nv::kConfigOnlyBit) == 0) {
    out.merge(item->state);
    const auto watch = token_.watch();
    const auto isThere = [&] { return !watch.gone() && find(id) == item; };
    if (const auto fill = fillMsg) {
      fill(out, this, id, flags);
      if (!isThere()) return out;
    }
    if (const auto fill = fillItemMsg) {
      fill(this, item, out, flags);
      if (!isThere()) return out;
    }
    if (item->about)
      for (const auto& text : *item->about) out.append(key::about, text());
  }
  out.insert(key::objectId, id);
  if (ordered)
    if (const auto* const next = order->next(*item)) out.insert(key::nextId, next->id);
  return out;
}

void CfgMan::directUpdateState(Item* item, message upd, vset<unsigned>* keys) {
  if (!upd.get(key::replaceState)) {
    for (const auto uid : stateIds)
      if (nv::merge(item->state, upd, &item->state, nullptr, uid)) keys->insert(uid);
    return;
  }
  upd.remove(key::replaceState);
  for (const auto uid : stateIds)
    if (!nv::isEqual(item->state, upd, uid)) keys->insert(uid);
  item->state = std::move(upd);
}
