/// What a test sees of the platform, at the moment of each call.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/export.h"
#include "platform/message.h"

namespace nv {

class Handler;

/// Told of each platform call before anything is batched, coalesced or held back. All operations do
/// nothing by default. The observer must not call back into the handler that it is told about.
class CONFKIT_API Observer {
 public:
  virtual ~Observer() = default;

  virtual void storeSet(std::string_view store, std::uint32_t id, const message& record);
  /// Also for a record that is not there.
  virtual void storeRemove(std::string_view store, std::uint32_t id);
  virtual void reply(const message& request, const message& reply);
  virtual void notifyChange(Handler* handler, std::uint32_t id, bool removed, void* cookie,
                            const message& extra);
  virtual void undo(const message& request, const message& undo, const std::string& description);
  virtual void sent(const message& msg);

  /// A follow begins. When the observer returns true it feeds `deliver` itself (as often as it
  /// likes, until followStopped) and nothing goes to the bus. What it delivers from within this
  /// call arrives in the next pass of the loop, what it delivers later arrives at once.
  virtual bool follow(void* handle, const message& target, bool wait,
                      std::function<void(const message&)> deliver);
  virtual void followStopped(void* handle);
  /// A request is posted. When the observer returns true it answers with `answer`. An answer from
  /// within this call arrives in the next pass of the loop, a later one at once; calls after the
  /// first, and after the Post is gone, do nothing.
  virtual bool post(const message& request, std::function<void(const message&)> answer);
};

/// The observer of this process, null when there is none.
CONFKIT_API Observer* observer();
/// Not owned; null for none.
CONFKIT_API void setObserver(Observer* observer);

}  // namespace nv
