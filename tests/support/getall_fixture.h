/// A process whose manager's reads go through a stateful get-all, and the clients that ask it.
#pragma once

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "getall/getall_state.h"
#include "getall/stateful_getall.h"
#include "platform/observer.h"
#include "tests/support/cfgman_fixture.h"

namespace test {

using Route = Ids;
inline constexpr std::uint32_t kFirstState = 0xfffff001;

/// A state that does what its test says. Its number counts the states of a test from 1.
struct TestState : GetallState {
  TestState() { alive.push_back(this); }
  ~TestState() override {
    alive.erase(std::find(alive.begin(), alive.end(), this));
    if (onDelete) onDelete();
  }
  void more() override {
    ++asked;
    if (onMore) std::exchange(onMore, nullptr)();
  }
  void beforeReply(message& reply) override {
    if (onReply) std::exchange(onReply, nullptr)(reply);
  }
  /// Adds records that hold their numbers.
  void addAll(std::initializer_list<unsigned> numbers) {
    for (const auto n : numbers) add(message{{key::objectId, n}}.flat());
  }
  void addSized(std::size_t bytes) { add(nv::flat_message(std::vector<unsigned char>(bytes))); }

  unsigned asked = 0;
  std::function<void()> onMore, onDelete;       // the first, once
  std::function<void(message&)> onReply;        // once
  static inline std::vector<TestState*> alive;  // the oldest first
};

/// A service that makes such states and whose other answers a test sets.
struct TestGetall : StatefulGetall {
  GetallState* newState(const message&) override {
    ++made;
    return onNewState ? onNewState() : new TestState;
  }
  std::uint32_t count(const message& request) override {
    return onCount ? onCount(request) : StatefulGetall::count(request);
  }
  message getMissing(std::uint32_t id) override {
    return onMissing ? onMissing(id) : StatefulGetall::getMissing(id);
  }
  void adjust(CfgMan::Iterator it, message& record) override {
    if (onAdjust) onAdjust(it, record);
  }
  bool isVisible(CfgMan::Iterator it, std::uint32_t flags, const message& request) override {
    return onVisible ? onVisible(it) : StatefulGetall::isVisible(it, flags, request);
  }

  unsigned made = 0;
  std::function<GetallState*()> onNewState;
  std::function<std::uint32_t(const message&)> onCount;
  std::function<message(std::uint32_t)> onMissing;
  std::function<void(CfgMan::Iterator, message&)> onAdjust;
  std::function<bool(CfgMan::Iterator)> onVisible;
};

/// `getall` answers for `cm`, which has no items and no store.
class GetallTest : public CfgManTest {
 protected:
  GetallTest() {
    start(Kind::unstored);
    getall->setCm(cm.get());
  }
  ~GetallTest() override {
    getall.reset();
    EXPECT_TRUE(TestState::alive.empty());
  }

  /// Items 1 to `n`.
  void addItems(unsigned n) {
    for (unsigned k = 0; k < n; ++k) add();
    told();
  }
  void open(Fields fields = {}, const Route& from = {5}) {
    send(command(cmd::getAll, fields), {from, {}});
  }
  /// Asks on at a state of the route, 1 being the first, or an item.
  void askOn(unsigned state, Fields fields = {}, const Route& from = {5}) {
    auto request = command(cmd::getAll, fields);
    send(request.insert(key::startId, kFirstState + state - 1), {from, {}});
  }
  void stop(std::uint32_t stateId, const Route& from = {5}) {
    send(command(cmd::stopGetAll, {{key::startId, stateId}}), {from, {}});
  }
  void gone(const Route& route) { send(command(cmd::routeGone), {route, {}}); }
  /// The oldest state but `k` others.
  TestState& state(unsigned k = 0) { return *TestState::alive.at(k); }
  std::size_t alive() const { return TestState::alive.size(); }

  /// What clients were told since the last call: "1 2 >s1" are the records 1 and 2, and an
  /// iteration that goes on in state 1; ">3" at item 3, "." not at all.
  std::string told() {
    std::string all;
    for (const auto& [request, reply] : std::exchange(kit->seen().replies, {}))
      all += (all.empty() ? "" : " | ") + textOf(reply);
    return all;
  }
  std::string toldAfter(std::uint64_t milliseconds) {
    kit->advance(milliseconds);
    return told();
  }
  static std::string textOf(const message& reply) {
    unsigned code = 0;
    if (nv::isError(reply, &code, nullptr)) return "error " + std::to_string(code & 0xff);
    if (!reply.has(key::objects))
      return reply.has(key::count) ? "count " + std::to_string(reply.get(key::count)) : "other";
    std::string text;
    for (const auto& record : reply.get(key::objects))
      text += (record.size() > 100 ? "long" : idText(message(record))) + " ";
    const auto next = reply.get(key::startId, kNoId);
    if (next == kNoId) return text + ".";
    return text + (next < kFirstState ? ">" + std::to_string(next)
                                      : ">s" + std::to_string(next - kFirstState + 1));
  }
  static std::string idText(const message& record) {
    return std::to_string(record.get(key::objectId));
  }

  std::unique_ptr<TestGetall> getall = std::make_unique<TestGetall>();
};

/// Calls `then` when the next reply is handed to the platform, while this lives.
class OnReply : public nv::Observer {
 public:
  explicit OnReply(std::function<void()> then) : then_(std::move(then)) { nv::setObserver(this); }
  ~OnReply() override { nv::setObserver(before_); }
  void reply(const message& request, const message& reply) override {
    before_->reply(request, reply);
    if (then_) std::exchange(then_, nullptr)();
  }

 private:
  nv::Observer* const before_ = nv::observer();
  std::function<void()> then_;
};

}  // namespace test
