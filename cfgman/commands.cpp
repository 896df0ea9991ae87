// Commands of a manager, and the message of one object.
#include "platform/commands.h"

#include <algorithm>
#include <utility>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/item_walk.h"
#include "cfgman/iterator.h"
#include "message/equal.h"
#include "message/merge.h"
#include "platform/errors.h"
#include "platform/page.h"

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
  if (code == cmd::addObj && !defcfg.empty()) {
    message update = defcfg;
    update.merge(cmd);
    return std::move(update.insert(key::absent, 0));
  }
  message update = cmd;
  if (code == cmd::addObj) {
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
      // As a whole state it must not bring the request's envelope into what is answered later.
      if (state.get(key::replaceState)) nv::cleanSys(state);
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
  const auto life = watch();
  const auto get = doGet;
  auto answer = get(this, idIn(cmd, code), cmd.get(key::getFlags, nv::kDefaultFlags), cmd);
  if (life.gone() || handler == nullptr) return;
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
  if (item == nullptr) return id == nv::kNoId ? std::move(out) : missing(id, cmd, code);
  if (out.empty()) return cm->getMsg(item, flags);
  out.merge(cm->getMsg(item, flags));
  return out;
}

message CfgMan::getAll(std::uint32_t flags, const message& cmd, message out) {
  const auto start = cmd.get(key::startId, nv::kNoId);
  auto begun = ItemWalk::from(*this, start);
  if (!begun) return missing(start, cmd, cmd::getAll);

  const auto room = kPageBytes - std::min<std::size_t>(out.max_length(), kPageBytes);
  nv::Page page(cmd.get(key::maxCount, nv::kNoId), room);
  const auto life = watch();
  for (auto& walk = *begun; walk.item() != nullptr; walk.next()) {
    const auto& item = *walk.item();
    if (!item.exists() || ((flags & nv::kConfigOnlyBit) != 0 && !item.store)) continue;
    const auto object = getMsg(walk.item(), flags);
    if (life.gone()) return out;
    if (!page.take(object)) {
      out.insert(key::startId, walk.id());
      break;
    }
  }
  page.writeTo(out);
  return out;
}

message CfgMan::getMsg(Item* item, unsigned flags) {
  message out = item->config;
  const auto id = item->id;
  if ((flags & nv::kConfigOnlyBit) == 0) {
    out.merge(item->state);
    const auto life = watch();
    const auto isThere = [&] { return !life.gone() && find(id) == item; };
    if (const auto fill = fillMsg) {
      fill(out, this, id, flags);
      if (!isThere()) return out;
    }
    if (const auto fill = fillItemMsg) {
      fill(this, item, out, flags);
      if (!isThere()) return out;
    }
    for (std::size_t k = 0; item->about && k < item->about->size(); ++k) {
      const auto text = (*item->about)[k];
      out.append(key::about, text());
      if (!isThere()) return out;
    }
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
