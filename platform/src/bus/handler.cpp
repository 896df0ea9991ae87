#include "platform/handler.h"

#include <utility>

#include "platform/commands.h"
#include "platform/describe.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/observer.h"
#include "platform/policies.h"
#include "platform/src/bus/envelope.h"
#include "platform/src/bus/subscribers.h"
#include "platform/src/loop/looper_impl.h"

namespace nv {

namespace {
message notTaken() { return errorMsg(err::badCommand, ""); }

/// Counting may end the handler: it comes last.
message describeHandler(Handler& handler) {
  message reply;
  reply.insert(key::name, handler.description().name);
  std::vector<flat_message> keys;
  for (const auto& info : handler.description().keys)
    keys.push_back(message{
        {describe_key::uid, info.uid},
        {describe_key::word, info.name},
        {describe_key::line,
         info.about}}.flat());
  reply.insert(key::objects, keys);
  reply.insert(describe_key::handlers, theLoop().handlerIds());
  if (const auto count = handler.objectCount(); count != kNoId) reply.insert(key::count, count);
  return reply;
}
void sendReply(const message& request, message reply) {
  if (!reply.has(key::route) && request.has(key::requester))
    reply.insert(key::route, request.get(key::requester));
  if (auto* const watcher = observer()) watcher->reply(request, reply);
  theLoop().reply(request, std::move(reply));
}
}  // namespace

Handler::Handler() : subscribers_(std::make_shared<Subscribers>(*this)) {}

Handler::~Handler() {
  subscribers_->ownerGoes();
  getLooper()->removeHandler(this);
}

void Handler::handleCmd(const message& cmd, unsigned code) {
  if (code == cmd::routeGone) return dropSubscribers(requesterOf(cmd));
  auto result = answer(cmd, code);  // may have destroyed this handler
  if (result.get(key::replyMarker) != kNoId) sendReply(cmd, std::move(result));
}

message Handler::answer(const message& cmd, unsigned code) {
  const auto id = cmd.get(key::objectId, kNoId);
  switch (code) {
    case cmd::getObj: return cmdGetObj(cmd, id);
    case cmd::setObj: return cmdSetObj(cmd, id);
    case cmd::getAll:
      return cmdGetAll(cmd, cmd.get(key::startId, kNoId), cmd.get(key::maxCount, kNoId));
    case cmd::addObj: return cmdAddObj(cmd);
    case cmd::removeObj: return cmdRemoveObj(cmd, id);
    case cmd::moveObj: return cmdMoveObj(cmd, id);
    case cmd::get: return cmdGet(cmd);
    case cmd::set: return cmdSet(cmd);
    case cmd::getCount: return cmdGetCount(cmd);
    case cmd::stopGetAll: return cmdStopGetAll(cmd);
    case cmd::subscribe: return subscribers_->add(cmd);
    case cmd::unsubscribe: return subscribers_->end(cmd);
    case cmd::describe: return describeHandler(*this);
    case cmd::getUndo: return theLoop().undo.page(cmd, theLoop().routeOf(*this));
    case cmd::dump: return cmdDump(cmd);
    default: return notTaken();
  }
}

message Handler::cmdGetObj(const message&, std::uint32_t) { return notTaken(); }
message Handler::cmdSetObj(const message&, std::uint32_t) { return notTaken(); }
message Handler::cmdAddObj(const message&) { return notTaken(); }
message Handler::cmdRemoveObj(const message&, std::uint32_t) { return notTaken(); }
message Handler::cmdMoveObj(const message&, std::uint32_t) { return notTaken(); }
message Handler::cmdGetAll(const message&, std::uint32_t, std::uint32_t) { return notTaken(); }
message Handler::cmdGet(const message&) { return notTaken(); }
message Handler::cmdSet(const message&) { return notTaken(); }
message Handler::cmdStopGetAll(const message&) { return {}; }
message Handler::cmdDump(const message&) { return notTaken(); }

message Handler::cmdGetCount(const message&) { return {{key::count, objectCount()}}; }

message Handler::getObject(std::uint32_t id, std::uint32_t) {
  return {{key::objectId, id}, {key::absent, 1}};
}

std::uint32_t Handler::objectCount() { return kNoId; }

void* Handler::subscribe(const message&, bool&) { return nullptr; }
void Handler::unsubscribe(const message&, void*) {}
std::uint32_t Handler::subscriberFlags(const message& request, void*) {
  return request.get(key::getFlags, kDefaultFlags);
}
void Handler::subscriberStalled(void*) {}
void Handler::subscriberResumed(void*) {}

void Handler::flushNotifies() { subscribers_->flush(); }

bool Handler::isAllowed(const message& request) const { return policies::is_allowed(request); }

void Handler::replyMessage(const message& request, message reply) {
  sendReply(request, std::move(reply));
}

void Handler::notifyChange(std::uint32_t id, bool removed, void* cookie, const message& extra) {
  if (auto* const watcher = observer()) watcher->notifyChange(this, id, removed, cookie, extra);
  subscribers_->mark(id, removed, cookie, extra);
  if (subscribers_->hasMarks()) theLoop().toFlush.insert(this);
}

void Handler::sendUndo(const message& request, const message& undo,
                       const std::string& description) {
  if (auto* const watcher = observer()) watcher->undo(request, undo, description);
  theLoop().publishUndo(UndoLog::record(theLoop().routeOf(*this), request, undo, description));
}

void Handler::describe(std::string name, std::vector<KeyInfo> keys) {
  description_ = {std::move(name), std::move(keys)};
}

void Handler::endSubscriptions() { subscribers_->endAll(); }

void Handler::dropSubscribers(std::uint32_t connection) {
  subscribers_->dropConnection(connection);
}

bool Handler::hasNotifies() const { return subscribers_->hasMarks(); }

void Handler::connectionDrained(std::uint32_t connection) { subscribers_->flushLate(connection); }

}  // namespace nv
