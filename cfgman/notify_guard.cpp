#include "cfgman/notify_guard.h"

#include <map>
#include <utility>

#include "cfgman/cfg_handler.h"

namespace key = nv::key;
using nv::message;

namespace {

bool isAbsent(const message& object) { return object.get(key::absent) != 0; }

/// One object as each get flags word sees it, fetched once.
class Views {
 public:
  Views(CfgMan& manager, unsigned id) : manager_(manager), id_(id) {}

  const message& of(std::uint32_t flags) {
    const auto at = views_.find(flags);
    if (at != views_.end()) return at->second;
    const auto doGet = manager_.doGet;
    return views_.emplace(flags, doGet(&manager_, id_, flags, {})).first->second;
  }

 private:
  CfgMan& manager_;
  unsigned id_;
  std::map<std::uint32_t, message> views_;
};

/// Whether views differ, each pair compared once.
class Differences {
 public:
  bool between(const message& before, const message& after) {
    const auto [at, isNew] = known_.try_emplace({&before, &after});
    if (isNew) at->second = !(before == after) && !(isAbsent(before) && isAbsent(after));
    return at->second;
  }

 private:
  std::map<std::pair<const message*, const message*>, bool> known_;
};

constexpr std::uint64_t kPlain = 0;  // no subscription has this serial number

}  // namespace

class NotifyGuard::Snapshot {
 public:
  Snapshot(CfgMan& manager, LifeToken<CfgMan>::Watch life, unsigned id)
      : life_(std::move(life)), id_(id), views_(manager, id) {}

  /// Notes what each subscriber sees now.
  void take();
  /// Tells those who see something else now.
  void compare();

 private:
  /// Null when the manager is gone or has nobody to tell.
  CfgHandler* handler() const;
  /// What a subscriber saw at first, an empty message when nothing that interested it.
  const message& before(std::uint64_t serial) const;
  void compareOne(CfgMan::Subscription& one, std::uint64_t serial, const message& after,
                  Differences& differences);

  LifeToken<CfgMan>::Watch life_;
  unsigned id_;
  Views views_;
  // By serial number, since a new record may stand where an earlier one was.
  std::map<std::uint64_t, const message*> seen_;
};

CfgHandler* NotifyGuard::Snapshot::handler() const {
  const auto* const manager = life_.get();
  if (manager == nullptr || manager->handler == nullptr) return nullptr;
  return manager->handler->hasSubscribers() ? manager->handler : nullptr;
}

void NotifyGuard::Snapshot::take() {
  handler()->forEachSubscription([&](CfgMan::Subscription& one, std::uint64_t serial) {
    const auto& view = views_.of(one.flags);
    const auto* const still = handler();
    if (still && still->has(serial) && one.interesting(id_, view)) seen_[serial] = &view;
  });
  if (const auto* const still = handler(); still && still->hasPlainSubscribers())
    seen_[kPlain] = &views_.of(nv::kDefaultFlags);
}

void NotifyGuard::Snapshot::compare() {
  auto* const listeners = handler();
  if (listeners == nullptr) return;
  Views views(*life_.get(), id_);
  Differences differences;
  listeners->forEachSubscription([&](CfgMan::Subscription& one, std::uint64_t serial) {
    const auto& after = views.of(one.flags);
    const auto* const still = handler();
    if (still && still->has(serial)) compareOne(one, serial, after, differences);
  });

  if (const auto* const still = handler(); !still || !still->hasPlainSubscribers()) return;
  const auto& after = views.of(nv::kDefaultFlags);
  if (auto* const still = handler(); still && differences.between(before(kPlain), after))
    still->notifyChange(id_, isAbsent(after), nullptr, {});
}

void NotifyGuard::Snapshot::compareOne(CfgMan::Subscription& one, std::uint64_t serial,
                                       const message& after, Differences& differences) {
  const auto& seen = before(serial);
  if (!differences.between(seen, after)) return;
  if (seen.empty() && !one.interesting(id_, after)) return;
  if (auto* const still = handler(); still && still->has(serial))
    still->notifyChange(id_, isAbsent(after), &one, {});
}

const message& NotifyGuard::Snapshot::before(std::uint64_t serial) const {
  static const message nothing;
  const auto at = seen_.find(serial);
  return at == seen_.end() ? nothing : *at->second;
}

NotifyGuard::NotifyGuard(CfgMan* cm, unsigned id) {
  if (cm == nullptr || cm->handler == nullptr || id == nv::kNoId) return;
  if (!cm->handler->hasSubscribers()) return;

  snapshot_ = std::make_unique<Snapshot>(*cm, cm->watch(), id);
  snapshot_->take();
}

NotifyGuard::~NotifyGuard() {
  if (snapshot_) snapshot_->compare();
}
