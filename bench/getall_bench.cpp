// Get-all that goes on behind a manager's items.
//
// Without arguments all parts run, else those named:
//
//   speed   100,000 items and 100,000 records that follow, against the plain get-all of 200,000
//           items
//   memory  what the process holds while 1,000,000 records are streamed
//   many    one iteration opened, answered, stopped, or cleaned up, beside 100 and beside 10,000
//           open ones; one route comes to have all the 4,092 that it may have
//
// Turns are interleaved; the fastest of each row counts. Times are processor time, on a clock that
// stands still. Ends with status 1 when a bar does not hold.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include <malloc.h>

#include "bench/cfgman_bench.h"
#include "bench/support/no_refusals.h"
#include "getall/stateful_getall.h"
#include "testing/kit.h"

namespace bench {

namespace {

namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

constexpr std::uint32_t kAddress = 5;

/// Delivers made-up records whenever there is room.
class Counting : public GetallState {
 public:
  explicit Counting(std::uint32_t records) : left_(records) {}
  void more() override {
    for (; left_ != 0 && !full(); --left_) add(chainRecord(left_, 0).flat());
    if (left_ == 0) done();
  }

 private:
  std::uint32_t left_;
};

class Streaming : public StatefulGetall {
 public:
  explicit Streaming(std::uint32_t records) : records_(records) {}
  GetallState* newState(const message&) override { return new Counting(records_); }

 private:
  std::uint32_t records_;
};

std::size_t bytesInUse() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// Keeps where the last answer ends, and the most memory that was in use when one was sent.
class Answers : public NoRefusals {
 public:
  void reply(const message& request, const message& answer) override {
    NoRefusals::reply(request, answer);
    next = answer.has(key::startId) ? answer.get(key::startId) : nv::kNoId;
    records += answer.size(key::objects);
    if (most) most = std::max(*most, bytesInUse());
  }
  std::uint32_t next = nv::kNoId;
  std::size_t records = 0;
  std::optional<std::size_t> most;  // asked for when it has a value
};

using Route = std::vector<std::uint32_t>;

void ask(Manager& manager, message request, const Route& route) {
  request.insert(key::requester, route);
  nv::getLooper()->deliver(*manager.cm.handler, request);
}

/// All pages, one asked for when the one before has come.
void getAll(nv::testkit::Kit& kit, Manager& manager, Answers& answers) {
  const Route route{0xcfff0001};
  answers.next = nv::kNoId;
  do {
    const auto request = command(cmd::getAll, kAddress, {{key::startId, answers.next}});
    const auto before = answers.replies;
    ask(manager, request, route);
    kit.settle();
    if (answers.replies != before + 1) std::abort();
  } while (answers.next != nv::kNoId);
}

void speed(Bars& bars) {
  constexpr std::uint32_t kHalf = 100000;
  nv::testkit::Kit kit(std::make_unique<MadeUpStore>());
  Answers answers;
  Manager all(kAddress), half(kAddress + 1);
  all.cm.setStore(std::to_string(2 * kHalf), false);
  half.cm.setStore(std::to_string(kHalf), false);
  for (auto* const manager : {&all, &half}) manager->runAll();
  Streaming streaming(kHalf);
  streaming.setCm(&half.cm);

  Fastest plain, streamed;
  const auto timed = [&](Manager& manager, Fastest& fastest) {
    answers.records = 0;
    fastest.take(timeOf([&] { getAll(kit, manager, answers); }));
    if (answers.records != 2 * kHalf) std::abort();
  };
  for (unsigned turn = 0; turn < 10; ++turn) {
    timed(all, plain);
    timed(half, streamed);
  }
  const auto each = [&](const Fastest& f) { return f.time() * 1e9 / (2 * kHalf); };
  std::printf("a record of 200,000 items %.0f ns, of 100,000 items and 100,000 streamed %.0f ns\n",
              each(plain), each(streamed));
  bars.atLeast("speed of items and stream / items", plain.time() / streamed.time(), 0.5);
}

void memory(Bars& bars) {
  constexpr std::uint32_t kRecords = 1000000;
  nv::testkit::Kit kit;
  Answers answers;
  Manager manager(kAddress);
  Streaming streaming(kRecords);
  streaming.setCm(&manager.cm);

  const auto before = bytesInUse();
  answers.most = 0;
  getAll(kit, manager, answers);
  const auto most = *answers.most - before;
  if (answers.records != kRecords) std::abort();
  std::printf("%u records streamed; at most %zu KiB more in use as a page is answered\n", kRecords,
              most / 1024);
  bars.atMost("KiB in use as a page of 64 KiB is answered", static_cast<double>(most) / 1024,
              4 * 64);
}

/// Each page has one record, and the iteration goes on, unless it is to end with this one.
class OneByOne : public StatefulGetall {
 public:
  GetallState* newState(const message&) override { return new State(*this); }
  bool ends = false;
  unsigned live = 0;

