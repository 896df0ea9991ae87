// The bus beside bare sockets and the bare store, all in one run.
//
//   ping-pong    two processes that pass the bytes of a get and of its reply over a blocking socket
//   get          the same from a real service
//   commit       one SQLite transaction with the record of a set, in the settings of a store file
//   set          a durable set, one client
//   16 sets      four clients with four sets each in flight
//   busy get     a get while another process sets without a pause
//
// The rows take turns; of each the fastest turn counts, since what else runs on a machine only
// makes it slower. Works in CONFKIT_BENCH_DIR, or the current directory, which decides what disk is
// measured. Ends with status 1 when a bar does not hold.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/support/child.h"
#include "bench/support/clients.h"
#include "platform/looper.h"
#include "platform/service.h"
#include "tests/support/temp_directory.h"
#include "tests/support/text_map.h"

namespace {

using namespace nv;
using bench::ask;
using bench::Child;
using bench::Clock;
using bench::connect;
using bench::Micros;
using bench::RawClient;
using Bytes = std::vector<unsigned char>;

constexpr std::uint32_t kAddress = 100;
constexpr std::uint32_t kTexts = 1000;
constexpr unsigned kTurns = 60;
constexpr unsigned kGets = 1000;  // a turn
constexpr unsigned kSets = 100;   // a turn
constexpr unsigned kClients = 4;
constexpr unsigned kInFlight = 4;  // of a client

std::string text(unsigned n) { return std::string(100, static_cast<char>('a' + n % 26)); }

message command(unsigned code, std::uint32_t id) {
  return message{{key::command, code}, {key::objectId, id}, {key::tag, 1}}.insert(key::route,
                                                                                  {kAddress});
}

message setCommand(unsigned n) {
  return command(cmd::setObj, 1 + n % kTexts).insert(testkit::kText, text(n));
}

void serve(const TempDirectory& place) {
  ServiceOptions options{.name = "texts", .address = kAddress};
  options.busDirectory = place / "bus";
  options.storeFile = place / "texts.db";
  char name[] = "bus_bench";
  char* arguments[] = {name, nullptr};
  Service service(1, arguments, options);
  testkit::TextMap texts;
  texts.init();
  getLooper()->addHandler(kAddress, &texts);
  service.run();
}

std::filesystem::path socketIn(const TempDirectory& place) { return place / "bus" / "100.sock"; }

bool readAll(int fd, Bytes& bytes) {
  for (std::size_t got = 0; got < bytes.size();) {
    const auto n = read(fd, bytes.data() + got, bytes.size() - got);
    if (n <= 0) return false;
    got += static_cast<std::size_t>(n);
  }
  return true;
}

/// The other end of a ping-pong.
void echo(int fd, std::size_t requestBytes, const Bytes& reply) {
  Bytes request(requestBytes);
  while (readAll(fd, request))
    if (write(fd, reply.data(), reply.size()) < 0) break;
}

/// What a store file does for a set, and nothing around it.
class BareStore {
 public:
  explicit BareStore(const std::filesystem::path& file) {
    check(sqlite3_open(file.c_str(), &db_));
    run("PRAGMA page_size = 1024; PRAGMA journal_mode = WAL; PRAGMA locking_mode = EXCLUSIVE;"
        "PRAGMA synchronous = FULL; PRAGMA cache_size = -256; PRAGMA wal_autocheckpoint = 256;"
        "CREATE TABLE texts(id INTEGER PRIMARY KEY, record BLOB NOT NULL)");
    prepare("BEGIN IMMEDIATE", begin_);
    prepare("INSERT OR REPLACE INTO texts VALUES(?, ?)", put_);
    prepare("COMMIT", commit_);
  }
  ~BareStore() {
    for (auto* statement : {begin_, put_, commit_}) sqlite3_finalize(statement);
    sqlite3_close(db_);
  }
  BareStore(const BareStore&) = delete;

  void commit(unsigned n) {
    const message record{{key::objectId, 1 + n % kTexts}, {testkit::kText, text(n)}};
    const auto bytes = record.bytes();
    step(begin_);
    sqlite3_bind_int64(put_, 1, 1 + n % kTexts);
    sqlite3_bind_blob64(put_, 2, bytes.data(), bytes.size(), SQLITE_STATIC);
    step(put_);
    step(commit_);
  }

