#include "platform/src/loop/looper_impl.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "platform/errors.h"

namespace nv {

Looper::Impl::Impl(Platform platform)
    : limits(platform.limits),
      loop(std::move(platform.loop)),
      exit(std::move(platform.exit)),
      undo(limits.undoRecords, limits.undoBytes),
      connections(std::move(platform.transport), limits, std::move(platform.rights), *this) {
  if (platform.stores) useStores(std::move(platform.stores));
}

void Looper::Impl::useStores(std::unique_ptr<StoreEngine> engine) {
  stores = std::make_unique<CommitQueue>(std::move(engine));
  stores->engine().onOutcome([engine = loop.get()] {
    if (engine) engine->wake();
  });
  stores->onUnreadable([this](const std::string& why) {
    std::cout << "store: " << why << std::endl;
    // What is being written may reach the disk all the same.
    stores->finishWriting();
    storeFailed("the store cannot be read: " + why);
  });
}

Looper::Impl::~Impl() {
  // The writer thread may still want to wake the loop.
  stores.reset();
}

Looper::Impl::Turn::Turn(Impl& impl)
    : impl_(impl), changesBefore_(impl.stores ? impl.stores->made() : 0) {
  ++impl_.turnDepth_;
}

Looper::Impl::Turn::~Turn() {
  if (--impl_.turnDepth_ != 0) return;
  const auto made = impl_.stores ? impl_.stores->made() : 0;
  const bool settle =
      std::exchange(impl_.settleTurn_, false) && impl_.stores && !impl_.stores->allDurable();
  const bool changed = made != changesBefore_;
  if (changed) ++impl_.changingTurns_;
  impl_.outbox.endTurn(changed || settle ? made : 0);
}

Handler* Looper::Impl::localHandler(const std::vector<std::uint32_t>& route) const {
  if (!isLocal(route)) return nullptr;
  const auto found = handlers.find(route.back());
  return found == handlers.end() ? nullptr : found->second;
}

bool Looper::Impl::isLocal(const std::vector<std::uint32_t>& route) const {
  if (route.empty() || route.size() > 2) return false;
  if (address) return route[0] == *address;
  return route.size() == 1 && handlers.contains(route[0]);
}

bool Looper::Impl::isRegistered(const Handler* handler) const {
  return std::any_of(handlers.begin(), handlers.end(),
                     [handler](const auto& entry) { return entry.second == handler; });
}

std::vector<std::uint32_t> Looper::Impl::routeOf(const Handler& handler) const {
  for (const auto& [id, registered] : handlers) {
    if (registered != &handler) continue;
    if (!address || *address == id) return {id};
    return {*address, id};
  }
  return {};
}

std::vector<std::uint32_t> Looper::Impl::handlerIds() const {
  std::vector<std::uint32_t> ids;
  for (const auto& entry : handlers) ids.push_back(entry.first);
  return ids;
}

void Looper::Impl::dispatch(const message& request) {
  if (const auto handler = localHandler(request.get(key::route)))
    return getLooper()->deliver(*handler, request);
  const Turn turn(*this);
  reply(request, errorMsg(err::noRoute, "no handler is registered there"));
}

void Looper::Impl::requestArrived(message request) { dispatch(request); }

void Looper::Impl::replyArrived(std::uint32_t connection, std::uint32_t tag, message reply) {
  const Turn turn(*this);
  if (tag == 0 && isError(reply)) return requests.refused(connection, reply);
  requests.reply(connection, tag, reply);
}

void Looper::Impl::notificationArrived(std::uint32_t connection, std::uint32_t tag,
                                       message notification) {
  const Turn turn(*this);
  requests.notify(connection, tag, notification);
}

void Looper::Impl::subscriptionEnded(std::uint32_t connection, std::uint32_t tag) {
  const Turn turn(*this);
  requests.ended(connection, tag);
}

}  // namespace nv
