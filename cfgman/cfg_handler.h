/// The bus side of a configuration manager.
#pragma once

#include <cstdint>
#include <map>

#include "cfgman/cfgman.h"
#include "cfgman/link.h"
#include "cfgman/subscription.h"
#include "platform/handler.h"

/// Brings every command to the manager's `doCmd`, and tells subscribers what each update changed.
/// Made by `CfgMan::setHandler` and deleted with the manager; deleted earlier, it leaves the
/// manager without a handler.
class CONFKIT_API CfgHandler : public nv::Handler, public CfgMan::Link {
 public:
  explicit CfgHandler(CfgMan* manager) : manager_(manager) {}
  /// Leaves the manager's observers and deletes the subscriptions.
  ~CfgHandler() override;

  void handleCmd(const nv::message& cmd, unsigned code) override;
  /// Asks `mkSubscr` for a record. With one, the subscriber is told what interests it and `flag`
  /// becomes false; without, it counts among the plain ones, who are told of every object.
  void* subscribe(const nv::message& req, bool& flag) override;
  void unsubscribe(const nv::message& req, void* cookie) override;
  void subscriberStalled(void* cookie) override;
  void subscriberResumed(void* cookie) override;
  nv::message getObject(unsigned id, unsigned flags) override;
  std::uint32_t objectCount() override;
  void flushNotifies() override;
  std::uint32_t subscriberFlags(const nv::message& req, void* cookie) override;
  /// `CfgMan::dump`, of all managers of the process, with the request's get flags, default 0. What
  /// goes beyond 1 MiB is left out.
  nv::message cmdDump(const nv::message& request) override;

  /// Marks the item for the plain subscribers, then for each subscription that it interests as it
  /// was or as it is.
  void update(CfgMan::Item* item, const nv::message& oldCfg, const nv::message& newCfg,
              const nv::message& oldState, const nv::message& newState,
              const vset<unsigned>& keys) override;
  void print(std::ostream& os) override;

  bool hasSubscribers() const { return plainSubscribers_ != 0 || !subscriptions_.empty(); }
  bool hasPlainSubscribers() const { return plainSubscribers_ != 0; }
  bool has(std::uint64_t serial) const { return subscriptions_.contains(serial); }
  /// Calls `visit(subscription, serial)` for each, in the order in which they came. It may end any
  /// of them, or the handler.
  template <class Visit>
  void forEachSubscription(Visit visit);

 private:
  friend class CfgMan::Subscription;
  using Serial = std::uint64_t;

  CfgMan* manager_;  // owns this
  std::uint32_t plainSubscribers_ = 0;
  std::map<Serial, CfgMan::Subscription*> subscriptions_;
  bool isFlushing_ = false;
  LifeToken<CfgHandler> token_{this};
};

template <class Visit>
void CfgHandler::forEachSubscription(Visit visit) {
  const auto watch = token_.watch();
  if (subscriptions_.empty()) return;
  const auto last = subscriptions_.rbegin()->first;
  for (auto at = subscriptions_.begin(); at != subscriptions_.end() && at->first <= last;) {
    const auto serial = at->first;
    visit(*at->second, serial);
    if (watch.gone()) return;
    at = subscriptions_.upper_bound(serial);
  }
}
