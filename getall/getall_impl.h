/// The bookkeeping of one get-all iteration.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "cfgman/token.h"
#include "getall/getall_state.h"
#include "getall/stateful_getall.h"
#include "platform/timer.h"

/// Made by `StatefulGetall` and taken by the constructor of the state that the service makes;
/// deleted with that state, or by its maker when no state took it.
///
/// Ended by its owner it leaves the index first and is deleted then, so that nobody finds it while
/// the service's destructor runs. One that is ended while the service still makes it is deleted
/// when that is over.
class GetallState::Impl {
 public:
  /// The weight of a record beside its bytes, and of a reply without records.
  static constexpr std::uint32_t kRecordWeight = 8;
  static constexpr std::uint32_t kReplyWeight = 32;
  /// A reply weighs no more, unless its only record does.
  static constexpr std::uint32_t kMaxWeight = 0xfffe;

  Impl(StatefulGetall* maker, std::vector<std::uint32_t> requester, std::uint32_t id,
       const nv::message& first);
  ~Impl();

  /// A request for this iteration: one that waits already is answered first. May end the state.
  void applyRequest(const nv::message& next);
  /// Answers the waiting request with what is pending. May end the state.
  void flush();
  void add(nv::flat_message record);
  void finish();
  bool isFull() const;
  /// Whether all is delivered and nobody waits.
  bool isIdle() const { return isDone && !waiting && records.empty(); }

  /// Takes the state out of its owner's index: from here on it is on its way to its end.
  void leave();
  bool isListed() const { return isListed_; }

  LifeToken<Impl>::Watch watch() const { return token_.watch(); }

  /// The record for the state under construction, null at other times.
  static Impl* backdoorCtorArg;

  /// Null until a state has taken this.
  GetallState* state = nullptr;
  /// Whether `newState` has not returned yet.
  bool isBeingMade = true;
  StatefulGetall* const owner;
  /// What the pending records weigh, with a reply around them.
  std::uint32_t bytes = kReplyWeight;
  bool isDone = false;
  /// Whether `request` waits for its reply.
  bool waiting = false;
  const std::vector<std::uint32_t> route;
  const std::uint32_t stateId;
  nv::message request;
  std::deque<nv::flat_message> records;
  nv::Timer timer;

 private:
  std::vector<nv::flat_message> takeRecords(std::size_t baseWeight);
  void answerIn(unsigned milliseconds);
  void noteIdle();

  LifeToken<StatefulGetall::Impl>::Watch index_;  // gone: so is the owner
  bool isListed_ = true;
  LifeToken<Impl> token_{this};
};
