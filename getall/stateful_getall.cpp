#include "getall/stateful_getall.h"

#include <utility>

#include "cfgman/cfg_handler.h"
#include "cfgman/item.h"
#include "cfgman/item_walk.h"
#include "getall/state_index.h"
#include "platform/commands.h"
#include "platform/errors.h"

namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

/// A page of items holds no more bytes, unless one item is longer.
constexpr std::size_t kPageBytes = 0xf000;
constexpr std::size_t kReplyBytes = 32;

}  // namespace

// What a service may leave as it is.

std::uint32_t StatefulGetall::count(const message&) { return nv::kNoId; }

message StatefulGetall::getMissing(std::uint32_t id) {
  return {{key::objectId, id}, {key::absent, 1}};
}

void StatefulGetall::adjust(CfgMan::Iterator, message&) {}

bool StatefulGetall::isVisible(CfgMan::Iterator it, std::uint32_t, const message&) {
  return it.item()->cookie == nullptr;
}

// Life.

StatefulGetall::StatefulGetall() : impl(new Impl) {}

StatefulGetall::~StatefulGetall() {
  token_.end();
  impl->endAll();
  delete impl;
}

void StatefulGetall::setCm(CfgMan* cm) {
  cfgMan = cm;
  handlerCache = nullptr;
  managerLife_.reset();
  if (cm == nullptr) return;
  managerLife_ = cm->watch();

  const auto life = token_.watch();
  const auto answers = [life, cm](const message& request) {
    auto* const self = life.get();
    return self != nullptr && self->cfgMan == cm && self->handleCmd(request);
  };
  cm->doCmd = [answers, managerLife = cm->watch(), previous = cm->doCmd](nv::Handler* handler,
                                                                         const message& request) {
    if (!answers(request) && !managerLife.gone() && previous) previous(handler, request);
  };
  cm->doGet = [life, answers](CfgMan* manager, std::uint32_t id, std::uint32_t flags,
                              const message& request) {
    auto* const self = life.get();
    if (self == nullptr || self->cfgMan != manager)
      return CfgMan::defDoGet(manager, id, flags, request);
    if (request.empty()) return self->handleCmGet(id, flags);
    return answers(request) ? CfgMan::suppressReply() : nv::errorMsg(err::badCommand, "");
  };
}

CfgMan* StatefulGetall::manager() {
  return managerLife_ && !managerLife_->gone() ? cfgMan : nullptr;
}

CfgMan* StatefulGetall::cm() {
  if (manager() == nullptr) {
    if (!ownManager_) ownManager_ = std::make_unique<CfgMan>(nullptr);
    setCm(ownManager_.get());
  }
  return cfgMan;
}

// A manager may lose its handler, so the cache is never read without asking it.
nv::Handler* StatefulGetall::handler() { return handlerCache = cm()->handler; }

void StatefulGetall::reply(const message& request, message answer) {
  if (auto* const to = handler()) to->replyMessage(request, std::move(answer));
}

// Reading.

message StatefulGetall::handleCmGet(std::uint32_t id, std::uint32_t flags) {
  if (manager() == nullptr) return {};
  if (id == nv::kNoId) return {{key::count, count({})}};
  return getOne(id, flags);
}

message StatefulGetall::getOne(std::uint32_t id, std::uint32_t flags) {
  auto* const from = manager();
  auto* const item = from == nullptr ? nullptr : from->find(id);
  if (item == nullptr) {
    auto missing = getMissing(id);
    return missing.get(key::absent) != 0 ? nv::errorMsg(err::noSuchObject, "") : missing;
  }
  const auto life = token_.watch();
  auto record = from->getMsg(item, flags);
  if (life.gone() || manager() != from || from->find(id) != item) return record;
  if ((flags & nv::kConfigOnlyBit) == 0) adjust({from, item}, record);
  return record;
}

