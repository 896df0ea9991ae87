#include "cfgman/cfg_handler.h"

#include <algorithm>
#include <ostream>

#include "cfgman/at_end.h"
#include "cfgman/item.h"

namespace key = nv::key;
using nv::message;

namespace {
std::uint64_t lastSerial = 0;  // of all handlers: a serial number is never given twice
}  // namespace

CfgHandler::~CfgHandler() {
  token_.end();
  auto& links = manager_->links;
  links.erase(std::remove(links.begin(), links.end(), this), links.end());
  if (manager_->handler == this) manager_->handler = nullptr;
  while (!subscriptions_.empty()) delete subscriptions_.begin()->second;
}

// Each callback is copied before it is called: it may replace itself, or end the manager.

void CfgHandler::handleCmd(const message& cmd, unsigned code) {
  if (const auto doCmd = manager_->doCmd) return doCmd(this, cmd);
  Handler::handleCmd(cmd, code);
}

message CfgHandler::getObject(unsigned id, unsigned flags) {
  const auto doGet = manager_->doGet;
  return doGet(manager_, id, flags, {});
}

std::uint32_t CfgHandler::objectCount() {
  using Get = message (*)(CfgMan*, std::uint32_t, std::uint32_t, const message&);
  const auto doGet = manager_->doGet;
  if (const auto* const plain = doGet.target<Get>(); plain && *plain == CfgMan::defDoGet)
    return static_cast<std::uint32_t>(manager_->items.size());
  return doGet(manager_, nv::kNoId, 0, {}).get(key::count, nv::kNoId);
}

void CfgHandler::flushNotifies() {
  const auto hook = manager_->flushHook;
  if (!hook || isFlushing_) return Handler::flushNotifies();
  isFlushing_ = true;
  const AtEnd flushed([this, life = token_.watch()] {
    if (!life.gone()) isFlushing_ = false;
  });
  hook();
}

// Subscribers.

void* CfgHandler::subscribe(const message& req, bool& flag) {
  const auto make = manager_->mkSubscr;
  const auto life = token_.watch();
  auto* const made = make ? make(req, flag) : nullptr;
  if (life.gone()) {
    delete made;
    return nullptr;
  }
  if (made == nullptr) {
    ++plainSubscribers_;
    return nullptr;
  }
  made->handler_ = this;
  made->serial_ = ++lastSerial;
  subscriptions_.emplace(made->serial_, made);
  flag = false;
  return made;
}

void CfgHandler::unsubscribe(const message&, void* cookie) {
  if (cookie != nullptr)
    delete static_cast<CfgMan::Subscription*>(cookie);
  else
    --plainSubscribers_;
}

void CfgHandler::subscriberStalled(void* cookie) {
  if (cookie != nullptr) static_cast<CfgMan::Subscription*>(cookie)->stalled();
}

void CfgHandler::subscriberResumed(void* cookie) {
  if (cookie != nullptr) static_cast<CfgMan::Subscription*>(cookie)->resumed();
}

std::uint32_t CfgHandler::subscriberFlags(const message&, void* cookie) {
  if (cookie == nullptr) return nv::kDefaultFlags;
  return static_cast<CfgMan::Subscription*>(cookie)->flags;
}

// Changes.

void CfgHandler::update(CfgMan::Item* item, const message& oldCfg, const message& newCfg,
                        const message&, const message&, const vset<unsigned>& keys) {
  if (keys.empty()) return;
  const auto id = item->id;
  const auto exists = [](const message& cfg) { return cfg.get(key::absent) == 0; };
  const bool was = exists(oldCfg), is = exists(newCfg);
  if (hasPlainSubscribers()) notifyChange(id, !is, nullptr, {});
  forEachSubscription([&](CfgMan::Subscription& one, Serial serial) {
    const auto watch = token_.watch();
    const auto isThere = [&] { return !watch.gone() && subscriptions_.contains(serial); };
    const bool interestedBefore = was && one.interesting(id, oldCfg);
    if (!isThere()) return;
    const bool interestedNow = is && one.interesting(id, newCfg);
    if (isThere() && (interestedBefore || interestedNow)) notifyChange(id, !is, &one, {});
  });
}

void CfgHandler::print(std::ostream& os) { os << "{handler subscription link type}"; }
