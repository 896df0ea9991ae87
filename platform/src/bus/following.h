/// One follow: subscribes, reads the whole set, then passes changes on; again each time that the
/// other end was gone.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/allocator.h"
#include "platform/message.h"
#include "platform/post.h"
#include "platform/timer.h"

namespace nv {

/// Held by the registry of follows and by each of its own calls that is under way, so that the
/// callback may end the follow.
class Following : public std::enable_shared_from_this<Following> {
 public:
  using Callback = std::function<void(const message&)>;

  Following(Callback callback, message target)
      : callback_(std::move(callback)), target_(std::move(target)) {}

  /// Begins in the next pass of the loop.
  void start();
  /// Ends it; no call of the callback follows.
  void stop();
  /// Ends it without a word to the other end, which is gone with the process of before.
  void forget();
  /// Hands a message to the callback unless the follow has ended.
  void deliver(const message& msg);

 private:
  void subscribe();
  void subscribed(const message& reply);
  void readPage(std::uint32_t startId);
  void pageRead(std::uint32_t startId, const message& reply);
  void readSingle();
  void initialSetRead();
  void passOn(message object, std::uint32_t id);
  void changed(const message& notification);
  void unsubscribe();
  void tryAgainLater();
  void ended();
  message requestFor(unsigned command) const;
  template <class Method, class... Args>
  auto later(Method method, Args... args);

  Callback callback_;
  message target_;
  bool stopped_ = false;
  bool asked_ = false;     // the other end may hold a subscription
  std::uint32_t tag_ = 0;  // of the subscription, 0: none
  unsigned delay_ = 0;     // before the next try, milliseconds
  Post reading_;
  Timer retry_;
  Allocator known_{0, 0xffffffff};  // delivered and not removed since
  Allocator seen_{0, 0xffffffff};   // the part of them that the set being read holds
  Allocator pages_{0, 0xffffffff};  // with which objects the pages read so far begin
};

/// Ends all follows of this process without a word to those who are followed.
void forgetFollows();

}  // namespace nv