bool StatefulGetall::handleCmd(const message& request) {
  if (handler() == nullptr) return false;
  const auto code = request.get(key::command);
  const auto life = token_.watch();
  endStates(request, code);
  if (life.gone()) return false;
  switch (code) {
    case cmd::getCount: {
      message answer{{key::count, count(request)}};
      if (!life.gone()) reply(request, std::move(answer));
      return true;
    }
    case cmd::getObj: {
      auto answer = getOne(request.get(key::objectId, nv::kNoId),
                           request.get(key::getFlags, nv::kDefaultFlags));
      if (!life.gone()) reply(request, std::move(answer));
      return true;
    }
    case cmd::getAll: return getAll(request), true;
    default: return false;
  }
}

/// Ends iterations of a client that is gone, or has enough.
void StatefulGetall::endStates(const message& request, unsigned code) {
  const auto route = request.get(key::requester);
  if (route.empty()) return;
  if (code == cmd::routeGone)
    impl->drop(route, nv::kNoId);
  else if (code == cmd::stopGetAll && request.has(key::startId))
    impl->drop(route, request.get(key::startId));
}

void StatefulGetall::getAll(const message& request) {
  const auto life = token_.watch();
  Page page;
  auto* state = impl->find(request.get(key::startId, nv::kNoId), request.get(key::requester));
  if (state == nullptr || state->isBeingMade) {
    if (manager() != nullptr && !fillPage(request, page)) return;
    state = startState(request);
    if (life.gone()) return;
    if (state == nullptr) return reply(request, nv::errorMsg(err::noIterationId, ""));
  }

  const auto stateLife = state->watch();
  for (auto& record : page) {
    state->state->add(std::move(record));
    if (stateLife.gone()) return;
  }
  state->applyRequest(request);
}

bool StatefulGetall::fillPage(const message& request, Page& page) {
  const auto start = request.get(key::startId, nv::kNoId);
  const auto flags = request.get(key::getFlags, nv::kDefaultFlags);
  const auto maxCount = request.get(key::maxCount, nv::kNoId);
  auto* const from = manager();
  auto begun = ItemWalk::from(*from, start);
  if (!begun) return reply(request, nv::errorMsg(err::noSuchObject, "")), false;

  const auto life = token_.watch();
  std::size_t size = kReplyBytes;
  for (auto& walk = *begun; walk.item() != nullptr; walk.next()) {
    const auto record = listed(walk, flags, request);
    if (life.gone() || manager() != from) return false;
    if (!record) continue;
    const bool isFull = size + record->max_length() > kPageBytes && !page.empty();
    if (page.size() >= maxCount || isFull) {
      reply(request, {{key::startId, walk.id()}, {key::objects, page}});
      return false;
    }
    size += record->max_length();
    page.push_back(record->flat());
  }
  return true;
}

std::optional<message> StatefulGetall::listed(const ItemWalk& walk, std::uint32_t flags,
                                              const message& request) {
  const auto it = walk.position();
  const bool configOnly = (flags & nv::kConfigOnlyBit) != 0;
  const auto life = token_.watch();
  const auto isThere = [&] { return !life.gone() && walk.isThere(); };
  const bool isTaken = configOnly ? it.item()->store : isVisible(it, flags, request);
  if (!isTaken || !isThere()) return {};
  auto record = it.manager()->getMsg(it.item(), flags);
  if (!isThere()) return {};
  if (!configOnly) adjust(it, record);
  return record;
}

GetallState::Impl* StatefulGetall::startState(const message& request) {
  const auto route = request.get(key::requester);
  const auto id = impl->getFreeId(route);
  if (id == nv::kNoId) return nullptr;

  auto* const record = new GetallState::Impl(this, route, id, request);
  const auto recordLife = record->watch();
  GetallState::Impl::backdoorCtorArg = record;
  auto* const made = newState(request);
  GetallState::Impl::backdoorCtorArg = nullptr;
  if (recordLife.gone()) return nullptr;  // deleted by the service

  record->isBeingMade = false;
  const bool isMeant = record->isListed();
  auto* const meant = isMeant && made != nullptr ? made->impl : nullptr;
  const auto meantLife = meant != nullptr ? meant->watch() : recordLife;
  if (record->state == nullptr)
    delete record;  // the service made none, or returns another
  else if (record != meant)
    delete record->state;  // ended while it was made, or not the one that the service means
  return meantLife.gone() ? nullptr : meant;
}
