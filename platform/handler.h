/// The base of everything that answers commands.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/message.h"

namespace nv {

/// One entry of the dictionary that a handler offers to clients: a key of its objects in words.
struct KeyInfo {
  unsigned uid;       ///< type tag | field id
  std::string name;   ///< what people type; letters, digits and '-'
  std::string about;  ///< one line
};

/// Answers commands, publishes undo records and tells subscribers of changes. Event-loop thread
/// only.
///
/// A command is dispatched to the operation of its code; what the operation returns is the reply. A
/// handler is registered with `Looper::addHandler` and unregisters itself when it is destroyed: its
/// subscribers are then told that their subscriptions have ended, and dropped without further
/// calls. It may be destroyed from within any of its own operations that the bus calls, unless
/// its class says otherwise.
///
/// Notifications: `notifyChange` marks an object; before the loop sleeps `flushNotifies` fetches
/// each marked object once per get flags (`getObject`) and sends it, so any number of changes to
/// one object in one pass cost one message. To a subscriber that reads slowly nothing is sent: it
/// keeps one mark per changed object, with whether it was removed, until it has caught up.
class CONFKIT_API Handler {
 public:
  Handler();
  virtual ~Handler();
  Handler(const Handler&) = delete;
  Handler& operator=(const Handler&) = delete;

  /// Dispatches by `code`. Absent arguments are passed as 0xffffffff. A result whose
  /// key::replyMarker is 0xffffffff is not sent. An unknown code is answered err::badCommand.
  virtual void handleCmd(const message& cmd, unsigned code);

  // One operation a command; the base answers err::badCommand.
  virtual message cmdGetObj(const message& request, std::uint32_t id);
  virtual message cmdSetObj(const message& request, std::uint32_t id);
  virtual message cmdAddObj(const message& request);
  virtual message cmdRemoveObj(const message& request, std::uint32_t id);
  virtual message cmdMoveObj(const message& request, std::uint32_t id);
  virtual message cmdGetAll(const message& request, std::uint32_t startId, std::uint32_t count);
  virtual message cmdGet(const message& request);
  virtual message cmdSet(const message& request);
  /// The base answers {key::count = objectCount()}.
  virtual message cmdGetCount(const message& request);
  /// The base answers an empty message: it keeps no get-all iteration.
  virtual message cmdStopGetAll(const message& request);

  /// The object's present state; {key::objectId, key::absent = 1} when there is none.
  virtual message getObject(std::uint32_t id, std::uint32_t flags);
  /// How many objects there are; 0xffffffff when that means nothing.
  virtual std::uint32_t objectCount();

  /// A new subscriber. The cookie returned names it in the calls below and in `notifyChange`. When
  /// `plain` is left true the subscriber also hears of every change announced with a null cookie;
  /// set it to false to address the subscriber by its cookie alone.
  virtual void* subscribe(const message& request, bool& plain);
  /// The subscriber is gone. `request` is the one it subscribed with.
  virtual void unsubscribe(const message& request, void* cookie);
  /// A subscriber reads too slowly: from now on its changes are marks only.
  virtual void subscriberStalled(void* cookie);
  /// A stalled subscriber has caught up.
  virtual void subscriberResumed(void* cookie);
  /// Sends what `notifyChange` marked. The loop calls it before it sleeps.
  virtual void flushNotifies();

  /// The get flags with which a subscriber is sent objects; asked once, after `subscribe`. The base
  /// takes them from the request's key::getFlags, default 5.
  virtual std::uint32_t subscriberFlags(const message& request, void* cookie);

  /// Whether the requester may have `request` carried out; asked before `handleCmd`. The base asks
  /// policies::is_allowed.
  virtual bool isAllowed(const message& request) const;

  /// Answers {key::about = [text]}: what the handler holds, for diagnosis. The base answers
  /// err::badCommand.
  virtual message cmdDump(const message& request);

  /// Sends `reply` to who sent `request`. Sets its key::route from the request when the reply has
  /// none; without a requester the reply is dropped. The reply leaves the process when everything
  /// that was stored by the same turn of the loop is on disk.
  void replyMessage(const message& request, message reply);
  /// Marks object `id` as changed for one subscriber (`cookie`), or for all plain ones (null).
  /// `removed`: the notification says so whatever `getObject` answers. The fields of `extra` are
  /// added to the notification.
  ///
  /// Of several calls for one object in one pass the last one's `removed` counts, and the fields of
  /// all. A subscriber that reads slowly loses the fields of `extra`: once it has caught up it gets
  /// what `getObject` answers then, and that the object is removed when the last call said so.
  void notifyChange(std::uint32_t id, bool removed, void* cookie, const message& extra);
  /// Publishes a command that would revert the change made by `request`, with a text for people.
  /// Clients read this handler's last ones with cmd::getUndo, from when the change is on disk. All
  /// handlers of the process share the room for them (Limits::undoRecords, Limits::undoBytes).
  void sendUndo(const message& request, const message& undo, const std::string& description);

  /// What clients are told of this handler: a word that names it, and its keys.
  void describe(std::string name, std::vector<KeyInfo> keys);

  // For the bus.
  struct Description {
    std::string name;
    std::vector<KeyInfo> keys;
  };
  const Description& description() const { return description_; }
  /// Tells the subscribers that their subscriptions have ended and forgets them, with a call of
  /// `unsubscribe` for each.
  void endSubscriptions();
  /// Forgets the subscribers of a connection, with a call of `unsubscribe` for each.
  void dropSubscribers(std::uint32_t connection);
  /// Whether `flushNotifies` has something to send.
  bool hasNotifies() const;
  /// Sends the marks of a subscriber's connection that has caught up.
  void connectionDrained(std::uint32_t connection);

 private:
  class Subscribers;
  message answer(const message& cmd, unsigned code);

  std::shared_ptr<Subscribers> subscribers_;  // also held by what is under way in it
  Description description_;
};

}  // namespace nv
