/// Get-all that goes on behind a manager's items.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "cfgman/cfgman.h"
#include "cfgman/iterator.h"
#include "getall/getall_state.h"
#include "platform/export.h"
#include "platform/message.h"

class ItemWalk;

/// Attached to a configuration manager, it answers that manager's reads: get one, get count, and
/// get all, which goes through the items page by page and then on through a `GetallState`, by which
/// the service delivers further records over time.
///
///     class Connections : public StatefulGetall {
///       GetallState* newState(const nv::message&) override { return new SocketReader; }
///     };
///     Connections connections;
///     connections.setCm(&manager);  // after the manager has its handler
///
/// What it does not answer goes to the manager as before, but get (the command without an id) is
/// refused with err::badCommand. The iterations of a client end when it stops them and when its
/// route is gone.
///
/// An object that is not there is an error here, also in notifications: a removal inside a
/// NotifyGuard looks to subscribers like a change.
///
/// Event-loop thread only. Manager and this object may be destroyed in any order.
class CONFKIT_API StatefulGetall {
 public:
  class Impl;

  StatefulGetall();
  StatefulGetall(const StatefulGetall&) = delete;
  StatefulGetall& operator=(const StatefulGetall&) = delete;

  // What a service supplies. The order of these declarations is part of the binary interface; new
  // ones go last.

  /// Makes exactly one new state, with `new`, for the iteration that `request` begins, and returns
  /// it; null refuses the request. The first one that is made and not returned is deleted.
  virtual GetallState* newState(const nv::message& request) = 0;
  /// The answer to get count.
  virtual std::uint32_t count(const nv::message& request);
  /// The record of an object that the manager does not hold. With key::absent non-zero in it there
  /// is no such object.
  virtual nv::message getMissing(std::uint32_t id);
  /// Amends the record of an item before it is sent.
  virtual void adjust(CfgMan::Iterator it, nv::message& record);
  /// Whether get all shows an item. The base hides those with a cookie.
  virtual bool isVisible(CfgMan::Iterator it, std::uint32_t flags, const nv::message& request);
  /// Ends all iterations; what the manager was asked before is asked again.
  virtual ~StatefulGetall();

  /// Takes over the reads of `cm`, which is not owned. Null: of none. The `doGet` that the manager
  /// had does not come back.
  void setCm(CfgMan* cm);
  /// The manager. Without one, makes and attaches one, which is deleted with this.
  CfgMan* cm();
  /// The manager's handler, null when it has none.
  nv::Handler* handler();

  /// Answers `request`, now or later; false when the manager is to take it. Errors:
  /// err::noSuchObject for an object or a start that is not there, err::noIterationId when the
  /// client has too many iterations.
  bool handleCmd(const nv::message& request);
  /// What a get without a request answers: an object, or the count for 0xffffffff.
  nv::message handleCmGet(std::uint32_t id, std::uint32_t flags);

  /// What `setCm` was given last, also when that is gone since; `cm()` is one that lives.
  CfgMan* cfgMan = nullptr;
  nv::Handler* handlerCache = nullptr;
  /// The live iterations. Owned.
  Impl* impl;

 private:
  using Page = std::vector<nv::flat_message>;

  /// The manager if it still lives.
  CfgMan* manager();
  void reply(const nv::message& request, nv::message answer);
  nv::message getOne(std::uint32_t id, std::uint32_t flags);
  void endStates(const nv::message& request, unsigned code);
  void getAll(const nv::message& request);
  /// Gathers items from the one that `request` names; false when that answers the request.
  bool fillPage(const nv::message& request, Page& page);
  /// The record of an item as get all shows it; none when it does not.
  std::optional<nv::message> listed(const ItemWalk& walk, std::uint32_t flags,
                                    const nv::message& request);
  /// Begins the iteration that goes on behind the items; null when there can be none.
  GetallState::Impl* startState(const nv::message& request);

  std::unique_ptr<CfgMan> ownManager_;
  std::optional<LifeToken<CfgMan>::Watch> managerLife_;
  LifeToken<StatefulGetall> token_{this};
};
