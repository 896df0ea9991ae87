/// The live get-all iterations of one handler.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "getall/getall_impl.h"
#include "platform/allocator.h"
#include "platform/timer.h"

/// Finds a state by its id and the requester's route, gives out ids per route, and ends states.
/// Ending one runs service code, which may end others.
class StatefulGetall::Impl {
 public:
  using Route = std::vector<std::uint32_t>;
  using State = GetallState::Impl;

  /// Ids of states: 4092 per route, above those of items.
  static constexpr std::uint32_t kFirstId = 0xfffff001;
  static constexpr std::uint32_t kLastId = 0xfffffffc;

  /// The state with exactly this id and route, null when there is none.
  State* find(std::uint32_t stateId, const Route& route) const;
  /// The lowest id that no state of exactly this route has; 0xffffffff when all are taken.
  std::uint32_t getFreeId(const Route& route) const;
  /// Ends the state `stateId` of exactly this route; for 0xffffffff every state whose route begins
  /// with `route`.
  void drop(const Route& route, std::uint32_t stateId);
  void endAll();
  /// Ends the states that have delivered everything and to which no request came since.
  void cleanup();

  LifeToken<Impl>::Watch watch() const { return token_.watch(); }

  // Called by the states.
  void insert(State& state);
  void remove(State& state);
  /// Takes note of whether the state may be cleaned up.
  void noteIdle(State& state);

 private:
  using Key = std::pair<std::uint32_t, const Route&>;
  struct ByKey {
    using is_transparent = void;
    static Key keyOf(const Key& key) { return key; }
    static Key keyOf(const State* state) { return {state->stateId, state->route}; }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
      return keyOf(a) < keyOf(b);
    }
  };
  using States = std::set<State*, ByKey>;
  /// Ends those that are still there when their turn comes, and that `isMeant` still.
  template <class IsMeant>
  static void end(const States& states, IsMeant isMeant);
  static void end(State& state);
  void armCleanup();

  States states_;
  States idle_;
  std::map<Route, nv::Allocator> usedIds_;  // none empty
  nv::Timer cleanupTimer_;
  LifeToken<Impl> token_{this};
};
