/// The subscribers of one handler and what they are still to be told.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "platform/allocator.h"
#include "platform/handler.h"

namespace nv {

/// A subscriber and its marks: the objects that it was not told of because it reads too slowly, and
/// those of them that were announced as removed when they last changed.
struct Subscriber {
  message request;
  std::uint32_t connection;
  std::uint32_t tag;
  std::uint32_t flags;
  void* cookie;
  bool plain;
  Allocator late{0, 0xffffffff};
  Allocator lateRemoved{0, 0xffffffff};
  bool stalled = false;

  void mark(std::uint32_t id, bool removed);
  std::size_t marks() const { return late.intervals() + lateRemoved.intervals(); }
};

/// Keeps subscribers by a serial number that is never used again, since cookies are: a record may
/// be made where an earlier one was. Service code runs only where the handler's virtual operations
/// are called, and may add and remove subscribers there, and destroy the handler: what is under way
/// keeps this object alive, and finds no owner and no subscribers any more.
class Handler::Subscribers : public std::enable_shared_from_this<Subscribers> {
 public:
  explicit Subscribers(Handler& owner) : owner_(&owner) {}

  /// The handler is being destroyed: its operations are not called any more.
  void ownerGoes() { owner_ = nullptr; }

  message add(const message& request);
  message end(const message& request);
  void dropConnection(std::uint32_t connection);
  /// Tells all subscribers that nothing follows, and forgets them.
  void endAll();

  void mark(std::uint32_t id, bool removed, void* cookie, const message& extra);
  bool hasMarks() const { return !marks_.empty(); }
  void flush();
  void flushLate(std::uint32_t connection);

 private:
  using Serial = std::uint64_t;
  static constexpr Serial kAllPlain = 0;

  struct Mark {
    std::uint32_t id;
    bool removed;
    Serial to;  // kAllPlain, or one subscriber
    message extra;

    bool sameObject(const Mark& other) const {
      return id == other.id && removed == other.removed && extra.empty() && other.extra.empty();
    }
  };
  struct MarkKey {
    std::uint32_t id;
    Serial to;
    bool operator==(const MarkKey&) const = default;
  };
  struct MarkHash {
    std::size_t operator()(const MarkKey& key) const {
      return std::hash<std::uint64_t>()(key.to * 0x9e3779b97f4a7c15U + key.id);
    }
  };
  /// The object as each get flags word sees it.
  using Views = std::map<std::uint32_t, message>;

  void tell(const Mark& mark, const Views& views);
  void fetch(const Mark& mark, Views& views);
  message view(const Mark& mark, std::uint32_t flags);
  void stall(Serial serial);
  /// The next object that a subscriber was not told of; takes the mark. Requires: there is one.
  static Mark takeLate(Serial serial, Subscriber& subscriber);
  /// Ends a subscription that needs more marks than it may have: who wants to go on reads the set
  /// anew.
  void giveUp(Serial serial);
  void forget(Serial serial);

  Handler* owner_;  // null when it is gone
  Serial lastSerial_ = 0;
  std::map<Serial, Subscriber> subscribers_;  // in the order in which they came
  std::unordered_map<void*, Serial> byCookie_;
  std::vector<Mark> marks_;
  std::unordered_map<MarkKey, std::size_t, MarkHash> markAt_;
};

}  // namespace nv
