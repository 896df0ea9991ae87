/// What an observer that takes over a follow or a post is given to answer with.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/message.h"
#include "platform/src/loop/looper_impl.h"

namespace nv {

/// Lives as long as the call to the observer. What the observer says meanwhile, and what it says
/// before that has arrived, arrives in the next pass of the loop, all else at once.
class ObserverCall {
 public:
  using Function = std::function<void(const message&)>;

  explicit ObserverCall(Function take) : state_(std::make_shared<State>(State{std::move(take)})) {}
  ~ObserverCall() { state_->lasts = false; }
  ObserverCall(const ObserverCall&) = delete;

  /// May be kept beyond the call.
  Function answer() const {
    return [state = state_](const message& msg) {
      if (!state->lasts && state->waiting == 0) return state->take(msg);
      ++state->waiting;
      theLoop().localWork.push_back([state, msg] {
        --state->waiting;
        state->take(msg);
      });
    };
  }

 private:
  struct State {
    Function take;
    bool lasts = true;
    unsigned waiting = 0;
  };
  std::shared_ptr<State> state_;
};

}  // namespace nv
