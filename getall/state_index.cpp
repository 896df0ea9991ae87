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

void StatefulGetall::Impl::endAll() {
  while (!states_.empty()) end({states_.begin()->second});
}

StatefulGetall::Impl::State* StatefulGetall::Impl::find(std::uint32_t stateId,
                                                        const Route& route) const {
  const auto at = states_.find({stateId, route});
  return at == states_.end() ? nullptr : at->second;
}

std::uint32_t StatefulGetall::Impl::getFreeId(const Route& route) const {
  const auto used = usedIds_.find(route);
  return used == usedIds_.end() ? kFirstId : used->second.lowestFree();
}

void StatefulGetall::Impl::insert(State& state) {
  if (states_.empty()) armCleanup();
  states_.emplace(keyOf(state), &state);
  usedIds_.try_emplace(state.route, kFirstId, kLastId).first->second.allocate(state.stateId);
}

void StatefulGetall::Impl::remove(State& state) {
  states_.erase(keyOf(state));
  idle_.erase(keyOf(state));
  const auto used = usedIds_.find(state.route);
  if (used == usedIds_.end()) return;
  used->second.free(state.stateId);
  if (used->second.used() == 0) usedIds_.erase(used);
}

void StatefulGetall::Impl::noteIdle(const State& state) {
  if (state.isIdle())
    idle_.insert(keyOf(state));
  else
    idle_.erase(keyOf(state));
}

void StatefulGetall::Impl::drop(const Route& route, std::uint32_t stateId) {
  if (stateId != nv::kNoId) {
    if (auto* const one = find(stateId, route)) end({one});
    return;
  }
  std::vector<State*> found;
  for (auto at = usedIds_.lower_bound(route); at != usedIds_.end() && beginsWith(at->first, route);
       ++at)
    for (const auto id : at->second) found.push_back(find(id, at->first));
  std::sort(found.begin(), found.end(),
            [](const State* a, const State* b) { return keyOf(*a) < keyOf(*b); });
  end(found);
}

void StatefulGetall::Impl::cleanup() {
  std::vector<State*> finished;
  for (const auto& [id, route] : idle_) finished.push_back(find(id, route));
  const auto life = token_.watch();
  end(finished);
  if (!life.gone() && !states_.empty()) armCleanup();
}

void StatefulGetall::Impl::armCleanup() {
  cleanupTimer_ = nv::Timer(kCleanupInterval, [this] { cleanup(); });
}

void StatefulGetall::Impl::end(const std::vector<State*>& states) {
  std::vector<LifeToken<State>::Watch> doomed;
  doomed.reserve(states.size());
  for (const auto* const state : states) doomed.push_back(state->watch());
  for (const auto& one : doomed) {
    auto* const state = one.get();
    if (state == nullptr) continue;
    if (state->state != nullptr)
      delete state->state;
    else
      delete state;  // under construction, and nobody's yet
  }
}
