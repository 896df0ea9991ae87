#include "cfgman/subscription.h"

#include "cfgman/cfg_handler.h"

namespace {
/// Get flags of a subscriber that asks for none.
constexpr std::uint32_t kSubscriberFlags = 0x00fe001d;
}  // namespace

CfgMan::Subscription::~Subscription() {
  if (handler_ != nullptr) handler_->subscriptions_.erase(serial_);
}

bool CfgMan::Subscription::interesting(unsigned, const nv::message&) { return true; }
void CfgMan::Subscription::stalled() {}
void CfgMan::Subscription::resumed() {}

CfgMan::Subscription* mkSubscrBasic(const nv::message& req, bool) {
  return new CfgMan::Subscription(req, req.get(nv::key::getFlags, kSubscriberFlags));
}