 private:
  struct State : GetallState {
    explicit State(OneByOne& o) : owner(o) { ++owner.live; }
    ~State() override { --owner.live; }
    void more() override {
      add(chainRecord(1, 0).flat());
      if (owner.ends) return done();
      add(chainRecord(2, 0).flat());
    }
    OneByOne& owner;
  };
};

/// A process with `count` open iterations, so many of them on the main route that a batch more is
/// all that it may have.
class OpenOnes {
 public:
  static constexpr unsigned kBatch = 100;

  OpenOnes(nv::testkit::Kit& kit, Answers& answers, std::uint32_t address, unsigned count,
           unsigned onMain)
      : kit_(kit), answers_(answers), address_(address), count_(count), manager_(address) {
    streaming_.setCm(&manager_.cm);
    for (unsigned n = 0; n < count; ++n)
      request(cmd::getAll, nv::kNoId, n < onMain ? kMain : Route{0xcfff0002, n / 10});
  }

  void open() {
    for (auto& id : ids_) {
      request(cmd::getAll, nv::kNoId, kMain);
      id = answers_.next;
    }
    expect(count_ + kBatch);
  }
  void answer() {
    for (const auto id : ids_) request(cmd::getAll, id, kMain);
    expect(count_ + kBatch);
  }
  void stop() {
    for (const auto id : ids_) request(cmd::stopGetAll, id, kMain);
    expect(count_);
  }
  /// Opens some that end with their first page, and waits for the cleanup.
  void cleanUp() {
    streaming_.ends = true;
    for (unsigned n = 0; n < kBatch; ++n) request(cmd::getAll, nv::kNoId, kMain);
    streaming_.ends = false;
    expect(count_ + kBatch);
    kit_.advance(100);
    expect(count_);
  }

 private:
  const Route kMain{0xcfff0001};

  void request(unsigned code, std::uint32_t start, const Route& route) {
    ask(manager_, command(code, address_, {{key::startId, start}, {key::maxPerReply, 1}}), route);
  }
  void expect(unsigned live) const {
    if (streaming_.live != live) std::abort();
  }

  nv::testkit::Kit& kit_;
  Answers& answers_;
  std::uint32_t address_;
  unsigned count_;
  Manager manager_;
  OneByOne streaming_;
  std::array<std::uint32_t, kBatch> ids_{};
};

struct Operation {
  const char* name;
  void (OpenOnes::*run)();
};
constexpr std::array<Operation, 4> kOperations{Operation{"opening", &OpenOnes::open},
                                               {"answering", &OpenOnes::answer},
                                               {"stopping", &OpenOnes::stop},
                                               {"finishing and cleaning up", &OpenOnes::cleanUp}};
using Times = std::array<Fastest, kOperations.size()>;

void turn(OpenOnes& ones, Times& times) {
  for (std::size_t k = 0; k < kOperations.size(); ++k)
    times[k].take(timeOf([&] { (ones.*kOperations[k].run)(); }));
}

void many(Bars& bars) {
  nv::testkit::Kit kit;
  Answers answers;
  OpenOnes few(kit, answers, kAddress, 100, 41), all(kit, answers, kAddress + 1, 10000, 3992);
  Times timesOfFew, timesOfAll;
  for (unsigned n = 0; n < 50; ++n) {
    turn(few, timesOfFew);
    turn(all, timesOfAll);
  }
  for (std::size_t k = 0; k < kOperations.size(); ++k) {
    const auto nanos = [&](Times& times) { return times[k].time() * 1e9 / OpenOnes::kBatch; };
    const std::string what = kOperations[k].name;
    std::printf("%s: %.0f ns beside 100, %.0f ns beside 10,000\n", what.c_str(), nanos(timesOfFew),
                nanos(timesOfAll));
    bars.atMost(what + " one, beside 10,000 / beside 100", nanos(timesOfAll) / nanos(timesOfFew),
                2);
  }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  return bench::runParts(
      argc, argv, {{"speed", bench::speed}, {"memory", bench::memory}, {"many", bench::many}});
}
