#include "getall/state_index.h"

#include <algorithm>

#include "platform/keys.h"

namespace {

/// How often finished states are looked for, in milliseconds.
constexpr unsigned kCleanupInterval = 100;

bool beginsWith(const std::vector<std::uint32_t>& route, const std::vector<std::uint32_t>& prefix) {
  return route.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), route.begin());
}

}  // namespace

StatefulGetall::Impl::State* StatefulGetall::Impl::find(std::uint32_t stateId,
                                                        const Route& route) const {
  const auto at = states_.find(Key{stateId, route});
  return at == states_.end() ? nullptr : *at;
}

std::uint32_t StatefulGetall::Impl::getFreeId(const Route& route) const {
  const auto used = usedIds_.find(route);
  return used == usedIds_.end() ? kFirstId : used->second.lowestFree();
}

void StatefulGetall::Impl::insert(State& state) {
  if (states_.empty()) armCleanup();
  states_.insert(&state);
  usedIds_.try_emplace(state.route, kFirstId, kLastId).first->second.allocate(state.stateId);
}

void StatefulGetall::Impl::remove(State& state) {
  states_.erase(&state);
  idle_.erase(&state);
  const auto used = usedIds_.find(state.route);
  used->second.free(state.stateId);
  if (used->second.used() == 0) usedIds_.erase(used);
}

void StatefulGetall::Impl::noteIdle(State& state) {
  if (state.isIdle())
    idle_.insert(&state);
  else
    idle_.erase(&state);
}

void StatefulGetall::Impl::drop(const Route& route, std::uint32_t stateId) {
  if (stateId != nv::kNoId) {
    if (auto* const one = find(stateId, route)) end(*one);
    return;
  }
  States found;
  for (auto at = usedIds_.lower_bound(route); at != usedIds_.end() && beginsWith(at->first, route);
       ++at)
    for (const auto id : at->second) found.insert(find(id, at->first));
  end(found, [](const State&) { return true; });
}

void StatefulGetall::Impl::endAll() {
  while (!states_.empty()) end(**states_.begin());
}

void StatefulGetall::Impl::cleanup() {
  const auto life = token_.watch();
  end(idle_, [](const State& state) { return state.isIdle(); });
  if (!life.gone() && !states_.empty()) armCleanup();
}

void StatefulGetall::Impl::armCleanup() {
  cleanupTimer_ = nv::Timer(kCleanupInterval, [this] { cleanup(); });
}

template <class IsMeant>
void StatefulGetall::Impl::end(const States& states, IsMeant isMeant) {
  std::vector<LifeToken<State>::Watch> doomed;
  doomed.reserve(states.size());
  for (const auto* const state : states) doomed.push_back(state->watch());
  for (const auto& one : doomed)
    if (auto* const state = one.get(); state != nullptr && state->isListed() && isMeant(*state))
      end(*state);
}

void StatefulGetall::Impl::end(State& state) {
  state.leave();
  if (!state.isBeingMade) delete state.state;
}
