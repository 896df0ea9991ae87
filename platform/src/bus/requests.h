/// The requests of this process that await something, by tag.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/message.h"
#include "platform/timer.h"

namespace nv {

/// Who waits for the answer to a request, and who listens to a subscription. Tags are never 0 and
/// are not used twice while they are awaited.
class Requests {
 public:
  using Function = std::function<void(const message&)>;

  /// A tag for a request whose answer nobody awaits.
  std::uint32_t freshTag() const;
  /// Awaits one answer. `timeout` in milliseconds; 0: as long as it takes.
  std::uint32_t await(Function done, std::uint32_t timeout);
  /// Also hears the notifications that carry `tag`, until `forget` or until the subscription ends
  /// (`ended`, or the connection is lost), of which `lost` tells.
  void listen(std::uint32_t tag, Function notify, std::function<void()> lost);
  void forget(std::uint32_t tag);
  bool awaits(std::uint32_t tag) const { return awaited_.contains(tag); }

  /// The request with `tag` cannot go out yet; when its time is over meanwhile, its answer says
  /// why.
  void delayed(std::uint32_t tag, std::string why);
  /// The request with `tag` went out over a connection.
  void sentOver(std::uint32_t tag, std::uint32_t connection);
  /// Hands over an answer of this process's own, whoever was asked; nothing happens when nobody
  /// awaits it.
  void answer(std::uint32_t tag, const message& reply);

  // What came over a connection counts only when the request with `tag` went out over the same one:
  // a service could else speak for another. kSelf: this process.
  void reply(std::uint32_t connection, std::uint32_t tag, const message& reply);
  /// The error that answers all that awaits an answer over a connection, because it is being cut.
  void refused(std::uint32_t connection, const message& error);
  void notify(std::uint32_t connection, std::uint32_t tag, const message& notification);
  void ended(std::uint32_t connection, std::uint32_t tag);
  /// Answers what was sent over a connection with err::noRoute and tells its listeners.
  void connectionLost(std::uint32_t connection);

 private:
  void timedOut(std::uint32_t tag);
  void lose(std::uint32_t tag);
  std::vector<std::uint32_t> awaitedOver(std::uint32_t connection) const;

  struct Awaited {
    Function done;
    std::uint32_t connection = 0;
    Timer timeout = {};
    std::string delay = {};  // why it has not gone out
  };
  struct Listener {
    Function notify;
    std::function<void()> lost;
    std::uint32_t connection = 0;
  };
  std::unordered_map<std::uint32_t, Awaited> awaited_;
  // Shared with the call that is under way, in which a listener may be forgotten.
  std::unordered_map<std::uint32_t, std::shared_ptr<Listener>> listeners_;
};

}  // namespace nv