 private:
  void run(const char* sql) { check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr)); }
  void prepare(const char* sql, sqlite3_stmt*& statement) {
    check(sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr));
  }
  static void step(sqlite3_stmt* statement) {
    if (sqlite3_step(statement) != SQLITE_DONE) std::abort();
    sqlite3_reset(statement);
  }
  static void check(int result) {
    if (result != SQLITE_OK) std::abort();
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt *begin_ = nullptr, *put_ = nullptr, *commit_ = nullptr;
};

/// How long each of some calls took, in microseconds, ascending.
std::vector<double> timed(unsigned count, const std::function<void(unsigned)>& call) {
  std::vector<double> times;
  for (unsigned i = 0; i < count; ++i) {
    const auto start = Clock::now();
    call(i);
    times.push_back(Micros(Clock::now() - start).count());
  }
  std::sort(times.begin(), times.end());
  return times;
}

double median(const std::vector<double>& sorted) { return sorted[sorted.size() / 2]; }
double percentile99(const std::vector<double>& sorted) { return sorted[sorted.size() * 99 / 100]; }

/// The fastest turn of each row, in microseconds a call.
struct Rows {
  double pingPong = 1e9, get = 1e9, commit = 1e9, set = 1e9, sets16 = 1e9, busyGet99 = 1e9;
};

void keep(double& fastest, double time) { fastest = std::min(fastest, time); }

bool row(const char* what, double value, double bar, bool atMost) {
  const bool holds = atMost ? value <= bar : value >= bar;
  std::printf("| %-58s | %6.2f | %s %4.2f | %s |\n", what, value, atMost ? "<=" : ">=", bar,
              holds ? "yes" : "NO");
  return holds;
}

bool report(const Rows& us) {
  std::printf(
      "ping-pong %.1f, get %.1f, commit %.1f, set %.1f, 16 sets %.1f, busy get p99 %.1f "
      "(microseconds a call)\n\n",
      us.pingPong, us.get, us.commit, us.set, us.sets16, us.busyGet99);
  std::printf("| ratio | measured | bar | holds |\n|---|---|---|---|\n");
  bool holds = row("get / ping-pong", us.get / us.pingPong, 2, true);
  holds &= row("set / (commit + ping-pong)", us.set / (us.commit + us.pingPong), 1.5, true);
  holds &= row("rate of 16 sets in flight / rate of one client", us.set / us.sets16, 6, false);
  holds &= row("p99 of get under a steady writer / commit", us.busyGet99 / us.commit, 1, true);
  return holds;
}

Rows measure(const TempDirectory& place) {
  RawClient client;
  connect(client, socketIn(place));
  for (unsigned n = 0; n < kTexts; ++n)
    client.ask(command(cmd::addObj, 1 + n).insert(testkit::kText, text(n)));
  const auto get = testkit::frameOf(command(cmd::getObj, 7));
  client.sendBytes(get);
  const auto reply = testkit::frameOf(client.receive().value());

  int pair[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) std::abort();
  const Child echoing([&] { close(pair[0]), echo(pair[1], get.size(), reply); });
  close(pair[1]);
  Bytes answer(reply.size());
  BareStore store(place / "bare.db");
  std::deque<RawClient> clients(kClients);
  for (auto& one : clients) connect(one, socketIn(place));

  Rows rows;
  for (unsigned turn = 0; turn < kTurns; ++turn) {
    keep(rows.pingPong, median(timed(kGets, [&](unsigned) {
           if (write(pair[0], get.data(), get.size()) < 0 || !readAll(pair[0], answer))
             std::abort();
         })));
    keep(rows.get, median(timed(kGets, [&](unsigned) { ask(client, get); })));
    keep(rows.commit, median(timed(kSets, [&](unsigned n) { store.commit(n); })));
    keep(rows.set,
         median(timed(kSets, [&](unsigned n) { ask(client, testkit::frameOf(setCommand(n))); })));
    keep(rows.sets16, bench::inFlight(clients, kInFlight, kSets * 4, setCommand));
  }
  const Child writing([&] {
    RawClient writer;
    connect(writer, socketIn(place));
    for (unsigned n = 0;; ++n) ask(writer, testkit::frameOf(setCommand(n)));
  });
  for (unsigned turn = 0; turn < kTurns; ++turn)
    keep(rows.busyGet99, percentile99(timed(kGets, [&](unsigned) { ask(client, get); })));
  close(pair[0]);
  return rows;
}

}  // namespace

int main() {
  const TempDirectory place(bench::benchDirectory());
  const Child service([&] { serve(place); });
  return report(measure(place)) ? 0 : 1;
}
