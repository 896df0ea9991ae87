// Clients of a stateful get-all that ask, stop and go away as they like, and a service that
// delivers, ends and forgets as it likes. Each input is a list of steps: a kind and its numbers.
// Whatever happens, a request has at most one answer, and the records of a state arrive in order,
// without a gap.
#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/run_task.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "getall/getall_state.h"
#include "getall/stateful_getall.h"
#include "platform/commands.h"
#include "testing/kit.h"

namespace {

using namespace nv;
using fuzz::require;

constexpr u32_id kRequestNumber{0x11};
constexpr u32_id kStateNumber{0x12};
constexpr u32_id kRecordNumber{0x13};
constexpr raw_id kPadding{0x14};
constexpr std::uint32_t kFirstState = 0xfffff001;

class Process {
  class State : public GetallState {
   public:
    explicit State(Process& process) : process_(process), number_(++process.statesMade_) {
      process_.states_.push_back(this);
    }
    ~State() override {
      std::erase(process_.states_, this);
      if (!isQuiet) process_.act();
    }
    void more() override { process_.act(); }
    void beforeReply(message&) override { process_.actBeforeReply(); }
    void addOne(std::size_t bytes) {
      message record{{kStateNumber, number_}, {kRecordNumber, added_++}};
      if (bytes != 0) record.insert(kPadding, std::vector<unsigned char>(bytes));
      add(record.flat());
    }

    /// Deleted by the service itself, the destructor must not end this state another time.
    bool isQuiet = false;

   private:
    Process& process_;
    const std::uint32_t number_;
    std::uint32_t added_ = 0;
  };

  struct Service : StatefulGetall {
    explicit Service(Process& of) : process(of) {}
    GetallState* newState(const message&) override {
      auto& world = process;  // which outlives this
      auto* const made = world.byte() < 250 ? new State(world) : nullptr;
      world.act();
      return world.isAlive(made) ? made : nullptr;
    }
    Process& process;
  };

 public:
  explicit Process(fuzz::Input input) : input_(input) {
    manager_->setHandler(5);
    service_->setCm(manager_.get());
  }
  void run() {
    while (!input_.empty() && service_) step(byte());
    kit_.advance(1000);
    checkReplies();
    service_.reset();
  }

 private:
  unsigned byte() { return input_.byte(); }
  /// Something that a hook of the service does, mostly nothing.
  void act() {
    const auto what = byte();
    if (what >= 128 || depth_ > 4 || input_.empty()) return;
    ++depth_;
    step(what);
    --depth_;
  }

  /// The same, but for requests: one for that state would be answered before the reply that is
  /// made.
  void actBeforeReply() {
    const auto before = std::exchange(isSilent_, true);
    act();
    isSilent_ = before;
  }

  using Route = std::vector<std::uint32_t>;

  void step(unsigned what) {
    switch (what % 10) {
      case 0:
      case 1: return getAll();
      case 2: return addRecords();
      case 3: return finish();
      case 4: return end();
      case 5: return tell(cmd::stopGetAll);
      case 6: return tell(cmd::routeGone);
      case 7: return changeItem();
      case 8: return wait();
      default: return byte() < 16 ? endAll() : ask(cmd::getObj, byte());
    }
  }

  Route route() {
    static const Route routes[] = {{5}, {5, 1}, {5, 1, 2}, {6}, {}};
    return routes[byte() % std::size(routes)];
  }
  State* anyState() { return states_.empty() ? nullptr : states_[byte() % states_.size()]; }
  /// An item, a state, or the beginning.
  std::uint32_t anyStart() {
    const auto value = byte();
    return value < 8 ? value : value < 128 ? kFirstState + value % 8 : kNoId;
  }

  void getAll() {
    message request{{key::command, cmd::getAll}, {key::startId, anyStart()}};
    const auto limits = byte();
    if ((limits & 1) != 0) request.insert(key::maxPerReply, byte() % 8);
    if ((limits & 2) != 0) request.insert(key::maxCount, byte() % 4);
    if ((limits & 4) != 0) request.insert(key::getFlags, kConfigOnlyBit);
    send(std::move(request));
  }
  void ask(unsigned code, unsigned id) { send({{key::command, code}, {key::objectId, id}}); }
  void tell(unsigned code) {
    send({{key::command, code}, {key::startId, byte() < 200 ? anyStart() : kNoId}});
  }
  void send(message request) {
    request.insert(kRequestNumber, ++requests_);
    if (isSilent_ || !manager_ || manager_->handler == nullptr) return;
    if (depth_ == 0) {
      kit_.ask(*manager_->handler, request, {route(), {}});
    } else if (service_) {
      service_->handleCmd(request.insert(key::requester, route()));
    }
  }

  void addRecords() {
    auto* const state = anyState();
    for (auto left = byte() % 16; left > 0 && isAlive(state); --left) {
      const auto size = byte();
      state->addOne(size > 250 ? 70000 : size > 240 ? 30000 : 0);
    }
  }
  void finish() {
    if (auto* const state = anyState()) state->done();
  }
  void end() {
    auto* const state = anyState();
    if (state == nullptr || byte() >= 128) return;
    state->isQuiet = true;
    delete state;
  }
  void endAll() {
    if ((byte() & 1) != 0)
      service_.reset();
    else
      manager_.reset();
  }
  void changeItem() {
    if (!manager_) return;
    message update{{key::absent, byte() & 1}};
    manager_->scheduleUpdate(1 + byte() % 8, update, {}, {}, {});
    while (depth_ == 0 && tasks_.run()) continue;
  }
  void wait() {
    const auto time = byte();
    if (depth_ == 0) kit_.advance(time);
    checkReplies();
  }
  bool isAlive(const State* state) const {
    return std::find(states_.begin(), states_.end(), state) != states_.end();
  }

  void checkReplies() {
    for (; seen_ < kit_.seen().replies.size(); ++seen_) {
      const auto& [request, reply] = kit_.seen().replies[seen_];
      require(answered_.insert(request.get(kRequestNumber)).second);
      std::size_t weight = 32;
      const auto records = reply.get(key::objects);
      for (const auto& flat : records) {
        weight += flat.size() + 8;
        const message record(flat);
        if (!record.has(kStateNumber)) continue;
        require(record.get(kRecordNumber) == next_[record.get(kStateNumber)]++);
      }
      require(weight <= 0xfffe || records.size() == 1);
    }
  }

  fuzz::Input input_;
  testkit::MemoryStores stores_;
  testkit::Kit kit_{stores_};
  CfgMan::RunTask tasks_;
  std::unique_ptr<CfgMan> manager_ = std::make_unique<CfgMan>(&tasks_);
  std::unique_ptr<Service> service_ = std::make_unique<Service>(*this);
  unsigned depth_ = 0;
  bool isSilent_ = false;
  std::vector<State*> states_;
  std::uint32_t statesMade_ = 0, requests_ = 0;
  std::size_t seen_ = 0;
  std::set<std::uint32_t> answered_;
  std::map<std::uint32_t, std::uint32_t> next_;  // record expected of each state
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Process(fuzz::Input(data, size)).run();
  return 0;
}
