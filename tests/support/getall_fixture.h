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

using Route = std::vector<std::uint32_t>;
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
  void beforeReply(nv::message& reply) override {
    if (onReply) std::exchange(onReply, nullptr)(reply);
  }
  /// Adds records that hold their numbers.
  void addAll(std::initializer_list<unsigned> numbers) {
    for (const auto n : numbers) add(nv::message{{nv::key::objectId, n}}.flat());
  }
  void addSized(std::size_t bytes) { add(nv::flat_message(std::vector<unsigned char>(bytes))); }

  unsigned asked = 0;
  std::function<void()> onMore, onDelete;       // the first, once
  std::function<void(nv::message&)> onReply;    // once
  static inline std::vector<TestState*> alive;  // the oldest first
};

/// A service that makes such states and whose other answers a test sets.
struct TestGetall : StatefulGetall {
  GetallState* newState(const nv::message&) override {
    ++made;
    return onNewState ? onNewState() : new TestState;
  }
  std::uint32_t count(const nv::message& request) override {
    return onCount ? onCount(request) : StatefulGetall::count(request);
  }
  nv::message getMissing(std::uint32_t id) override {
    return onMissing ? onMissing(id) : StatefulGetall::getMissing(id);
  }
  void adjust(CfgMan::Iterator it, nv::message& record) override {
    if (onAdjust) onAdjust(it, record);
  }
  bool isVisible(CfgMan::Iterator it, std::uint32_t flags, const nv::message& request) override {
    return onVisible ? onVisible(it) : StatefulGetall::isVisible(it, flags, request);
  }

  unsigned made = 0;
  std::function<GetallState*()> onNewState;
  std::function<std::uint32_t(const nv::message&)> onCount;
  std::function<nv::message(std::uint32_t)> onMissing;
  std::function<void(CfgMan::Iterator, nv::message&)> onAdjust;
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
    send(command(nv::cmd::getAll, fields), {from, {}});
  }
  /// Asks on at a state of the route, 1 being the first, or an item.
  void askOn(unsigned state, Fields fields = {}, const Route& from = {5}) {
    auto request = command(nv::cmd::getAll, fields);
    send(request.insert(nv::key::startId, kFirstState + state - 1), {from, {}});
  }
  void stop(std::uint32_t stateId, const Route& from = {5}) {
    send(command(nv::cmd::stopGetAll, {{nv::key::startId, stateId}}), {from, {}});
  }
  void gone(const Route& route) { send(command(nv::cmd::routeGone), {route, {}}); }
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
  static std::string textOf(const nv::message& reply) {
    unsigned code = 0;
    if (nv::isError(reply, &code, nullptr)) return "error " + std::to_string(code & 0xff);
    if (!reply.has(nv::key::objects))
      return reply.has(nv::key::count) ? "count " + std::to_string(reply.get(nv::key::count))
                                       : "other";
    std::string text;
    for (const auto& record : reply.get(nv::key::objects))
      text += (record.size() > 100 ? "long" : idText(nv::message(record))) + " ";
    const auto next = reply.get(nv::key::startId, nv::kNoId);
    if (next == nv::kNoId) return text + ".";
    return text + (next < kFirstState ? ">" + std::to_string(next)
                                      : ">s" + std::to_string(next - kFirstState + 1));
  }
  static std::string idText(const nv::message& record) {
    return std::to_string(record.get(nv::key::objectId));
  }

  std::unique_ptr<TestGetall> getall = std::make_unique<TestGetall>();
};

/// Calls `then` when the next reply is handed to the platform, while this lives.
class OnReply : public nv::Observer {
 public:
  explicit OnReply(std::function<void()> then) : then_(std::move(then)) { nv::setObserver(this); }
  ~OnReply() override { nv::setObserver(before_); }
  void reply(const nv::message& request, const nv::message& reply) override {
    before_->reply(request, reply);
    if (then_) std::exchange(then_, nullptr)();
  }

 private:
  nv::Observer* const before_ = nv::observer();
  std::function<void()> then_;
};

}  // namespace test
