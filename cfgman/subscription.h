/// One subscriber of a configuration manager, with its filter.
#pragma once

#include <cstdint>

#include "cfgman/cfgman.h"

/// What a subscriber wants to hear of and how. A service derives from it to filter, and makes it in
/// `CfgMan::mkSubscr`. Owned by the manager's handler from then on, which alone deletes it: when
/// the subscriber goes, or with itself.
class CONFKIT_API CfgMan::Subscription {
 public:
  Subscription(const nv::message& req, std::uint32_t getFlags) : flags(getFlags), request(req) {}
  /// Leaves the handler's list.
  virtual ~Subscription();
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  /// Whether the subscriber wants to hear of object `id`, of which `msg` is the configuration
  /// (after an update) or what the subscriber would get (around a NotifyGuard). Called for the
  /// object before and after each change; either one will do. The base says yes.
  virtual bool interesting(unsigned id, const nv::message& msg);
  /// The subscriber reads too slowly: until `resumed` it is told of a changed object once.
  virtual void stalled();
  virtual void resumed();

  /// Get flags of what the subscriber is sent. To be set before the factory returns it.
  std::uint32_t flags;
  /// The request with which it subscribed.
  nv::message request;

 private:
  friend class CfgHandler;
  CfgHandler* handler_ = nullptr;
  std::uint64_t serial_ = 0;  // its place in the list; never given twice, unlike an address
};

/// A factory for `CfgMan::mkSubscr` without a filter: get flags from `req`'s key::getFlags, default
/// 0xfe001d. The bool is not read. The caller owns the result.
CONFKIT_API CfgMan::Subscription* mkSubscrBasic(const nv::message& req, bool);
