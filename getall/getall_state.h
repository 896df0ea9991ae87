/// One get-all iteration that goes on between requests.
#pragma once

#include "platform/export.h"
#include "platform/flat_message.h"
#include "platform/message.h"

/// What a service derives from to deliver records that are not at hand when a client asks: they
/// come over time, and each waiting request is answered with those that have come so far.
///
///     class Neighbours : public GetallState {
///       void more() override { reader_.next([this](auto record) { add(std::move(record)); }); }
///       ...
///     };
///
/// A request is answered when more than a reply's worth of records is pending, when `done` is
/// called, when another request comes, and 100 ms after it arrived; or 10 ms after the first record
/// came to it, if that was after `more` and none was pending. A reply names this iteration in
/// key::startId until everything is delivered.
///
/// Made by `StatefulGetall::newState`, and ended by the owner when it is done and empty, when the
/// client stops it or goes away. The service may delete it at any time; a request that waits then
/// is not answered, and counts among those of its connection until that ends, unless the destructor
/// calls `done`. A destructor that the owner runs may end any iteration, and the owner, since this
/// one has left before. One that the service runs must not end this one. Event-loop thread only.
class CONFKIT_API GetallState {
 public:
  class Impl;

  GetallState();
  virtual ~GetallState();
  GetallState(const GetallState&) = delete;
  GetallState& operator=(const GetallState&) = delete;

  /// A request waits and there is room: now, or later, the service may `add` records or call
  /// `done`.
  virtual void more();
  /// A reply is about to be sent; the service may add keys of its own.
  virtual void beforeReply(nv::message& reply);

  /// Delivers one record, behind the others. Nothing happens to a state that no owner has made.
  void add(nv::flat_message record);
  /// No records follow. Best called while a request waits or records are pending: else a client
  /// that was told to ask on may find its iteration ended, err::noSuchObject.
  void done();
  /// Whether a reply's worth of records is pending: more than the waiting request's
  /// key::maxPerReply (0: no limit), or more than 65534 bytes of them.
  bool full() const;

  /// The bookkeeping; null for a state that no owner has made. Owned.
  Impl* impl;
};
